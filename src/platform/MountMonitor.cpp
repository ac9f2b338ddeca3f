#include "platform/MountMonitor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <exception>
#include <map>
#include <tuple>

#include "core/FileDescriptor.h"
#include "core/FileReading.h"
#include "core/Log.h"
#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"
#include "platform/ThreadName.h"

namespace tapekeep {
namespace {

const Log& monitorLog() {
    static const Log instance("MountMonitor");
    return instance;
}

using EntryKey = std::tuple<std::string, std::string, std::string>;

EntryKey keyOf(const MountTable::Entry& entry) {
    return {entry.mountPoint.native(), entry.source, entry.fileSystemType};
}

// The entries of `list` that `other` does not hold as often, in the order of `list`.
std::vector<MountTable::Entry> entriesNotIn(const std::vector<MountTable::Entry>& list,
                                            const std::vector<MountTable::Entry>& other) {
    std::map<EntryKey, int> available;
    for (const auto& entry : other) ++available[keyOf(entry)];
    std::vector<MountTable::Entry> missing;
    for (const auto& entry : list) {
        int& count = available[keyOf(entry)];
        if (count > 0)
            --count;
        else
            missing.push_back(entry);
    }
    return missing;
}

void callLoggingFailures(const MountMonitor::Handler& onChange, const MountMonitor::Change& change) {
    try {
        onChange(change);
    } catch (const std::exception& error) {
        monitorLog().error(std::string("A mount change handler failed: ") + error.what());
    } catch (...) {
        monitorLog().error("A mount change handler failed.");
    }
}

}  // namespace

// The open mount table, the table last read from it, and the counter that wakes the poll for stop.
class MountMonitor::Loop {
public:
    explicit Loop(std::filesystem::path mountInfoPath);

    void run(const std::stop_token& token, const Handler& onChange, const std::string& threadName);
    [[nodiscard]] bool isWorkerThread() const { return workerId_.load() == std::this_thread::get_id(); }

private:
    void wake();
    bool waitForChange();
    MountTable readTable();

    const std::filesystem::path path_;
    // Opened before the first read: the kernel flags every change made after the open.
    const FileDescriptor mountInfo_;
    const FileDescriptor wakeCounter_;
    MountTable current_;  // set by the constructor, then touched only on the monitor's thread
    std::atomic<std::thread::id> workerId_;
};

MountMonitor::Loop::Loop(std::filesystem::path mountInfoPath)
    : path_(std::move(mountInfoPath)),
      mountInfo_(FileDescriptor::checked(
          retryingInterrupts([&] { return ::open(path_.c_str(), O_RDONLY | O_CLOEXEC); }), path_.string())),
      wakeCounter_(FileDescriptor::checked(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), "eventfd")),
      current_(readTable()) {}

void MountMonitor::Loop::run(const std::stop_token& token, const Handler& onChange,
                             const std::string& threadName) {
    workerId_ = std::this_thread::get_id();
    setCurrentThreadName(threadName);
    const std::stop_callback wakeOnStop(token, [this] { wake(); });
    try {
        while (!token.stop_requested()) {
            if (!waitForChange()) continue;
            MountTable next = readTable();
            const Change change = compare(current_, next);
            current_ = std::move(next);
            if ((change.mounted.empty() && change.unmounted.empty()) || token.stop_requested()) continue;
            callLoggingFailures(onChange, change);
        }
    } catch (const std::exception& error) {
        monitorLog().error("Stopped watching " + path_.string() + ": " + error.what());
    }
}

void MountMonitor::Loop::wake() {
    const std::uint64_t one = 1;
    retryingInterrupts([&] { return ::write(wakeCounter_.get(), &one, sizeof one); });
}

// True when the kernel flagged a change of the table; false for a wake-up or an interrupted poll.
bool MountMonitor::Loop::waitForChange() {
    pollfd descriptors[] = {{mountInfo_.get(), POLLPRI, 0}, {wakeCounter_.get(), POLLIN, 0}};
    const int ready = ::poll(descriptors, 2, -1);
    if (ready < 0 && errno == EINTR) return false;
    if (ready < 0) throw PosixError::fromErrno(errno, "poll");
    if (descriptors[1].revents & POLLIN) {
        std::uint64_t count = 0;
        retryingInterrupts([&] { return ::read(wakeCounter_.get(), &count, sizeof count); });
    }
    return (descriptors[0].revents & (POLLPRI | POLLERR)) != 0;
}

MountTable MountMonitor::Loop::readTable() {
    if (retryingInterrupts([&] { return ::lseek(mountInfo_.get(), 0, SEEK_SET); }) < 0)
        throw PosixError::fromErrno(errno, path_.string());
    return MountTable::parse(readToEnd(mountInfo_.get(), path_.string()));
}

MountMonitor::MountMonitor(Handler onChange, Options options)
    : loop_(std::make_shared<Loop>(std::move(options.mountInfoPath))) {
    thread_ = std::jthread([loop = loop_, token = stopSource_.get_token(), handler = std::move(onChange),
                            name = std::move(options.threadName)] { loop->run(token, handler, name); });
}

MountMonitor::~MountMonitor() {
    stopSource_.request_stop();
    const std::lock_guard lock(threadMutex_);
    if (!thread_.joinable()) return;
    // Destroyed from inside its own handler: the thread holds the loop and ends once the handler returns.
    if (loop_->isWorkerThread())
        thread_.detach();
    else
        thread_.join();
}

void MountMonitor::stop() {
    stopSource_.request_stop();
    if (loop_->isWorkerThread()) return;  // the loop ends when the running call returns
    const std::lock_guard lock(threadMutex_);
    if (thread_.joinable()) thread_.join();
}

MountMonitor::Change MountMonitor::compare(const MountTable& before, const MountTable& after) {
    return {entriesNotIn(after.entries(), before.entries()), entriesNotIn(before.entries(), after.entries())};
}

}  // namespace tapekeep
