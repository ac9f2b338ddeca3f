#include "workflows/RunOutputCoalescer.h"

#include <QStringList>
#include <QTimer>

#include "backup/ProgressLineParser.h"
#include "workflows/QmlValues.h"

namespace tapekeep {

RunOutputCoalescer::RunOutputCoalescer(std::chrono::milliseconds flushDelay, QObject* parent)
    : QObject(parent), flushDelay_(flushDelay) {}

void RunOutputCoalescer::beginRun(const std::string& uuid) {
    logs_.assign(uuid, {});
    progress_.erase(uuid);
    filesRemaining_.erase(uuid);
    progressTrackers_[uuid] = BackupProgressTracker{};
}

void RunOutputCoalescer::ensureLog(const std::string& uuid) {
    if (!logs_.contains(uuid)) logs_.assign(uuid, {});
}

void RunOutputCoalescer::receiveLine(const std::string& uuid, const std::string& line) {
    bool first = false;
    {
        std::lock_guard lock(inboxMutex_);
        auto& lines = inbox_[uuid];
        first = lines.empty();
        lines.push_back(line);
    }
    if (first) background_.poster()->post([this, uuid] { drainInbox(uuid); });
}

void RunOutputCoalescer::drainInbox(const std::string& uuid) {
    std::vector<std::string> lines;
    {
        std::lock_guard lock(inboxMutex_);
        lines.swap(inbox_[uuid]);
    }
    for (const auto& line : lines) appendOutput(uuid, line);
}

void RunOutputCoalescer::appendOutput(const std::string& uuid, const std::string& line) {
    cardLastOutputAt_[uuid] = Clock::now();
    if (auto progress = parseProgressLine(line)) {
        if (auto tracker = progressTrackers_.find(uuid); tracker != progressTrackers_.end())
            pendingProgress_[uuid] = tracker->second.feed(*progress);
    } else if (!isProgressNoise(line)) {
        pendingLogLines_[uuid].push_back(line);
    }
    scheduleFlush(uuid);
}

// At most one flush waits per card.
void RunOutputCoalescer::scheduleFlush(const std::string& uuid) {
    if (!outputFlushScheduled_.insert(uuid).second) return;
    QTimer::singleShot(flushDelay_, this, [this, uuid] {
        if (outputFlushScheduled_.contains(uuid)) flushOutput(uuid);
    });
}

void RunOutputCoalescer::flush(const std::string& uuid) {
    drainInbox(uuid);
    flushOutput(uuid);
}

void RunOutputCoalescer::flushOutput(const std::string& uuid) {
    outputFlushScheduled_.erase(uuid);
    if (auto pending = pendingLogLines_.find(uuid);
        pending != pendingLogLines_.end() && !pending->second.empty()) {
        logs_.edit(uuid, [&](std::vector<std::string>& log) {
            log.insert(log.end(), std::make_move_iterator(pending->second.begin()),
                       std::make_move_iterator(pending->second.end()));
        });
        pending->second.clear();
    }
    if (auto progress = pendingProgress_.find(uuid); progress != pendingProgress_.end()) {
        progress_.assign(uuid, progress->second);
        pendingProgress_.erase(progress);
    }
    if (auto tracker = progressTrackers_.find(uuid); tracker != progressTrackers_.end())
        showFilesRemaining(uuid, tracker->second);
}

void RunOutputCoalescer::applyEvent(const std::string& uuid, const TransferEvent& event) {
    auto tracker = progressTrackers_.find(uuid);
    if (tracker == progressTrackers_.end()) return;
    tracker->second.apply(event);
    if (event.kind == TransferEvent::Kind::transferFinished) {
        flush(uuid);
        progress_.assign(uuid, tracker->second.displayedProgress.value_or(1.0));
        return;
    }
    showFilesRemaining(uuid, tracker->second);
}

void RunOutputCoalescer::showFilesRemaining(const std::string& uuid, const BackupProgressTracker& tracker) {
    if (auto remaining = tracker.filesRemaining()) filesRemaining_.assign(uuid, *remaining);
}

void RunOutputCoalescer::appendLog(const std::string& uuid, const std::string& line) {
    logs_.edit(uuid, [&](std::vector<std::string>& log) { log.push_back(line); });
}

QVariantMap RunOutputCoalescer::logsVariant() const {
    return QmlValues::mapOf(logs_.all(),
                            [](const std::vector<std::string>& lines) { return QmlValues::textList(lines); });
}

QVariantMap RunOutputCoalescer::progressVariant() const {
    return QmlValues::mapOf(progress_.all(), [](double value) { return value; });
}

QVariantMap RunOutputCoalescer::filesRemainingVariant() const {
    return QmlValues::mapOf(filesRemaining_.all(), [](std::int64_t value) { return qint64(value); });
}

}  // namespace tapekeep
