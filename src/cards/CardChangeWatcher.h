#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/TreeWatcher.h"

namespace tapekeep {

// Tells its owner that something changed on a mounted card, at a bounded rate: the first change is
// reported at once, then at most one report per minimum interval while changes go on, and the last
// change of a burst is always reported. It carries no paths. Changes under the card's housekeeping
// folders (".Spotlight-V100", ".fseventsd", ".Trashes" at the root) never count.
//
// Watching starts on construction. When the card can't be watched, the watcher still exists, stays
// silent and says so in the log.
//
// Threads: onChange is called on the watcher's own thread, labelled queueLabel; the owner hops to its
// own thread from there. Stop and destroy from one thread at a time, or from inside onChange.
class CardChangeWatcher {
public:
    using ChangeHandler = std::function<void(const std::string& cardID)>;

    struct Timing {
        std::chrono::milliseconds latency{2000};          // changes are gathered this long before they count
        std::chrono::milliseconds minimumInterval{3000};  // between two reports
    };

    static constexpr const char* queueLabel = "org.tapekeep.backup.card-change-watcher";

    CardChangeWatcher(std::string cardID, const std::filesystem::path& root, ChangeHandler onChange,
                      Timing timing);
    CardChangeWatcher(std::string cardID, const std::filesystem::path& root, ChangeHandler onChange)
        : CardChangeWatcher(std::move(cardID), root, std::move(onChange), Timing()) {}
    ~CardChangeWatcher();
    CardChangeWatcher(const CardChangeWatcher&) = delete;
    CardChangeWatcher& operator=(const CardChangeWatcher&) = delete;

    // When stop() returns, onChange is not running and is never called again; called from inside
    // onChange, nothing is called after that call returns.
    void stop();

    [[nodiscard]] const std::string& cardID() const { return cardID_; }
    // The root with symbolic links resolved, or only normalised where that fails; no trailing "/".
    [[nodiscard]] const std::string& rootPath() const { return rootPath_; }
    // What rootPath() is for a watcher of root: a watcher of the same card there would watch the same.
    static std::string resolvedRoot(const std::filesystem::path& root);
    [[nodiscard]] bool isWatching() const { return stream_ != nullptr; }

    // False only for a path inside the root whose first component below it is a housekeeping folder.
    static bool countsAsChange(std::string_view path, std::string_view rootPath);

private:
    const std::string cardID_;
    const std::string rootPath_;
    std::unique_ptr<TreeWatcher> stream_;  // null when the card could not be watched
};

}  // namespace tapekeep
