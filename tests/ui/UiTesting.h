#pragma once

#include <QCoreApplication>

#include "GuiTestApplication.h"

#include <chrono>
#include <functional>
#include <thread>

namespace tapekeep::test {

// The test program's one application object.
inline void startApplication() {
    ensureGuiApplication();
}

// Declared as a fixture's first member: the application exists before the members that need it.
struct ApplicationStarted {
    ApplicationStarted() { startApplication(); }
};

// Runs the event loop until done() holds; false when it still doesn't after the limit, which only
// keeps a failing test from hanging.
inline bool waitFor(const std::function<bool()>& done,
                    std::chrono::milliseconds limit = std::chrono::seconds(60)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace tapekeep::test
