#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace tapekeep {

// Watches a folder and everything below it with inotify and hands the changed paths to a handler in
// batches, on a thread of its own. A batch is gathered for `latency` after its first event, so
// deliveries come at most once per latency. Folders that appear later are watched as they appear
// (with whatever they already hold); symbolic links are never followed. When the kernel's event queue
// overflows, the root itself is reported and the tree is walked again.
//
// The watcher's thread is also a serial queue: tasks handed to the scheduler run on it one at a time,
// between deliveries.
//
// Threads: construct, start, stop and destroy from one thread at a time, or from inside the handler or
// a task (the thread then ends once that call returns). A Scheduler may be used from any thread.
class TreeWatcher {
public:
    using Clock = std::chrono::steady_clock;
    // Absolute paths (the root joined with the path below it), each once, in the order first seen.
    using Batch = std::vector<std::filesystem::path>;
    using BatchHandler = std::function<void(const Batch& changedPaths)>;
    // Runs the task on the watcher's thread no earlier than `when`. Once the watcher has stopped or is
    // gone, the task never runs.
    using Scheduler = std::function<void(Clock::time_point when, std::function<void()> task)>;

    struct Options {
        std::chrono::milliseconds latency{2000};
        std::string threadName = "tree-watcher";  // the system keeps the first 15 characters
    };

    // Sets up inotify and watches the root, which must be a folder and not a symbolic link to one.
    // Throws PosixError when either fails. Nothing is delivered before start().
    TreeWatcher(std::filesystem::path root, Options options);
    explicit TreeWatcher(std::filesystem::path root) : TreeWatcher(std::move(root), Options()) {}
    ~TreeWatcher();
    TreeWatcher(const TreeWatcher&) = delete;
    TreeWatcher& operator=(const TreeWatcher&) = delete;

    // Starts the thread, which first watches the folders below the root. Call once.
    void start(BatchHandler onBatch);

    // When stop() returns, neither the handler nor a task runs again, and one that was running has
    // returned. Called from inside the handler or a task, nothing runs after that call.
    void stop();

    [[nodiscard]] Scheduler scheduler() const;

private:
    class Loop;

    std::shared_ptr<Loop> loop_;  // shared with the thread, which may outlive this object
    std::string threadName_;
    std::stop_source stopSource_;
    std::thread::id workerId_;  // set by start()
    std::mutex threadMutex_;
    std::jthread thread_;  // guarded by threadMutex_ once started
};

}  // namespace tapekeep
