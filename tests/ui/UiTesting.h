#pragma once

#include "GuiTestApplication.h"

#include <functional>

namespace tapekeep::test {

// The test program's one application object.
inline void startApplication() {
    ensureGuiApplication();
}

// Declared as a fixture's first member: the application exists before the members that need it.
struct ApplicationStarted {
    ApplicationStarted() { startApplication(); }
};

// Runs the event loop until done() holds; false after the guard of processEventsUntil.
inline bool waitFor(const std::function<bool()>& done) {
    return processEventsUntil(done);
}

}  // namespace tapekeep::test
