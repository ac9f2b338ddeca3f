#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "backup/BackupOperation.h"
#include "core/SDCard.h"
#include "core/Timestamp.h"
#include "workflows/BackgroundTasks.h"
#include "workflows/BackgroundWork.h"
#include "workflows/CardTasks.h"
#include "workflows/CompletionFeedback.h"
#include "workflows/HeldLeases.h"
#include "workflows/PerCard.h"

namespace tapekeep {

class AppSettings;
class CardEjector;
class CardStateTable;
class RunOutputCoalescer;

// The backup runs, one per card at most: each starts under the card's backup lease, runs
// BackupOperation on a thread of its own with its output going to the coalescer, ends in the words
// the user sees (state, log, sound, notification) and, when the settings ask for it after a
// success, ejects the card under the same lease before releasing it.
//
// Lives on the controller's thread and is used only there.
class BackupRunner : public QObject {
    Q_OBJECT

public:
    struct Dependencies {
        BackupOperation::RsyncRunner runRsync;
        BackupOperation::Environment environment;
        BackupOperation::VolumeValidator validate;  // the identity check around every external step
        CompletionFeedback* feedback = nullptr;     // not owned; none gives no notification and no sound
    };

    // What a run is to do, decided before it starts; refusal says why it must not run.
    struct Plan {
        BackupRequest request;
        std::optional<std::string> refusal;
    };

    BackupRunner(AppSettings& settings, CardStateTable& states, RunOutputCoalescer& output,
                 const CardEjector& ejector, Dependencies dependencies, QObject* parent = nullptr);

    // Takes the card's lease and starts the planned run; false, with the card failed, when the card is
    // missing its UUID, another operation holds it, or the plan is refused.
    bool start(const SDCard& card, const Plan& plan);
    // A cancelled run publishes nothing and is followed by no eject.
    void cancel(const std::string& uuid);
    void cancelAll();

    [[nodiscard]] bool isRunning(const std::string& uuid) const { return runningTasks_.contains(uuid); }
    // What the card's last successful run published.
    [[nodiscard]] std::optional<BackupOutcome> lastOutcome(const std::string& uuid) const;
    [[nodiscard]] std::optional<Clock::time_point> startTime(const std::string& uuid) const {
        return cardStartTime_.value(uuid);
    }
    [[nodiscard]] QVariantMap startTimeVariant() const;

signals:
    void startTimeChanged();
    // A version was published under destination (the run's base folder).
    void published(const SDCard& card, const std::filesystem::path& destination);
    // The eject after the run is about to start: what reads the card must stop.
    void ejectStarting(const std::string& uuid);
    // The run is over, its lease released and no eject follows: the card may be compared again.
    void cardReleased(const std::string& uuid);
    // The run, with its eject if any, is over.
    void backupFinished(const QString& uuid);

private:
    struct RunResult {
        std::optional<BackupOutcome> outcome;
        std::exception_ptr error;
    };

    void startRunTask(const SDCard& card, const BackupRequest& request);
    void runEnded(const SDCard& card, BackgroundTasks::Id id);
    void startAfterRunEject(const SDCard& card);
    void completeRun(const SDCard& card, const RunResult& result, const std::filesystem::path& baseURL);
    void completeSuccess(const SDCard& card, const BackupOutcome& outcome,
                         const std::filesystem::path& destination);
    void completeFailure(const SDCard& card, const std::exception_ptr& error);
    void playCompletionSound();

    AppSettings& settings_;
    CardStateTable& states_;
    RunOutputCoalescer& output_;
    const CardEjector& ejector_;
    const Dependencies dependencies_;

    PerCard<Clock::time_point> cardStartTime_{[this] { emit startTimeChanged(); }};
    std::map<std::string, BackupOutcome> lastOutcomes_;
    std::set<std::string> cancelledRuns_;  // asked to stop: no eject after them
    HeldLeases leases_;
    BackgroundWork background_{this};              // after what its tasks use
    CardTasks runningTasks_{background_.tasks()};  // the run, then its eject
};

}  // namespace tapekeep
