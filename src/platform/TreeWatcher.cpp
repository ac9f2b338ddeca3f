#include "platform/TreeWatcher.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <exception>
#include <map>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "core/FileDescriptor.h"
#include "core/Log.h"
#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"
#include "platform/ThreadName.h"

namespace tapekeep {
namespace {

constexpr std::uint32_t folderEvents = IN_CREATE | IN_DELETE | IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE |
                                       IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr std::uint32_t watchFlags = folderEvents | IN_ONLYDIR | IN_DONT_FOLLOW;

const Log& watcherLog() {
    static const Log instance("TreeWatcher");
    return instance;
}

int pollTimeout(std::optional<TreeWatcher::Clock::time_point> deadline) {
    if (!deadline) return -1;
    const auto remaining =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline - TreeWatcher::Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(remaining, 0, INT_MAX));
}

template <typename Function, typename... Arguments>
void callLoggingFailures(const Function& function, const Arguments&... arguments) {
    try {
        function(arguments...);
    } catch (const std::exception& error) {
        watcherLog().error(std::string("A watcher callback failed: ") + error.what());
    } catch (...) {
        watcherLog().error("A watcher callback failed.");
    }
}

}  // namespace

// The inotify instance, its map of watched folders, the batch being gathered and the scheduled tasks.
class TreeWatcher::Loop {
public:
    Loop(std::filesystem::path root, std::chrono::milliseconds latency);

    void run(const std::stop_token& token, const BatchHandler& onBatch, const std::string& threadName);
    void schedule(Clock::time_point when, std::function<void()> task);

private:
    void wake();
    void waitForActivity();
    void readEvents();
    void handle(const inotify_event& event);
    void note(std::filesystem::path path);
    enum class TreeAge { existing, appeared };
    void watchTree(const std::filesystem::path& top, TreeAge age);
    bool addWatch(const std::filesystem::path& folder);
    void deliverDueBatch(const std::stop_token& token, const BatchHandler& onBatch);
    void runDueTasks(const std::stop_token& token);
    std::optional<Clock::time_point> nextDeadline();

    const std::filesystem::path root_;
    const std::chrono::milliseconds latency_;
    const FileDescriptor inotify_;
    const FileDescriptor wakeCounter_;

    // Touched only on the watcher's thread (and by the constructor, before it starts).
    std::unordered_map<int, std::filesystem::path> folders_;  // by watch descriptor
    Batch pending_;
    std::unordered_set<std::string> pendingPaths_;
    Clock::time_point batchDeadline_;
    bool reportedWatchLimit_ = false;
    alignas(inotify_event) char eventBuffer_[64 * 1024];

    std::mutex tasksMutex_;
    std::multimap<Clock::time_point, std::function<void()>> tasks_;  // guarded by tasksMutex_
};

TreeWatcher::Loop::Loop(std::filesystem::path root, std::chrono::milliseconds latency)
    : root_(std::move(root)),
      latency_(latency),
      inotify_(FileDescriptor::checked(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC), "inotify_init1")),
      wakeCounter_(FileDescriptor::checked(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), "eventfd")) {
    const int descriptor =
        retryingInterrupts([&] { return ::inotify_add_watch(inotify_.get(), root_.c_str(), watchFlags); });
    if (descriptor < 0) throw PosixError::fromErrno(errno, root_.string());
    folders_[descriptor] = root_;
}

void TreeWatcher::Loop::run(const std::stop_token& token, const BatchHandler& onBatch,
                            const std::string& threadName) {
    setCurrentThreadName(threadName);
    const std::stop_callback wakeOnStop(token, [this] { wake(); });
    try {
        watchTree(root_, TreeAge::existing);
        while (!token.stop_requested()) {
            waitForActivity();
            readEvents();
            deliverDueBatch(token, onBatch);
            runDueTasks(token);
        }
    } catch (const std::exception& error) {
        watcherLog().error("Stopped watching " + root_.string() + ": " + error.what());
    }
}

void TreeWatcher::Loop::schedule(Clock::time_point when, std::function<void()> task) {
    {
        const std::lock_guard lock(tasksMutex_);
        tasks_.emplace(when, std::move(task));
    }
    wake();
}

void TreeWatcher::Loop::wake() {
    const std::uint64_t one = 1;
    retryingInterrupts([&] { return ::write(wakeCounter_.get(), &one, sizeof one); });
}

void TreeWatcher::Loop::waitForActivity() {
    pollfd descriptors[] = {{inotify_.get(), POLLIN, 0}, {wakeCounter_.get(), POLLIN, 0}};
    const int ready = ::poll(descriptors, 2, pollTimeout(nextDeadline()));
    if (ready < 0 && errno != EINTR) throw PosixError::fromErrno(errno, "poll");
    if (ready > 0 && (descriptors[1].revents & POLLIN)) {
        std::uint64_t count = 0;
        retryingInterrupts([&] { return ::read(wakeCounter_.get(), &count, sizeof count); });
    }
}

void TreeWatcher::Loop::readEvents() {
    for (;;) {
        const ssize_t length =
            retryingInterrupts([&] { return ::read(inotify_.get(), eventBuffer_, sizeof eventBuffer_); });
        if (length < 0 && errno == EAGAIN) return;
        if (length < 0) throw PosixError::fromErrno(errno, "inotify");
        if (length == 0) return;
        for (const char* next = eventBuffer_; next < eventBuffer_ + length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(next);
            handle(*event);
            next += sizeof(inotify_event) + event->len;
        }
    }
}

void TreeWatcher::Loop::handle(const inotify_event& event) {
    if (event.mask & IN_Q_OVERFLOW) {
        watcherLog().info("Events were lost under " + root_.string() + "; reporting the whole tree.");
        note(root_);
        watchTree(root_, TreeAge::existing);  // folders made while events were lost
        return;
    }
    const auto folder = folders_.find(event.wd);
    if (folder == folders_.end()) return;
    if (event.mask & IN_IGNORED) {
        folders_.erase(folder);
        return;
    }
    std::filesystem::path path =
        event.len > 0 ? folder->second / std::string_view(event.name) : folder->second;
    if (event.mask & IN_DELETE_SELF) folders_.erase(folder);
    // A folder moved within the tree keeps its watch; adding it again records its new path.
    if ((event.mask & IN_ISDIR) && (event.mask & (IN_CREATE | IN_MOVED_TO)))
        watchTree(path, TreeAge::appeared);
    note(std::move(path));
}

void TreeWatcher::Loop::note(std::filesystem::path path) {
    if (!pendingPaths_.insert(path.native()).second) return;
    if (pending_.empty()) batchDeadline_ = Clock::now() + latency_;
    pending_.push_back(std::move(path));
}

// Each folder is watched before it is listed, so that what appears in it afterwards raises an event and
// what was there before is found by the listing. In a tree that has just appeared, that is a change too.
void TreeWatcher::Loop::watchTree(const std::filesystem::path& top, TreeAge age) {
    std::vector<std::filesystem::path> folders{top};
    while (!folders.empty()) {
        const std::filesystem::path folder = std::move(folders.back());
        folders.pop_back();
        if (!addWatch(folder)) continue;
        std::error_code error;
        for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
             entry.increment(error)) {
            if (age == TreeAge::appeared) note(entry->path());
            std::error_code typeError;
            if (entry->symlink_status(typeError).type() == std::filesystem::file_type::directory)
                folders.push_back(entry->path());
        }
    }
}

bool TreeWatcher::Loop::addWatch(const std::filesystem::path& folder) {
    const int descriptor =
        retryingInterrupts([&] { return ::inotify_add_watch(inotify_.get(), folder.c_str(), watchFlags); });
    if (descriptor >= 0) {
        folders_.insert_or_assign(descriptor, folder);
        return true;
    }
    const int code = errno;
    if (code == ENOENT || code == ENOTDIR) return false;  // gone, or replaced, before the watch landed
    if (code != ENOSPC || !reportedWatchLimit_) {
        watcherLog().error(PosixError::fromErrno(code, "Cannot watch " + folder.string()).what());
        reportedWatchLimit_ = reportedWatchLimit_ || code == ENOSPC;
    }
    return false;
}

void TreeWatcher::Loop::deliverDueBatch(const std::stop_token& token, const BatchHandler& onBatch) {
    if (pending_.empty() || Clock::now() < batchDeadline_) return;
    const Batch batch = std::exchange(pending_, {});
    pendingPaths_.clear();
    if (!token.stop_requested()) callLoggingFailures(onBatch, batch);
}

void TreeWatcher::Loop::runDueTasks(const std::stop_token& token) {
    for (;;) {
        std::function<void()> task;
        {
            const std::lock_guard lock(tasksMutex_);
            if (tasks_.empty() || tasks_.begin()->first > Clock::now()) return;
            task = std::move(tasks_.begin()->second);
            tasks_.erase(tasks_.begin());
        }
        if (token.stop_requested()) return;
        callLoggingFailures(task);
    }
}

std::optional<TreeWatcher::Clock::time_point> TreeWatcher::Loop::nextDeadline() {
    std::optional<Clock::time_point> deadline;
    if (!pending_.empty()) deadline = batchDeadline_;
    const std::lock_guard lock(tasksMutex_);
    if (!tasks_.empty() && (!deadline || tasks_.begin()->first < *deadline)) deadline = tasks_.begin()->first;
    return deadline;
}

TreeWatcher::TreeWatcher(std::filesystem::path root, Options options)
    : loop_(std::make_shared<Loop>(std::move(root), options.latency)),
      threadName_(std::move(options.threadName)) {}

TreeWatcher::~TreeWatcher() {
    stopSource_.request_stop();
    if (!thread_.joinable()) return;
    // Destroyed from inside its own handler: the thread holds the loop and ends once the handler returns.
    if (std::this_thread::get_id() == workerId_)
        thread_.detach();
    else
        thread_.join();
}

void TreeWatcher::start(BatchHandler onBatch) {
    const std::lock_guard lock(threadMutex_);
    thread_ = std::jthread([loop = loop_, token = stopSource_.get_token(), handler = std::move(onBatch),
                            name = threadName_] { loop->run(token, handler, name); });
    workerId_ = thread_.get_id();
}

void TreeWatcher::stop() {
    stopSource_.request_stop();
    if (std::this_thread::get_id() == workerId_) return;  // the loop ends when the running call returns
    const std::lock_guard lock(threadMutex_);
    if (thread_.joinable()) thread_.join();
}

TreeWatcher::Scheduler TreeWatcher::scheduler() const {
    return [weakLoop = std::weak_ptr<Loop>(loop_)](Clock::time_point when, std::function<void()> task) {
        if (const auto loop = weakLoop.lock()) loop->schedule(when, std::move(task));
    };
}

}  // namespace tapekeep
