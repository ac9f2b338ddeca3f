// One backup run of BackupViewModel: its start under the card's lease, the coalescing of rsync's
// output, its completion, and the eject after it.

#include <QTimer>

#include "app/AppSettings.h"
#include "backup/BackupRepository.h"
#include "backup/ProgressLineParser.h"
#include "cards/CardChangeWatcher.h"
#include "cards/OperationLock.h"
#include "cards/OperationLockError.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "workflows/BackupRequestFactory.h"
#include "workflows/BackupViewModel.h"
#include "workflows/BackupVolumeCheck.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

std::string elapsedText(std::optional<Clock::time_point> start) {
    if (!start) return "0:00";
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - *start).count();
    const long long hours = seconds / 3600, minutes = (seconds % 3600) / 60, rest = seconds % 60;
    char text[32];
    if (hours > 0)
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", hours, minutes, rest);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld", minutes, rest);
    return text;
}

// A card held by another operation, in this process or another; both refusals read alike.
std::string conflictMessage(const OperationLockError& conflict) {
    return "Cannot start backup — " + std::string(rawValue(conflict.existing())) +
           " in progress on this card.";
}

std::string failureDescription(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const OperationLockError& conflict) {
        return conflictMessage(conflict);
    } catch (...) {
        return describe(error);
    }
}

}  // namespace

void BackupViewModel::startBackup(const SDCard& card) {
    const std::string& uuid = card.diskUtilUUID;
    if (auto refusal = featureAccess_.refusal("backup")) {
        setState(uuid, CardState::failed(*refusal));
        return;
    }
    if (runningTasks_.contains(uuid)) return;
    if (OperationLock::shared().isActive(VolumeUUID{uuid})) return;
    if (cardDiffLoading_.erase(uuid) > 0) emit cardDiffLoadingChanged();
    erase(cardDiffSummary_, uuid, &BackupViewModel::cardDiffSummaryChanged);
    runBackup(card);
}

void BackupViewModel::runBackup(const SDCard& card) {
    const std::string& uuid = card.diskUtilUUID;
    // A one-shot destination is for the run that the options sheet starts, never for a later one.
    const auto destination = takeDestinationOverride(uuid);
    if (auto refusal = featureAccess_.refusal("backup")) return setState(uuid, CardState::failed(*refusal));
    if (uuid.empty())
        return setState(uuid, CardState::failed("Missing volume UUID — reconnect card and retry."));
    std::optional<Lease> lease;
    try {
        lease = OperationLock::shared().acquire(VolumeUUID{uuid}, OperationKind::backup);
    } catch (const OperationLockError& conflict) {
        return setState(uuid, CardState::failed(conflictMessage(conflict)));
    } catch (const std::exception& error) {
        return setState(uuid,
                        CardState::failed(std::string("Failed to acquire operation lock: ") + error.what()));
    }
    const auto folders = cardFolders_.find(uuid);
    const auto songs = cardSongs_.find(uuid);
    const bool anyFolder =
        folders == cardFolders_.end() ||
        std::any_of(folders->second.begin(), folders->second.end(), [](auto& f) { return f.selected; });
    const bool anySong = songs != cardSongs_.end() && std::any_of(songs->second.begin(), songs->second.end(),
                                                                  [](auto& s) { return s.selected; });
    if (!anyFolder && !anySong) {
        OperationLock::shared().release(*lease);
        return setState(uuid, CardState::failed("Nothing selected to back up."));
    }
    const BackupRequest request = requestFor(card, destination);
    if (auto refusal = keepCountRefusal(request)) {
        OperationLock::shared().release(*lease);
        return setState(uuid, CardState::failed(*refusal));
    }
    stopOptionsWork(uuid);  // the sheet is done: what it chose is in the request
    cancelledRuns_.erase(uuid);
    setState(uuid, CardState::running());
    assign(cardLogs_, uuid, std::vector<std::string>{}, &BackupViewModel::cardLogsChanged);
    assign(cardStartTime_, uuid, Clock::now(), &BackupViewModel::cardStartTimeChanged);
    erase(cardProgress_, uuid, &BackupViewModel::cardProgressChanged);
    erase(cardFilesRemaining_, uuid, &BackupViewModel::cardFilesRemainingChanged);
    progressTrackers_[uuid] = BackupProgressTracker{};
    startRunTask(card, request, *lease);
}

std::optional<fs::path> BackupViewModel::takeDestinationOverride(const std::string& uuid) {
    auto found = destinationOverride_.find(uuid);
    if (found == destinationOverride_.end()) return std::nullopt;
    fs::path destination = found->second;
    destinationOverride_.erase(found);
    emit destinationOverrideChanged();
    return destination;
}

// The request as the settings, the one-shot destination and the options sheet say.
BackupRequest BackupViewModel::requestFor(const SDCard& card,
                                          const std::optional<fs::path>& destination) const {
    const std::string& uuid = card.diskUtilUUID;
    BackupChoice choice;
    choice.destinationOverride = destination;
    if (auto folders = cardFolders_.find(uuid); folders != cardFolders_.end()) {
        for (const auto& folder : folders->second)
            if (folder.selected) choice.selectedFolders.push_back(folder.relativePath.value_or(folder.name));
        choice.selective = choice.selectedFolders.size() < folders->second.size();
    }
    if (auto songs = cardSongs_.find(uuid); songs != cardSongs_.end()) {
        for (const auto& song : songs->second)
            if (song.selected) choice.selectedSongs.push_back(song.relativePath);
        choice.selective = choice.selective || !choice.selectedSongs.empty();
    }
    if (!choice.selective) choice.selectedFolders.clear();
    BackupRequest request = makeBackupRequest(card, settings_, choice, baseFolder());
    if (dependencies_.rsyncPathOverride) request.rsyncPath = *dependencies_.rsyncPathOverride;
    if (dependencies_.adjustRequest) dependencies_.adjustRequest(request);
    return request;
}

BackupOperation::VolumeValidator BackupViewModel::volumeValidator() const {
    return makeVolumeValidator(dependencies_.makeScanner);
}

void BackupViewModel::startRunTask(const SDCard& card, const BackupRequest& request, const Lease& lease) {
    const std::string uuid = card.diskUtilUUID;
    leases_.insert_or_assign(uuid, lease);
    auto work = [this, card, request, poster = poster_, validate = volumeValidator(),
                 runRsync = dependencies_.runRsync,
                 environment = dependencies_.environment](std::stop_token token) {
        RunResult result;
        try {
            result.outcome = BackupOperation::run(
                request,
                [this, uuid = card.diskUtilUUID](const std::string& line) { receiveLine(uuid, line); },
                [this, poster, uuid = card.diskUtilUUID](const TransferEvent& event) {
                    poster->post([this, uuid, event] { applyEvent(uuid, event); });
                },
                runRsync, validate, token, environment);
        } catch (...) {
            result.error = std::current_exception();
        }
        poster->post([this, card, result, base = request.baseURL] { completeRun(card, result, base); });
    };
    runningTasks_[uuid] = tasks_.start(work, [this, card](BackgroundTasks::Id id) { runEnded(card, id); });
}

// The run has returned and its completion is applied. The setting is read now, not at the start,
// so that switching auto-eject on during a long run still ejects the card after it.
void BackupViewModel::runEnded(const SDCard& card, BackgroundTasks::Id id) {
    const std::string& uuid = card.diskUtilUUID;
    forgetTask(runningTasks_, uuid, id);
    const bool cancelled = cancelledRuns_.erase(uuid) > 0;
    if (!cancelled && cardState(uuid).kind == CardState::Kind::success && settings_.autoEjectOnCompletion())
        return startAfterRunEject(card);
    releaseLease(uuid);
    // Only now, with the run gone, may the card be compared again: the comparisons asked for
    // during the run (its own publication among them) were turned away while it ran.
    std::error_code error;
    if (const SDCard* present = detectedCard(uuid); present && fs::exists(present->mountPath, error))
        refreshFreshness(*present);
    emit backupFinished(QString::fromStdString(uuid));
}

// The eject after a successful run, under the run's lease, as part of the run: cancelRun stops it.
void BackupViewModel::startAfterRunEject(const SDCard& card) {
    const std::string uuid = card.diskUtilUUID;
    auto work = [this, card, poster = poster_, validate = volumeValidator()](std::stop_token token) {
        BackupRequest identity;
        identity.card = card;
        try {
            validate(identity, token);
        } catch (const Cancelled&) {
            return;  // the user stopped the run; nothing was skipped that they wanted
        } catch (const std::exception& error) {
            poster->post([this, uuid = card.diskUtilUUID, message = std::string(error.what())] {
                appendLog(uuid, "Backup saved; automatic eject skipped: " + message);
            });
            return;
        }
        poster->post([this, uuid = card.diskUtilUUID] { stopCardWorkForEject(uuid); });
        try {
            if (auto failure = ejectWithRetries(card, token))
                poster->post([this, uuid = card.diskUtilUUID, failure = *failure] {
                    appendLog(uuid, failure);
                    setState(uuid, CardState::success("Backup saved. " + failure));
                });
        } catch (const Cancelled&) {
        }
    };
    runningTasks_[uuid] = tasks_.start(work, [this, uuid](BackgroundTasks::Id id) {
        forgetTask(runningTasks_, uuid, id);
        cancelledRuns_.erase(uuid);
        releaseLease(uuid);
        emit backupFinished(QString::fromStdString(uuid));
    });
}

void BackupViewModel::releaseLease(const std::string& uuid) {
    if (auto held = leases_.find(uuid); held != leases_.end()) {
        OperationLock::shared().release(held->second);
        leases_.erase(held);
    }
}

void BackupViewModel::cancelRun(const SDCard& card) {
    if (auto run = runningTasks_.find(card.diskUtilUUID); run != runningTasks_.end()) {
        cancelledRuns_.insert(card.diskUtilUUID);
        tasks_.cancel(run->second);
    }
}

void BackupViewModel::cancelAllOperations() {
    for (const auto& [uuid, task] : runningTasks_) {
        cancelledRuns_.insert(uuid);
        tasks_.cancel(task);
    }
    for (const auto& [uuid, task] : autoBackupTasks_) tasks_.cancel(task);
}

// ---- output ---------------------------------------------------------------------------------

// On the run's thread: lines wait in the inbox, and the first of a burst asks for one drain.
void BackupViewModel::receiveLine(const std::string& uuid, const std::string& line) {
    bool first = false;
    {
        std::lock_guard lock(inboxMutex_);
        auto& lines = inbox_[uuid];
        first = lines.empty();
        lines.push_back(line);
    }
    if (first) poster_->post([this, uuid] { drainInbox(uuid); });
}

void BackupViewModel::drainInbox(const std::string& uuid) {
    std::vector<std::string> lines;
    {
        std::lock_guard lock(inboxMutex_);
        lines.swap(inbox_[uuid]);
    }
    for (const auto& line : lines) appendOutput(uuid, line);
}

void BackupViewModel::appendOutput(const std::string& uuid, const std::string& line) {
    cardLastOutputAt_[uuid] = Clock::now();
    if (auto progress = parseProgressLine(line)) {
        if (auto tracker = progressTrackers_.find(uuid); tracker != progressTrackers_.end())
            pendingProgress_[uuid] = tracker->second.feed(*progress);
    } else if (!isProgressNoise(line)) {
        pendingLogLines_[uuid].push_back(line);
    }
    scheduleFlush(uuid);
}

// At most one flush waits per card, a quarter second after its first unflushed line: however fast
// rsync prints, a card's properties change at most four times a second.
void BackupViewModel::scheduleFlush(const std::string& uuid) {
    if (!outputFlushScheduled_.insert(uuid).second) return;
    QTimer::singleShot(dependencies_.flushDelay, this, [this, uuid] {
        if (outputFlushScheduled_.contains(uuid)) flushOutput(uuid);
    });
}

void BackupViewModel::flushOutput(const std::string& uuid) {
    outputFlushScheduled_.erase(uuid);
    if (auto pending = pendingLogLines_.find(uuid);
        pending != pendingLogLines_.end() && !pending->second.empty()) {
        auto& log = cardLogs_[uuid];
        log.insert(log.end(), std::make_move_iterator(pending->second.begin()),
                   std::make_move_iterator(pending->second.end()));
        pending->second.clear();
        emit cardLogsChanged();
    }
    if (auto progress = pendingProgress_.find(uuid); progress != pendingProgress_.end()) {
        assign(cardProgress_, uuid, progress->second, &BackupViewModel::cardProgressChanged);
        pendingProgress_.erase(progress);
    }
    if (auto tracker = progressTrackers_.find(uuid); tracker != progressTrackers_.end()) {
        if (auto remaining = tracker->second.filesRemaining())
            assign(cardFilesRemaining_, uuid, *remaining, &BackupViewModel::cardFilesRemainingChanged);
    }
}

void BackupViewModel::applyEvent(const std::string& uuid, const TransferEvent& event) {
    auto tracker = progressTrackers_.find(uuid);
    if (tracker == progressTrackers_.end()) return;
    tracker->second.apply(event);
    if (event.kind == TransferEvent::Kind::transferFinished) {
        drainInbox(uuid);
        flushOutput(uuid);
        assign(cardProgress_, uuid, tracker->second.displayedProgress.value_or(1.0),
               &BackupViewModel::cardProgressChanged);
        return;
    }
    if (auto remaining = tracker->second.filesRemaining())
        assign(cardFilesRemaining_, uuid, *remaining, &BackupViewModel::cardFilesRemainingChanged);
}

void BackupViewModel::appendLog(const std::string& uuid, const std::string& line) {
    cardLogs_[uuid].push_back(line);
    emit cardLogsChanged();
}

// ---- completion -----------------------------------------------------------------------------

void BackupViewModel::completeRun(const SDCard& card, const RunResult& result, const fs::path& baseURL) {
    drainInbox(card.diskUtilUUID);
    flushOutput(card.diskUtilUUID);
    if (result.outcome)
        completeSuccess(card, *result.outcome, baseURL);
    else
        completeFailure(card, result.error);
}

void BackupViewModel::completeSuccess(const SDCard& card, const BackupOutcome& outcome,
                                      const fs::path& destination) {
    const std::string& uuid = card.diskUtilUUID;
    lastOutcomes_[uuid] = outcome;
    loadRepositoryFacts(card, destination);  // where this version went, a one-shot folder too
    const auto start = cardStartTime_.find(uuid);
    const std::string message = outcome.warning.value_or(
        "Backup successful (" +
        elapsedText(start == cardStartTime_.end() ? std::nullopt : std::optional(start->second)) + ").");
    setState(uuid, CardState::success(message));
    if (dependencies_.feedback && settings_.playSoundOnCompletion())
        dependencies_.feedback->playSound(settings_.completionSoundName().toStdString());
    if (dependencies_.feedback && settings_.notifyOnCompletion())
        dependencies_.feedback->notify("Backup Complete", card.volumeName + ": " + message);
}

void BackupViewModel::completeFailure(const SDCard& card, const std::exception_ptr& error) {
    const std::string& uuid = card.diskUtilUUID;
    lastOutcomes_.erase(uuid);
    if (isCancellation(error)) {
        appendLog(uuid, "Backup cancelled. No incomplete version was published.");
        setState(uuid, CardState::failed("Backup was cancelled."));
        return;
    }
    const std::string description = failureDescription(error);
    setState(uuid, CardState::failed(description));
    appendLog(uuid, description);
    if (dependencies_.feedback && settings_.playSoundOnCompletion())
        dependencies_.feedback->playSound(settings_.completionSoundName().toStdString());
    if (dependencies_.feedback && settings_.notifyOnFailure())
        dependencies_.feedback->notify("Backup Failed", card.volumeName + ": " + description);
}

// ---- eject ----------------------------------------------------------------------------------

void BackupViewModel::stopCardWorkForEject(const std::string& uuid) {
    if (auto countdown = autoBackupTasks_.find(uuid); countdown != autoBackupTasks_.end()) {
        tasks_.cancel(countdown->second);
        autoBackupTasks_.erase(countdown);
    }
    if (auto scan = contentScanTasks_.find(uuid); scan != contentScanTasks_.end()) {
        tasks_.cancel(scan->second);
        setContentScanning(uuid, std::nullopt);
    }
    stopOptionsWork(uuid);
    cardWatchers_.erase(uuid);
    contentScanFinishedAt_.erase(uuid);
    erase(cardContentSummary_, uuid, &BackupViewModel::cardContentSummaryChanged);
    if (cardState(uuid).kind == CardState::Kind::autoBackupCountdown) setState(uuid, CardState::idle());
}

// On a background thread: three tries, after 0, 500 and 1,000 ms, each on the card as it is now.
std::optional<std::string> BackupViewModel::ejectWithRetries(const SDCard& card,
                                                             std::stop_token token) const {
    BackupRequest identity;
    identity.card = card;
    const auto validate = volumeValidator();
    std::string lastError;
    for (const auto wait : dependencies_.ejectWaits) {
        if (!sleepFor(wait, token)) throw Cancelled();
        try {
            validate(identity, token);
            dependencies_.ejectVolume(card.mountPath, token);
            return std::nullopt;
        } catch (const Cancelled&) {
            throw;
        } catch (const std::exception& error) {
            lastError = error.what();
        }
    }
    return "Failed to eject: " + lastError;
}

void BackupViewModel::ejectCard(const SDCard& card) {
    const std::string uuid = card.diskUtilUUID;
    try {
        leases_.insert_or_assign(uuid,
                                 OperationLock::shared().acquire(VolumeUUID{uuid}, OperationKind::browse));
    } catch (const OperationLockError&) {
        emit ejectFinished(QString::fromStdString(uuid), "Cannot eject while another operation is running.");
        return;
    }
    stopCardWorkForEject(uuid);
    tasks_.start([this, card, uuid, poster = poster_](std::stop_token token) {
        std::string failure;
        try {
            failure = ejectWithRetries(card, token).value_or("");
        } catch (const Cancelled&) {
            failure = "Eject was cancelled.";
        }
        poster->post([this, uuid, failure] {
            releaseLease(uuid);
            emit ejectFinished(QString::fromStdString(uuid), QString::fromStdString(failure));
        });
    });
}

}  // namespace tapekeep
