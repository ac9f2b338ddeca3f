#pragma once

#include <QObject>
#include <QVariantMap>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "backup/BackupProgressTracker.h"
#include "core/Timestamp.h"
#include "workflows/BackgroundWork.h"
#include "workflows/PerCard.h"

namespace tapekeep {

// What each card's run prints, as the screen shows it: the log, the progress and the files still
// to copy. rsync can print thousands of lines a second and every change of a property redraws the
// card, so output waits in pending buffers and reaches the properties in one flush per card,
// flushDelay after the first unflushed line: each property changes at most once per flushDelay
// from output, however fast the lines come. Progress lines feed the card's tracker, never the log.
//
// Lives on the controller's thread and is used only there, except receiveLine.
class RunOutputCoalescer : public QObject {
    Q_OBJECT

public:
    explicit RunOutputCoalescer(std::chrono::milliseconds flushDelay, QObject* parent = nullptr);

    // A run starts: an empty log, no progress, no files remaining, and a tracker that knows nothing.
    void beginRun(const std::string& uuid);
    // Gives a card that has no log an empty one.
    void ensureLog(const std::string& uuid);

    // Any thread: the lines of a burst wait in an inbox that one queued call drains.
    void receiveLine(const std::string& uuid, const std::string& line);
    void appendOutput(const std::string& uuid, const std::string& line);
    void applyEvent(const std::string& uuid, const TransferEvent& event);
    // Everything received so far reaches the properties now: what a run printed stands before its
    // result.
    void flush(const std::string& uuid);
    // A line of the controller's own, at once.
    void appendLog(const std::string& uuid, const std::string& line);

    [[nodiscard]] std::vector<std::string> log(const std::string& uuid) const {
        return logs_.value(uuid).value_or(std::vector<std::string>{});
    }
    [[nodiscard]] std::optional<double> progress(const std::string& uuid) const {
        return progress_.value(uuid);
    }
    [[nodiscard]] std::optional<std::int64_t> filesRemaining(const std::string& uuid) const {
        return filesRemaining_.value(uuid);
    }

    [[nodiscard]] QVariantMap logsVariant() const;
    [[nodiscard]] QVariantMap progressVariant() const;
    [[nodiscard]] QVariantMap filesRemainingVariant() const;

signals:
    void logsChanged();
    void progressChanged();
    void filesRemainingChanged();

private:
    void drainInbox(const std::string& uuid);
    void scheduleFlush(const std::string& uuid);
    void flushOutput(const std::string& uuid);
    void showFilesRemaining(const std::string& uuid, const BackupProgressTracker& tracker);

    const std::chrono::milliseconds flushDelay_;
    BackgroundWork background_{this};  // brings the inbox's drains here

    PerCard<std::vector<std::string>> logs_{[this] { emit logsChanged(); }};
    PerCard<double> progress_{[this] { emit progressChanged(); }};
    PerCard<std::int64_t> filesRemaining_{[this] { emit filesRemainingChanged(); }};
    std::map<std::string, BackupProgressTracker> progressTrackers_;
    std::map<std::string, std::vector<std::string>> pendingLogLines_;
    std::map<std::string, double> pendingProgress_;
    std::set<std::string> outputFlushScheduled_;
    std::map<std::string, Clock::time_point> cardLastOutputAt_;

    std::mutex inboxMutex_;
    std::map<std::string, std::vector<std::string>> inbox_;  // guarded by inboxMutex_
};

}  // namespace tapekeep
