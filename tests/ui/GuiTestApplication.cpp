#include "GuiTestApplication.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QGuiApplication>
#include <QQuickWindow>

namespace tapekeep::test {

void ensureGuiApplication() {
    if (QCoreApplication::instance() != nullptr) return;
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    static int argc = 1;
    static char name[] = "tests_ui";
    static char* argv[] = {name, nullptr};
    static QGuiApplication application(argc, argv);
}

bool processEventsUntil(const std::function<bool()>& condition) {
    const QDeadlineTimer guard(30'000);
    while (!condition()) {
        if (guard.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    }
    return true;
}

}  // namespace tapekeep::test
