#pragma once

#include <QString>

#include <functional>

namespace tapekeep::test {

// The one QGuiApplication of the interface's test program, made at the first call: on the
// offscreen platform unless QT_QPA_PLATFORM says otherwise, with Qt Quick drawing in software so
// that a window can be grabbed and its pixels read. An application made elsewhere is kept.
void ensureGuiApplication();

// Runs the event loop until the condition holds; false when it still does not after a generous
// guard of 30 seconds, so that a broken test fails instead of hanging.
bool processEventsUntil(const std::function<bool()>& condition);

}  // namespace tapekeep::test
