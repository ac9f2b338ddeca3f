#pragma once

#include <QCoreApplication>
#include <QGuiApplication>

namespace tapekeep::test {

// The interface's tests need a GUI application and an event loop, and no display: one application
// per program, on the offscreen platform unless the environment names another. It is never
// destroyed: at exit, Qt Quick's own statics may already be gone when the application's clean-up
// routines would reach them.
inline void startOffscreenApplication() {
    if (QCoreApplication::instance() != nullptr) return;
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char name[] = "tests_ui";
    static char* argv[] = {name, nullptr};
    new QGuiApplication(argc, argv);
}

}  // namespace tapekeep::test
