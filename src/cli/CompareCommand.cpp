#include "cli/CompareCommand.h"

#include "backup/BackupRepository.h"
#include "cli/DifferenceListing.h"
#include "cli/EventLoop.h"
#include "cli/Output.h"
#include "cli/SignalCancellation.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "workflows/ComparisonViewModel.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

// The listed version with that folder, or one made from the folder when it is not listed.
BackupVersion versionAt(const std::vector<BackupVersion>& versions, const fs::path& folder) {
    for (const auto& version : versions)
        if (version.url == folder) return version;
    return BackupVersion{folder, folder.filename().string(), std::nullopt, false};
}

}  // namespace

int CompareCommand::run(CliContext& context, Arguments arguments) {
    const auto operands = arguments.operands(3, 3, usage());
    const fs::path set = context.resolveSet(operands[0]);
    const fs::path a = context.resolveVersion(set, operands[1]);
    const fs::path b = context.resolveVersion(set, operands[2]);
    auto versions = BackupRepository(context.baseFolder()).listVersions(set);

    ComparisonViewModel::Dependencies dependencies;
    dependencies.rsyncPath = context.rsyncPath();
    ComparisonViewModel comparison(versions, std::move(dependencies));
    comparison.setVersionA(versionAt(versions, a));
    comparison.setVersionB(versionAt(versions, b));
    bool finished = false;
    QObject::connect(&comparison, &ComparisonViewModel::comparisonFinished, [&finished] { finished = true; });
    comparison.compare();
    // The selection errors end compare() at once, with nothing started.
    if (!comparison.isComparing() && comparison.errorMessage()) throw Error(*comparison.errorMessage());
    runEventsUntil([&] { return finished || SignalCancellation::signalled(); });
    if (!finished) throw Cancelled();  // the controller's end stops rsync
    if (comparison.errorMessage()) throw Error(*comparison.errorMessage());

    const auto& differences = *comparison.diffResult();
    if (context.json()) {
        context.out() << Output::jsonText(DifferenceListing::json(differences)) << '\n';
        return 0;
    }
    if (differences.empty()) context.out() << "The versions are the same.\n";
    DifferenceListing::print(context.out(), differences);
    return 0;
}

}  // namespace tapekeep::cli
