#include "DesktopSession.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QQuickItem>
#include <QQuickStyle>
#include <QQuickWindow>

#include <cstdlib>
#include <thread>

#include "XvfbDisplay.h"
#include "ui/DesktopApplication.h"
#include "workflows/BackupViewModel.h"

namespace tapekeep::test {
namespace fs = std::filesystem;

namespace {

XvfbDisplay& display() {
    static XvfbDisplay instance;
    return instance;
}

// Holds the application for the whole run and ends it once the last test has ended: at exit,
// after the other static objects have gone, Qt's clean-up would touch what is no longer there.
class ApplicationEnvironment : public ::testing::Environment {
public:
    ApplicationEnvironment() {
        static int argc = 1;
        static char name[] = "tests_desktop";
        static char* argv[] = {name, nullptr};
        application_ = std::make_unique<QApplication>(argc, argv);
    }
    void TearDown() override { application_.reset(); }

private:
    std::unique_ptr<QApplication> application_;
};

void startApplication() {
    if (QCoreApplication::instance() != nullptr) return;
    ::setenv("DISPLAY", display().name()->c_str(), 1);
    ::setenv("QT_QPA_PLATFORM", "xcb", 1);
    QQuickStyle::setStyle(QStringLiteral("Basic"));
    ::testing::AddGlobalTestEnvironment(new ApplicationEnvironment);
}

void collectTexts(QQuickItem* item, QStringList& texts) {
    if (item == nullptr || !item->isVisible() || item->opacity() <= 0.0) return;
    const QVariant text = item->property("text");
    if (text.isValid() && item->inherits("QQuickText")) texts.append(text.toString());
    for (QQuickItem* child : item->childItems()) collectTexts(child, texts);
}

}  // namespace

std::optional<std::string> DesktopSession::unavailable() {
    if (!display().name()) return display().whyUnavailable();
    return std::nullopt;
}

DesktopSession::DesktopSession(const std::optional<fs::path>& rsync) {
    for (const auto& [variable, folder] :
         {std::pair{"XDG_CONFIG_HOME", "config"}, std::pair{"XDG_DATA_HOME", "data"},
          std::pair{"XDG_STATE_HOME", "state"}, std::pair{"XDG_RUNTIME_DIR", "run"}}) {
        fs::create_directories(home_ / folder);
        ::setenv(variable, (home_ / folder).c_str(), 1);
    }
    ::setenv("HOME", home_.path().c_str(), 1);
    if (rsync)
        writeFile(home_ / "config/tapekeep/settings.json", "{\"rsyncPath\": \"" + rsync->string() + "\"}");
    startApplication();
    DesktopApplication::Options options;
    options.demo = true;
    app_ = std::make_unique<DesktopApplication>(options);
    if (!app_->showWindow()) throw std::runtime_error("the main window did not load");
}

DesktopSession::~DesktopSession() {
    app_.reset();
    QCoreApplication::processEvents();
}

QQuickWindow& DesktopSession::window() const {
    auto* window = qobject_cast<QQuickWindow*>(app_->window());
    if (window == nullptr) throw std::runtime_error("no main window");
    return *window;
}

SDCard DesktopSession::demoCard() {
    waitFor([this] { return !app_->backup().detectedCards().empty(); });
    if (app_->backup().detectedCards().empty()) throw std::runtime_error("the demo card was not found");
    return app_->backup().detectedCards().front();
}

bool DesktopSession::waitFor(const std::function<bool()>& done, std::chrono::milliseconds guard) {
    const auto end = std::chrono::steady_clock::now() + guard;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

void DesktopSession::settle() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(400);
    waitFor([&] { return std::chrono::steady_clock::now() > end; });
}

QStringList DesktopSession::visibleTexts() const {
    QStringList texts;
    collectTexts(window().contentItem(), texts);
    return texts;
}

bool DesktopSession::shows(const QString& text) const {
    for (const QString& shown : visibleTexts())
        if (shown.contains(text)) return true;
    return false;
}

QImage DesktopSession::grab() const {
    return window().grabWindow();
}

void DesktopSession::screenshot(const std::string& name) const {
    const fs::path folder = TAPEKEEP_SCREENSHOT_DIR;
    fs::create_directories(folder);
    grab().save(QString::fromStdString((folder / (name + ".png")).string()));
}

QQuickItem* DesktopSession::item(const char* objectName) const {
    return window().contentItem()->findChild<QQuickItem*>(QString::fromLatin1(objectName));
}

}  // namespace tapekeep::test
