#include "cards/CardChangeWatcher.h"

#include <algorithm>
#include <array>
#include <exception>
#include <optional>

#include "core/Log.h"

namespace tapekeep {
namespace {

constexpr std::array<std::string_view, 3> ignoredNames{".Spotlight-V100", ".fseventsd", ".Trashes"};

// The rate rule. Held by the tree watcher's handler; touched only on the watcher's thread, where every
// report and the trailing task run one at a time. Once the watcher stops, neither runs again.
class Sink : public std::enable_shared_from_this<Sink> {
public:
    Sink(std::string cardID, std::string rootPath, CardChangeWatcher::ChangeHandler onChange,
         std::chrono::milliseconds minimumInterval, TreeWatcher::Scheduler schedule)
        : cardID_(std::move(cardID)),
          rootPath_(std::move(rootPath)),
          onChange_(std::move(onChange)),
          minimumInterval_(minimumInterval),
          schedule_(std::move(schedule)) {}

    void receive(const TreeWatcher::Batch& changedPaths) {
        const bool changed = std::ranges::any_of(changedPaths, [this](const std::filesystem::path& path) {
            return CardChangeWatcher::countsAsChange(path.native(), rootPath_);
        });
        if (!changed) return;
        const auto now = TreeWatcher::Clock::now();
        if (!lastReport_ || now - *lastReport_ >= minimumInterval_) return report(now);
        if (trailingScheduled_) return;  // that report will cover this change too
        trailingScheduled_ = true;
        schedule_(*lastReport_ + minimumInterval_, [weakSink = weak_from_this()] {
            if (const auto sink = weakSink.lock()) sink->reportTrailing();
        });
    }

private:
    void reportTrailing() {
        trailingScheduled_ = false;
        report(TreeWatcher::Clock::now());
    }

    void report(TreeWatcher::Clock::time_point now) {
        lastReport_ = now;
        onChange_(cardID_);
    }

    const std::string cardID_;
    const std::string rootPath_;
    const CardChangeWatcher::ChangeHandler onChange_;
    const std::chrono::milliseconds minimumInterval_;
    const TreeWatcher::Scheduler schedule_;
    std::optional<TreeWatcher::Clock::time_point> lastReport_;
    bool trailingScheduled_ = false;
};

}  // namespace

std::string CardChangeWatcher::resolvedRoot(const std::filesystem::path& root) {
    std::error_code error;
    std::filesystem::path resolved = std::filesystem::canonical(root, error);
    if (error) resolved = std::filesystem::absolute(root, error).lexically_normal();
    std::string text = resolved.string();
    while (text.size() > 1 && text.ends_with('/')) text.pop_back();
    return text;
}

CardChangeWatcher::CardChangeWatcher(std::string cardID, const std::filesystem::path& root,
                                     ChangeHandler onChange, Timing timing)
    : cardID_(std::move(cardID)), rootPath_(resolvedRoot(root)) {
    try {
        auto stream =
            std::make_unique<TreeWatcher>(rootPath_, TreeWatcher::Options{timing.latency, queueLabel});
        auto sink = std::make_shared<Sink>(cardID_, rootPath_, std::move(onChange), timing.minimumInterval,
                                           stream->scheduler());
        stream->start([sink](const TreeWatcher::Batch& changedPaths) { sink->receive(changedPaths); });
        stream_ = std::move(stream);
    } catch (const std::exception& error) {
        Log("CardChangeWatcher").error("Not watching " + rootPath_ + " for changes: " + error.what());
    }
}

CardChangeWatcher::~CardChangeWatcher() {
    stop();
}

void CardChangeWatcher::stop() {
    if (stream_) stream_->stop();
}

bool CardChangeWatcher::countsAsChange(std::string_view path, std::string_view rootPath) {
    if (path.size() <= rootPath.size() || !path.starts_with(rootPath) || path[rootPath.size()] != '/')
        return true;
    std::string_view below = path.substr(rootPath.size());
    while (below.starts_with('/')) below.remove_prefix(1);
    if (below.empty()) return true;
    const std::string_view firstName = below.substr(0, below.find('/'));
    return std::ranges::find(ignoredNames, firstName) == ignoredNames.end();
}

}  // namespace tapekeep
