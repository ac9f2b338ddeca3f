#pragma once

#include <QApplication>

#include <chrono>
#include <functional>
#include <thread>

namespace tapekeep::test {

// The one application object of this program, on the offscreen platform unless one is set.
inline void startApplication() {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char name[] = "tests_ui";
    static char* argv[] = {name, nullptr};
    // Never destroyed: at exit, Qt's clean-up routines would run after statics they use are gone.
    [[maybe_unused]] static auto* application = new QApplication(argc, argv);
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
