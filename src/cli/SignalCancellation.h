#pragma once

#include <stop_token>
#include <thread>

namespace tapekeep::cli {

// Turns SIGINT and SIGTERM into a stop request, so that a running backup ends through its own
// cancellation path (the unfinished staging folder is removed) instead of dying mid-write.
// One instance at a time; the previous handlers come back when it is destroyed.
class SignalCancellation {
public:
    SignalCancellation();
    ~SignalCancellation();
    SignalCancellation(const SignalCancellation&) = delete;
    SignalCancellation& operator=(const SignalCancellation&) = delete;

    [[nodiscard]] std::stop_token token() const { return source_.get_token(); }
    [[nodiscard]] bool signalled() const { return source_.stop_requested(); }

private:
    void watch();

    std::stop_source source_;
    int pipe_[2] = {-1, -1};
    std::thread watcher_;
};

}  // namespace tapekeep::cli
