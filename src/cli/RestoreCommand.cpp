#include "cli/RestoreCommand.h"

#include <nlohmann/json.hpp>

#include "cli/CliError.h"
#include "cli/DifferenceListing.h"
#include "cli/EventLoop.h"
#include "cli/Output.h"
#include "cli/SignalCancellation.h"
#include "content/SampleReferences.h"
#include "core/Cancelled.h"
#include "workflows/RestoreViewModel.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

namespace {

bool interrupted() {
    return SignalCancellation::signalled();
}

// Runs the event loop until done() holds; an interrupt before then cancels the call.
void waitFor(const std::function<bool()>& done) {
    runEventsUntil([&] { return done() || interrupted(); });
    if (!done()) throw Cancelled();
}

// Card file systems ignore letter case, and so do the names given here.
bool sameName(const std::string& a, const std::string& b) {
    return BrowseFileService::indexKey(a) == BrowseFileService::indexKey(b);
}

bool contains(const std::vector<std::string>& names, const std::string& name) {
    return std::any_of(names.begin(), names.end(), [&](const std::string& n) { return sameName(n, name); });
}

// The wizard walked as the desktop does: target, set, version, each waited for.
void chooseVersion(RestoreViewModel& restore, const std::string& cardName, const fs::path& set,
                   const fs::path& version) {
    restore.loadTargets();
    waitFor([&] { return !restore.isLoadingTargets() && !restore.isLoadingSets(); });
    restore.selectTarget(CliContext::pickCard(restore.availableTargets(), cardName));
    const auto& sets = restore.availableSets();
    const auto listed = std::find_if(sets.begin(), sets.end(), [&](auto& s) { return s.rootURL == set; });
    restore.selectSet(listed != sets.end() ? *listed : BackupSet{set, set.filename().string(), {}, {}});
    waitFor([&] { return !restore.isLoadingVersionSizes(); });
    const auto& versions = restore.selectedSet()->versions;
    const auto found =
        std::find_if(versions.begin(), versions.end(), [&](auto& v) { return v.url == version; });
    restore.selectVersion(found != versions.end()
                              ? *found
                              : BackupVersion{version, version.filename().string(), std::nullopt, false});
    waitFor([&] { return !restore.isLoadingSongs(); });
}

// --folders and --songs as the wizard's choice; a name the version lacks is a usage error.
void chooseContent(RestoreViewModel& restore, const std::vector<std::string>& folders,
                   const std::vector<std::string>& songs) {
    if (folders.empty() && songs.empty()) return;
    restore.setRestoreMode(RestoreMode::folders);
    for (const auto& name : folders)
        if (std::none_of(restore.availableFolders().begin(), restore.availableFolders().end(),
                         [&](auto& folder) { return sameName(folder.name, name); }))
            throw UsageError("The version has no folder \"" + name + "\".");
    for (const auto& song : songs)
        if (std::none_of(restore.availableSongs().begin(), restore.availableSongs().end(),
                         [&](auto& item) { return sameName(item.relativePath, song); }))
            throw UsageError("The version has no song \"" + song + "\".");
    const auto available = restore.availableFolders();
    for (const auto& folder : available)
        restore.setFolderSelected(folder.name, contains(folders, folder.name));
    if (songs.empty()) return;
    restore.setSongsRestoreMode(SongsRestoreMode::individual);
    const auto items = restore.availableSongs();
    for (const auto& song : items)
        restore.setSongSelected(song.relativePath, contains(songs, song.relativePath));
}

int preview(CliContext& context, RestoreViewModel& restore) {
    bool finished = false;
    QObject::connect(&restore, &RestoreViewModel::previewFinished, [&finished] { finished = true; });
    restore.loadPreview();
    waitFor([&] { return finished; });  // an interrupt ends the controller, which stops rsync
    if (restore.previewError()) throw Error(*restore.previewError());
    const auto& rows = *restore.diffResult();
    if (!context.json()) {
        DifferenceListing::print(context.out(), rows);
        if (restore.safetyBackupPlanned()) context.out() << "The card will be backed up first.\n";
        return ExitCode::done;
    }
    auto list = nlohmann::json::array();
    for (const auto& row : rows) list.push_back({{"path", row.path}, {"kind", FileDiff::rawValue(row.kind)}});
    // "safetyBackup": whether the restore would first back the card up (setting backupBeforeRestore).
    context.out() << Output::jsonText({{"rows", list}, {"safetyBackup", restore.safetyBackupPlanned()}})
                  << '\n';
    return ExitCode::done;
}

// Starts a restore or an undo and follows it to its end, its log on standard error. Nothing when it
// succeeded; the exit code otherwise, its error printed last.
std::optional<int> runToEnd(CliContext& context, RestoreViewModel& restore,
                            const std::function<void()>& start) {
    std::size_t printed = 0;
    auto printLog = [&] {
        for (; printed < restore.logLines().size(); ++printed)
            context.err() << Output::plainText(restore.logLines()[printed]) << '\n';
    };
    QObject::connect(&restore, &RestoreViewModel::logLinesChanged, printLog);
    start();
    runEventsUntil([&] { return restore.step().kind == RestoreStep::Kind::done && !restore.isRestoring(); },
                   [&] { restore.cancelRestore(); });
    printLog();
    const RestoreStep& result = restore.step();
    if (!result.error) return std::nullopt;
    context.err() << Output::plainText(*result.error) << '\n';
    return result.isCancelled() ? ExitCode::cancelled : ExitCode::failed;
}

nlohmann::json pathOrNull(const std::optional<fs::path>& path) {
    return path ? nlohmann::json(path->string()) : nlohmann::json(nullptr);
}

int restoreNow(CliContext& context, RestoreViewModel& restore) {
    if (auto failed = runToEnd(context, restore, [&] { restore.startRestore(); })) return *failed;
    if (context.json())
        context.out() << Output::jsonText({{"restored", true},
                                           {"safetyVersion", pathOrNull(restore.safetyVersion())},
                                           {"warning", nullptr}})
                      << '\n';
    else
        context.out() << "Restored.\n";
    return ExitCode::done;
}

int undo(CliContext& context, const std::string& cardName) {
    RestoreViewModel::Dependencies dependencies;
    dependencies.makeScanner = [&context] { return context.makeScanner(); };
    dependencies.baseFolderOverride = context.baseFolder();
    dependencies.rsyncPathOverride = context.rsyncPath();
    RestoreViewModel restore(context.settings(), std::move(dependencies));
    restore.loadTargets();
    waitFor([&] { return !restore.isLoadingTargets(); });
    restore.selectTarget(CliContext::pickCard(restore.availableTargets(), cardName));
    if (auto failed = runToEnd(context, restore, [&] { restore.undoLastRestore(); })) return *failed;
    if (context.json())
        context.out() << Output::jsonText(
                             {{"undone", true}, {"safetyVersion", pathOrNull(restore.safetyVersion())}})
                      << '\n';
    else
        context.out() << "Undone: the card is back as "
                      << Output::plainText(restore.safetyVersion()->string()) << " had it.\n";
    return ExitCode::done;
}

}  // namespace

int RestoreCommand::run(CliContext& context, Arguments arguments) {
    if (arguments.takeFlag("--undo")) return undo(context, arguments.operands(1, 1, usage())[0]);
    const bool previewOnly = arguments.takeFlag("--preview");
    const auto folders = arguments.takeList("--folders");
    const auto songs = arguments.takeList("--songs");
    const auto operands = arguments.operands(3, 3, usage());
    const fs::path set = context.resolveSet(operands[1]);
    const fs::path version = context.resolveVersion(set, operands[2]);

    RestoreViewModel::Dependencies dependencies;
    dependencies.makeScanner = [&context] { return context.makeScanner(); };
    dependencies.baseFolderOverride = context.baseFolder();
    dependencies.rsyncPathOverride = context.rsyncPath();
    RestoreViewModel restore(context.settings(), std::move(dependencies));
    chooseVersion(restore, operands[0], set, version);
    chooseContent(restore, folders, songs);
    return previewOnly ? preview(context, restore) : restoreNow(context, restore);
}

}  // namespace tapekeep::cli
