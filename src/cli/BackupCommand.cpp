#include "cli/BackupCommand.h"

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "app/AppSettings.h"
#include "backup/BackupOperation.h"
#include "backup/BackupProgressTracker.h"
#include "backup/ProgressLineParser.h"
#include "cards/OperationLock.h"
#include "cards/OperationLockError.h"
#include "cards/VolumeScanner.h"
#include "cli/CliError.h"
#include "cli/ProgressBar.h"
#include "cli/SignalCancellation.h"
#include "core/Cancelled.h"
#include "workflows/BackupRequestFactory.h"
#include "workflows/BackupVolumeCheck.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

// Sorts the run's output: progress lines feed the bar, progress noise is dropped, the rest is the log.
class BackupConsole {
public:
    explicit BackupConsole(std::ostream& err) : bar_(err, ::isatty(STDERR_FILENO) == 1) {}

    void line(const std::string& text) {
        if (auto progress = parseProgressLine(text)) {
            bar_.update(tracker_.feed(*progress), tracker_.filesRemaining());
            return;
        }
        if (isProgressNoise(text)) return;
        bar_.printLine(text);
    }

    void event(const TransferEvent& event) {
        tracker_.apply(event);
        if (event.kind == TransferEvent::Kind::transferFinished)
            bar_.update(tracker_.displayedProgress.value_or(1.0), tracker_.filesRemaining());
    }

    void finish() { bar_.clear(); }

private:
    ProgressBar bar_;
    BackupProgressTracker tracker_;
};

struct BackupOptions {
    std::optional<fs::path> destination;
    std::optional<int> keep;
    bool noRotate = false;
    std::vector<std::string> folders;
    std::vector<std::string> songs;
    bool verify = false;
    std::optional<std::string> mismatchAction;
};

std::vector<std::string> commaSeparated(const std::optional<std::string>& text) {
    std::vector<std::string> items;
    if (!text) return items;
    std::size_t start = 0;
    while (start <= text->size()) {
        const std::size_t end = std::min(text->find(',', start), text->size());
        if (end > start) items.push_back(text->substr(start, end - start));
        start = end + 1;
    }
    return items;
}

BackupOptions takeOptions(Arguments& arguments) {
    BackupOptions options;
    if (auto destination = arguments.takeValue("--dest")) options.destination = fs::absolute(*destination);
    if (auto keep = arguments.takeValue("--keep")) options.keep = parseCount(*keep, "--keep");
    options.noRotate = arguments.takeFlag("--no-rotate");
    options.folders = commaSeparated(arguments.takeValue("--folders"));
    options.songs = commaSeparated(arguments.takeValue("--songs"));
    options.verify = arguments.takeFlag("--verify");
    options.mismatchAction = arguments.takeValue("--mismatch");
    if (options.mismatchAction && *options.mismatchAction != "retry" && *options.mismatchAction != "flag" &&
        *options.mismatchAction != "abort")
        throw UsageError("--mismatch takes retry, flag or abort, not \"" + *options.mismatchAction + "\".");
    return options;
}

// The request as the desktop application builds it, with this call's --base and --rsync.
BackupRequest requestFor(CliContext& context, const SDCard& card, const BackupOptions& options) {
    BackupChoice choice;
    choice.destinationOverride = options.destination;
    choice.selectedFolders = options.folders;
    choice.selectedSongs = options.songs;
    choice.selective = !options.folders.empty() || !options.songs.empty();
    BackupRequest request = makeBackupRequest(card, context.settings(), choice);
    const fs::path baseFolder = context.baseFolder();
    request.baseURL = options.destination.value_or(baseFolder);
    request.forceFullCopy = needsFullCopy(options.destination, baseFolder);
    request.rsyncPath = context.rsyncPath();
    if (options.keep) request.keepCount = *options.keep;
    if (options.noRotate) request.rotate = false;
    if (options.verify) request.verify = true;
    if (options.mismatchAction) request.mismatchAction = *options.mismatchAction;
    return request;
}

Lease acquireBackupLease(const SDCard& card) {
    try {
        return OperationLock::shared().acquire(VolumeUUID{card.diskUtilUUID}, OperationKind::backup);
    } catch (const OperationLockError& conflict) {
        throw Error("Cannot start backup — " + std::string(rawValue(conflict.existing())) +
                    " in progress on this card.");
    }
}

void printOutcome(CliContext& context, const BackupOutcome& outcome) {
    if (context.json()) {
        context.out() << nlohmann::json{{"version", outcome.versionURL.string()},
                                        {"warning", outcome.warning ? nlohmann::json(*outcome.warning)
                                                                    : nlohmann::json(nullptr)}}
                             .dump(2)
                      << '\n';
        return;
    }
    context.out() << outcome.versionURL.string() << '\n';
}

}  // namespace

int BackupCommand::run(CliContext& context, Arguments arguments) {
    SignalCancellation interrupts;
    const BackupOptions options = takeOptions(arguments);
    const auto operands = arguments.operands(1, 1, usage());
    const SDCard card = context.resolveCard(operands.front(), interrupts.token());
    const BackupRequest request = requestFor(context, card, options);
    if (request.card.diskUtilUUID.empty()) throw Error("Missing volume UUID — reconnect card and retry.");

    const Lease lease = acquireBackupLease(card);
    BackupConsole console(context.err());
    try {
        const auto outcome = BackupOperation::run(
            request, [&](const std::string& line) { console.line(line); },
            [&](const TransferEvent& event) { console.event(event); }, BackupOperation::defaultRsyncRunner(),
            makeVolumeValidator([&context] { return context.makeScanner(); }), interrupts.token());
        console.finish();
        OperationLock::shared().release(lease);
        printOutcome(context, outcome);
        return ExitCode::done;
    } catch (const Cancelled&) {
        console.finish();
        OperationLock::shared().release(lease);
        context.err() << "Backup cancelled. No incomplete version was published.\n";
        context.err() << "Backup was cancelled.\n";
        return ExitCode::cancelled;
    } catch (...) {
        console.finish();
        OperationLock::shared().release(lease);
        throw;
    }
}

}  // namespace tapekeep::cli
