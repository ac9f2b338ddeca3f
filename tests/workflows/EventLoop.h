#pragma once

#include <QCoreApplication>

#include <chrono>
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

}  // namespace tapekeep::test
