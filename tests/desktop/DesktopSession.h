#pragma once

#include <QImage>
#include <QStringList>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "TempDir.h"
#include "core/SDCard.h"

class QQuickWindow;
class QQuickItem;

namespace tapekeep {
class DesktopApplication;
}

namespace tapekeep::test {

// The desktop application on the demo card, in a window on a virtual display, with its own
// settings, data, state and runtime folders. The display and the application object are made once
// per test program; each session is a fresh home and a fresh application.
class DesktopSession {
public:
    // Why no session can be made here (no Xvfb), or nothing.
    [[nodiscard]] static std::optional<std::string> unavailable();

    // rsync: the executable the settings name, when not the system's.
    explicit DesktopSession(const std::optional<std::filesystem::path>& rsync = std::nullopt);
    ~DesktopSession();

    [[nodiscard]] DesktopApplication& app() { return *app_; }
    [[nodiscard]] const std::filesystem::path& home() const { return home_.path(); }
    [[nodiscard]] QQuickWindow& window() const;
    [[nodiscard]] SDCard demoCard();  // waits for the scan to find it

    // Runs the event loop until done() holds; false after the guard, which only keeps a failing
    // test from hanging.
    bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds guard = std::chrono::seconds(60));
    void settle();  // lets bindings, layouts and animations catch up

    // The texts of the visible text items of the window, and the window as drawn now.
    [[nodiscard]] QStringList visibleTexts() const;
    [[nodiscard]] bool shows(const QString& text) const;
    [[nodiscard]] QImage grab() const;
    // Saves the window under build/screenshots/ for people to look at.
    void screenshot(const std::string& name) const;
    [[nodiscard]] QQuickItem* item(const char* objectName) const;

private:
    TempDir home_;
    std::unique_ptr<DesktopApplication> app_;
};

}  // namespace tapekeep::test
