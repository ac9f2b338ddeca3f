#include "cli/VersionsCommand.h"

#include <nlohmann/json.hpp>

#include "backup/BackupRepository.h"
#include "cli/Output.h"
#include "core/Timestamp.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

nlohmann::json versionJson(const BackupVersion& version) {
    const std::string note = BackupRepository::readNote(version.url);
    return {
        {"folderName", version.folderName},
        {"path", version.url.string()},
        {"date", version.date ? nlohmann::json(formatIso8601Utc(*version.date)) : nlohmann::json(nullptr)},
        {"isLatest", version.isLatest},
        {"note", note.empty() ? nlohmann::json(nullptr) : nlohmann::json(note)}};
}

}  // namespace

int VersionsCommand::run(CliContext& context, Arguments arguments) {
    const auto operands = arguments.operands(1, 1, usage());
    const fs::path folder = context.resolveSet(operands[0]);
    const auto versions = BackupRepository(context.baseFolder()).listVersions(folder);
    if (context.json()) {
        auto list = nlohmann::json::array();
        for (const auto& version : versions) list.push_back(versionJson(version));
        context.out() << Output::jsonText({{"versions", list}}) << '\n';
        return 0;
    }
    if (versions.empty()) context.out() << "No versions in " << Output::plainText(folder.string()) << ".\n";
    for (const auto& version : versions) {
        const std::string note = BackupRepository::readNote(version.url);
        context.out() << Output::plainText(version.folderName) << (version.isLatest ? "\tlatest" : "\t")
                      << (note.empty() ? "" : "\t") << Output::plainText(note) << '\n';
    }
    return 0;
}

}  // namespace tapekeep::cli
