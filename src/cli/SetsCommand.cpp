#include "cli/SetsCommand.h"

#include <nlohmann/json.hpp>

#include "backup/BackupRepository.h"
#include "cli/Output.h"

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
        context.out() << Output::jsonText({{"sets", list}}) << '\n';
        return 0;
    }
    if (sets.empty())
        context.out() << "No backup sets in " << Output::plainText(context.baseFolder().string()) << ".\n";
    for (const auto& set : sets)
        context.out() << Output::plainText(set.folderName) << '\t' << set.versions.size() << " version(s)\t"
                      << Output::plainText(set.rootURL.string()) << '\n';
    return 0;
}

}  // namespace tapekeep::cli
