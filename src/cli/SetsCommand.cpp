#include "cli/SetsCommand.h"

#include <nlohmann/json.hpp>

#include "backup/BackupRepository.h"

namespace tapekeep::cli {

int SetsCommand::run(CliContext& context, Arguments arguments) {
    arguments.operands(0, 0, usage());
    const auto sets = BackupRepository(context.baseFolder()).listSets();
    if (context.json()) {
        auto list = nlohmann::json::array();
        for (const auto& set : sets)
            list.push_back({{"folderName", set.folderName},
                            {"volumeName", set.volumeName},
                            {"path", set.rootURL.string()},
                            {"versions", set.versions.size()}});
        context.out() << nlohmann::json{{"sets", list}}.dump(2) << '\n';
        return 0;
    }
    if (sets.empty()) context.out() << "No backup sets in " << context.baseFolder().string() << ".\n";
    for (const auto& set : sets)
        context.out() << set.folderName << '\t' << set.versions.size() << " version(s)\t"
                      << set.rootURL.string() << '\n';
    return 0;
}

}  // namespace tapekeep::cli
