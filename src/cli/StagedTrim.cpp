#include "cli/StagedTrim.h"

#include <memory>

#include "cli/CliError.h"
#include "cli/Output.h"
#include "cli/SignalCancellation.h"
#include "edits/EditManifestStore.h"
#include "edits/EditStagingService.h"
#include "edits/StagingSource.h"

namespace tapekeep::cli::StagedTrim {
namespace fs = std::filesystem;

Options takeOptions(Arguments& arguments) {
    Options options;
    options.from = takeSeconds(arguments, "--from");
    options.to = takeSeconds(arguments, "--to");
    options.target = arguments.takeValue("--as");
    options.overwrite = arguments.takeFlag("--overwrite");
    return options;
}

int stage(CliContext& context, const fs::path& set, const std::vector<std::string>& operands,
          const Options& options, const std::string& usage) {
    if (operands.size() != 2) throw UsageError("Name the version and the sample. Usage: " + usage);
    if (options.overwrite && options.target)
        throw UsageError("Give either --as PATH or --overwrite, not both.");
    const double from = requiredSeconds(options.from, "--from", usage);
    const double to = requiredSeconds(options.to, "--to", usage);
    const fs::path version = context.resolveVersion(set, operands[0]);
    const std::string root = set.filename().string();
    const auto token = SignalCancellation::token();

    auto store = std::make_shared<EditManifestStore>(context.baseFolder());
    const auto source = StagingSource::read(version, operands[1], token);
    const EditMode mode = options.overwrite ? EditMode::overwrite : EditMode::saveAsNew;
    const auto request = source.request(mode, from, to, options.target, root, store->pendingEdits(root));
    const EditEntry edit = EditStagingService(store).stage(request, token);

    const std::string modeName = mode == EditMode::overwrite ? "overwrite" : "saveAsNew";
    if (context.json())
        context.out() << Output::jsonText(
                             {{"id", edit.id}, {"mode", modeName}, {"target", edit.targetRelativePath}})
                      << '\n';
    else
        context.out() << edit.id << '\t' << modeName << '\t' << Output::plainText(edit.targetRelativePath)
                      << '\n';
    return 0;
}

}  // namespace tapekeep::cli::StagedTrim
