#include "cli/CopyCommand.h"

#include <nlohmann/json.hpp>

#include "cards/VolumeScanner.h"
#include "cli/BrowsedVersion.h"
#include "cli/CliError.h"
#include "cli/Output.h"
#include "cli/SignalCancellation.h"
#include "core/Cancelled.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

BackupBrowserViewModel::Dependencies copyDependencies(CliContext& context) {
    // One scanner for every check of the run; it serves one caller at a time from any thread.
    std::shared_ptr<const VolumeScanner> scanner = context.makeScanner();
    BackupBrowserViewModel::Dependencies dependencies;
    dependencies.copy = BrowseCopyOperation::standardDependencies(
        [scanner](const std::string& uuid, std::stop_token token) { return scanner->validate(uuid, token); });
    return dependencies;
}

}  // namespace

int CopyCommand::run(CliContext& context, Arguments arguments) {
    const auto operands = arguments.operands(4, 4, usage());
    const SDCard card = context.resolveCard(operands[0], SignalCancellation::token());
    const fs::path version = context.resolveVersion(context.resolveSet(operands[1]), operands[2]);
    BrowsedVersion browsed(version, context.rsyncPath(), copyDependencies(context));
    const auto node = browsed.node(operands[3]);
    if (!node) throw UsageError("Name a file or folder of the version to copy, not the version itself.");

    auto& browser = browsed.browser();
    if (!context.json())
        QObject::connect(&browser, &BackupBrowserViewModel::copyLine,
                         [&context](const QString& line) { context.err() << line.toStdString() << '\n'; });
    browser.copyToCard(*node, card);
    BrowsedVersion::waitFor([&] { return !browser.isCopying(); }, [&] { browser.cancelCopy(); });

    const auto status = browser.copyStatus().value_or("");
    const auto& end = browser.lastCopyEnd();
    if (end && end->kind == BackupBrowserViewModel::CopyEnd::Kind::cancelled) throw Cancelled();
    if (!end || end->kind != BackupBrowserViewModel::CopyEnd::Kind::copied) throw Error(status);
    if (context.json())
        context.out() << Output::jsonText({{"copied", end->destination.string()}}) << '\n';
    else
        context.out() << Output::plainText(status) << '\n';
    return 0;
}

}  // namespace tapekeep::cli
