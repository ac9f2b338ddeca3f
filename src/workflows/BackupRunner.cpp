#include "workflows/BackupRunner.h"

#include "app/AppSettings.h"
#include "cards/OperationLock.h"
#include "cards/OperationLockError.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "core/Formatting.h"
#include "workflows/CardEjector.h"
#include "workflows/CardStateTable.h"
#include "workflows/QmlValues.h"
#include "workflows/RunOutputCoalescer.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

std::string elapsedText(std::optional<Clock::time_point> start) {
    if (!start) return "0:00";
    return formatElapsed(std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - *start).count());
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

BackupRunner::BackupRunner(AppSettings& settings, CardStateTable& states, RunOutputCoalescer& output,
                           const CardEjector& ejector, Dependencies dependencies, QObject* parent)
    : QObject(parent),
      settings_(settings),
      states_(states),
      output_(output),
      ejector_(ejector),
      dependencies_(std::move(dependencies)) {}

bool BackupRunner::start(const SDCard& card, const Plan& plan) {
    const std::string& uuid = card.diskUtilUUID;
    if (uuid.empty()) {
        states_.set(uuid, CardState::failed("Missing volume UUID — reconnect card and retry."));
        return false;
    }
    std::optional<Lease> lease;
    try {
        lease = OperationLock::shared().acquire(VolumeUUID{uuid}, OperationKind::backup);
    } catch (const OperationLockError& conflict) {
        states_.set(uuid, CardState::failed(conflictMessage(conflict)));
        return false;
    } catch (const std::exception& error) {
        states_.set(uuid,
                    CardState::failed(std::string("Failed to acquire operation lock: ") + error.what()));
        return false;
    }
    if (plan.refusal) {
        OperationLock::shared().release(*lease);
        states_.set(uuid, CardState::failed(*plan.refusal));
        return false;
    }
    leases_.hold(uuid, *lease);
    cancelledRuns_.erase(uuid);
    states_.set(uuid, CardState::running());
    output_.beginRun(uuid);
    cardStartTime_.assign(uuid, Clock::now());
    startRunTask(card, plan.request);
    return true;
}

void BackupRunner::startRunTask(const SDCard& card, const BackupRequest& request) {
    auto work = [this, card, request, poster = background_.poster(), validate = dependencies_.validate,
                 runRsync = dependencies_.runRsync,
                 environment = dependencies_.environment](std::stop_token token) {
        RunResult result;
        try {
            result.outcome = BackupOperation::run(
                request,
                [this, uuid = card.diskUtilUUID](const std::string& line) {
                    output_.receiveLine(uuid, line);
                },
                [this, poster, uuid = card.diskUtilUUID](const TransferEvent& event) {
                    poster->post([this, uuid, event] { output_.applyEvent(uuid, event); });
                },
                runRsync, validate, token, environment);
        } catch (...) {
            result.error = std::current_exception();
        }
        poster->post([this, card, result, base = request.baseURL] { completeRun(card, result, base); });
    };
    runningTasks_.start(card.diskUtilUUID, work,
                        [this, card](BackgroundTasks::Id id) { runEnded(card, id); });
}

// The run has returned and its completion is applied. The setting is read now, not at the start,
// so that switching auto-eject on during a long run still ejects the card after it.
void BackupRunner::runEnded(const SDCard& card, BackgroundTasks::Id id) {
    const std::string& uuid = card.diskUtilUUID;
    runningTasks_.forget(uuid, id);
    const bool cancelled = cancelledRuns_.erase(uuid) > 0;
    if (!cancelled && states_.state(uuid).kind == CardState::Kind::success &&
        settings_.autoEjectOnCompletion())
        return startAfterRunEject(card);
    leases_.release(uuid);
    emit cardReleased(uuid);
    emit backupFinished(QString::fromStdString(uuid));
}

// The eject after a successful run, under the run's lease, as part of the run: cancel() stops it.
void BackupRunner::startAfterRunEject(const SDCard& card) {
    const std::string uuid = card.diskUtilUUID;
    auto work = [this, card, poster = background_.poster(),
                 validate = dependencies_.validate](std::stop_token token) {
        BackupRequest identity;
        identity.card = card;
        try {
            validate(identity, token);
        } catch (const Cancelled&) {
            return;  // the user stopped the run; nothing was skipped that they wanted
        } catch (const std::exception& error) {
            poster->post([this, uuid = card.diskUtilUUID, message = std::string(error.what())] {
                output_.appendLog(uuid, "Backup saved; automatic eject skipped: " + message);
            });
            return;
        }
        poster->post([this, uuid = card.diskUtilUUID] { emit ejectStarting(uuid); });
        try {
            if (auto failure = ejector_.ejectWithRetries(card, token))
                poster->post([this, uuid = card.diskUtilUUID, failure = *failure] {
                    output_.appendLog(uuid, failure);
                    states_.set(uuid, CardState::success("Backup saved. " + failure));
                });
        } catch (const Cancelled&) {
        }
    };
    runningTasks_.start(uuid, work, [this, uuid](BackgroundTasks::Id id) {
        runningTasks_.forget(uuid, id);
        cancelledRuns_.erase(uuid);
        leases_.release(uuid);
        emit backupFinished(QString::fromStdString(uuid));
    });
}

void BackupRunner::cancel(const std::string& uuid) {
    if (runningTasks_.requestStop(uuid)) cancelledRuns_.insert(uuid);
}

void BackupRunner::cancelAll() {
    for (const auto& [uuid, task] : runningTasks_.all()) cancelledRuns_.insert(uuid);
    runningTasks_.requestStopAll();
}

// ---- completion -----------------------------------------------------------------------------

void BackupRunner::completeRun(const SDCard& card, const RunResult& result, const fs::path& baseURL) {
    output_.flush(card.diskUtilUUID);
    if (result.outcome)
        completeSuccess(card, *result.outcome, baseURL);
    else
        completeFailure(card, result.error);
}

void BackupRunner::completeSuccess(const SDCard& card, const BackupOutcome& outcome,
                                   const fs::path& destination) {
    const std::string& uuid = card.diskUtilUUID;
    lastOutcomes_[uuid] = outcome;
    emit published(card, destination);  // where this version went, a one-shot folder too
    const std::string message =
        outcome.warning.value_or("Backup successful (" + elapsedText(cardStartTime_.value(uuid)) + ").");
    states_.set(uuid, CardState::success(message));
    playCompletionSound();
    if (dependencies_.feedback && settings_.notifyOnCompletion())
        dependencies_.feedback->notify("Backup Complete", card.volumeName + ": " + message);
}

void BackupRunner::completeFailure(const SDCard& card, const std::exception_ptr& error) {
    const std::string& uuid = card.diskUtilUUID;
    lastOutcomes_.erase(uuid);
    if (isCancellation(error)) {
        output_.appendLog(uuid, "Backup cancelled. No incomplete version was published.");
        states_.set(uuid, CardState::failed("Backup was cancelled."));
        return;
    }
    const std::string description = failureDescription(error);
    states_.set(uuid, CardState::failed(description));
    output_.appendLog(uuid, description);
    playCompletionSound();
    if (dependencies_.feedback && settings_.notifyOnFailure())
        dependencies_.feedback->notify("Backup Failed", card.volumeName + ": " + description);
}

void BackupRunner::playCompletionSound() {
    if (dependencies_.feedback && settings_.playSoundOnCompletion())
        dependencies_.feedback->playSound(settings_.completionSoundName().toStdString());
}

std::optional<BackupOutcome> BackupRunner::lastOutcome(const std::string& uuid) const {
    auto found = lastOutcomes_.find(uuid);
    return found == lastOutcomes_.end() ? std::nullopt : std::optional(found->second);
}

QVariantMap BackupRunner::startTimeVariant() const {
    return QmlValues::mapOf(cardStartTime_.all(),
                            [](Clock::time_point time) { return QmlValues::epochMilliseconds(time); });
}

}  // namespace tapekeep
