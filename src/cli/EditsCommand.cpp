#include "cli/EditsCommand.h"

#include <nlohmann/json.hpp>

#include "cli/CliError.h"
#include "cli/Output.h"
#include "edits/EditManifestStore.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

const char* modeName(EditMode mode) {
    return mode == EditMode::overwrite ? "overwrite" : "saveAsNew";
}

const char* stateName(const EditEntry& edit) {
    return edit.isPending() ? "pending" : "applied";
}

void printList(CliContext& context, const EditManifest& manifest) {
    if (context.json()) {
        auto list = nlohmann::json::array();
        for (const auto& edit : manifest.edits)
            list.push_back({{"id", edit.id},
                            {"mode", modeName(edit.mode)},
                            {"target", edit.targetRelativePath},
                            {"state", stateName(edit)}});
        context.out() << Output::jsonText({{"edits", list}}) << '\n';
        return;
    }
    if (manifest.edits.empty())
        context.out() << "No edits in " << Output::plainText(manifest.backupRootName) << ".\n";
    for (const auto& edit : manifest.edits)
        context.out() << edit.id << '\t' << modeName(edit.mode) << '\t'
                      << Output::plainText(edit.targetRelativePath) << '\t' << stateName(edit) << '\n';
}

}  // namespace

int EditsCommand::run(CliContext& context, Arguments arguments) {
    const auto operands = arguments.operands(2, 2, usage());
    const fs::path set = context.resolveSet(operands[0]);
    if (operands[1] != "list") throw UsageError("Unknown edits action \"" + operands[1] + "\". " + usage());
    printList(context, EditManifestStore(context.baseFolder()).load(set.filename().string()));
    return 0;
}

}  // namespace tapekeep::cli
