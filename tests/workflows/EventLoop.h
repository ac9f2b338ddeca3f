#pragma once

#include <QCoreApplication>

#include <chrono>
#include <fstream>
#include <functional>
#include <thread>

namespace tapekeep::test {

// The controllers post to the event loop, so every test of this program needs one application.
inline void startApplication() {
    static int argc = 1;
    static char name[] = "tests_workflows";
    static char* argv[] = {name, nullptr};
    static QCoreApplication application(argc, argv);
}

// Runs the event loop until done() holds; false when it still doesn't after the limit, which only
// keeps a failing test from hanging.
inline bool waitFor(const std::function<bool()>& done,
                    std::chrono::milliseconds limit = std::chrono::seconds(60)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// How long the calling thread has waited, ready to run, for a CPU (the kernel's schedstat): the part
// of a stall that a busy machine causes, not the thread's own work or waits. Zero where the kernel
// does not keep the figure.
inline std::chrono::milliseconds timeWaitedForACpu() {
    std::ifstream schedstat("/proc/thread-self/schedstat");
    long long running = 0, waiting = 0;
    if (!(schedstat >> running >> waiting)) return {};
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::nanoseconds(waiting));
}

}  // namespace tapekeep::test
