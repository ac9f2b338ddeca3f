#include "GuiTestApplication.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QGuiApplication>
#include <QQuickWindow>

#include <gtest/gtest.h>

#include <memory>

namespace tapekeep::test {

namespace {

// Holds the application for the whole run and ends it once the last test has ended: at exit,
// after the other static objects have gone, Qt's clean-up would touch what is no longer there.
class GuiApplicationEnvironment : public ::testing::Environment {
public:
    GuiApplicationEnvironment() {
        static int argc = 1;
        static char name[] = "tests_ui";
        static char* argv[] = {name, nullptr};
        application_ = std::make_unique<QGuiApplication>(argc, argv);
    }
    void TearDown() override { application_.reset(); }

private:
    std::unique_ptr<QGuiApplication> application_;
};

}  // namespace

void ensureGuiApplication() {
    if (QCoreApplication::instance() != nullptr) return;
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    ::testing::AddGlobalTestEnvironment(new GuiApplicationEnvironment);
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
