#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "platform/MountTable.h"

namespace tapekeep {

// Reports mounts that appear and vanish, on a thread of its own: the thread waits for the kernel to
// flag a change of the mount table (POLLPRI on mountinfo), reads the table again and hands over what
// differs from the table it read before.
//
// Threads: the handler runs on the monitor's thread. Construct, stop and destroy from one thread at a
// time, or from inside the handler.
class MountMonitor {
public:
    struct Change {
        std::vector<MountTable::Entry> mounted;    // in the order of the new table
        std::vector<MountTable::Entry> unmounted;  // in the order of the old table
    };
    using Handler = std::function<void(const Change& change)>;

    struct Options {
        std::filesystem::path mountInfoPath = "/proc/self/mountinfo";
        std::string threadName = "mount-monitor";  // the system keeps the first 15 characters
    };

    // Reads the table as it is now and starts watching: every change after the constructor returns is
    // reported, and only changes that add or remove an entry. Throws PosixError when the table cannot
    // be opened or read.
    MountMonitor(Handler onChange, Options options);
    explicit MountMonitor(Handler onChange) : MountMonitor(std::move(onChange), Options()) {}
    ~MountMonitor();  // stops
    MountMonitor(const MountMonitor&) = delete;
    MountMonitor& operator=(const MountMonitor&) = delete;

    // When stop() returns, the handler does not run again, and a call that was running has returned.
    // Called from inside the handler, nothing runs after that call. Idempotent.
    void stop();

    // What was mounted and unmounted between two tables. An entry stacked twice counts twice.
    static Change compare(const MountTable& before, const MountTable& after);

private:
    class Loop;

    std::shared_ptr<Loop> loop_;  // shared with the thread, which may outlive this object
    std::stop_source stopSource_;
    std::mutex threadMutex_;
    std::jthread thread_;  // guarded by threadMutex_
};

}  // namespace tapekeep
