#pragma once

#include <chrono>
#include <stop_token>
#include <thread>

namespace tapekeep::cli {

// Turns SIGINT and SIGTERM into a stop request, so that a running command ends through its own
// cancellation path (an unfinished staging folder is removed) instead of dying mid-write.
//
// Some waits no stop reaches: a thread blocked in the kernel on a file system that stopped
// answering. So a watchdog gives the command gracePeriod after the first signal; if the process is
// still there then, it prints "Cancelled." and ends with exit code 130 at once. A staging folder
// left behind that way is cleared by the next backup.
//
// Installed once, in main, for the life of the process; the previous handlers come back when it is
// destroyed. The static accessors may be called from any thread.
class SignalCancellation {
public:
    static constexpr std::chrono::milliseconds defaultGracePeriod{1500};

    explicit SignalCancellation(std::chrono::milliseconds gracePeriod = defaultGracePeriod);
    ~SignalCancellation();
    SignalCancellation(const SignalCancellation&) = delete;
    SignalCancellation& operator=(const SignalCancellation&) = delete;

    // The installed instance's token, or one that never stops while none is installed.
    [[nodiscard]] static std::stop_token token();
    [[nodiscard]] static bool signalled() { return token().stop_requested(); }

private:
    void watch();
    bool shutDownWithin(std::chrono::milliseconds period) const;

    std::chrono::milliseconds gracePeriod_;
    std::stop_source source_;
    int pipe_[2] = {-1, -1};
    std::thread watcher_;
};

}  // namespace tapekeep::cli
