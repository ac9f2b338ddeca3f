#pragma once

#include <QMenu>
#include <QObject>
#include <QStringList>
#include <QSystemTrayIcon>

#include <optional>

#include "workflows/CardState.h"

namespace tapekeep {

class AppLifecycle;
class AppSettings;
class BackupViewModel;

// The tray icon, shown while the setting menuBarMode is on: a menu with one line per card and its
// state, "Open Main Window", "Backup All" and the quit command. Follows the setting and the cards
// as they change; the menu follows a change once the event loop runs. GUI thread only; needs a
// QApplication.
class StatusBarController : public QObject {
    Q_OBJECT

public:
    static constexpr const char* openMainWindowText = "Open Main Window";
    static constexpr const char* backupAllText = "Backup All";
    static constexpr const char* quitText = "Quit Tapekeep";
    static constexpr const char* noCardText = "No card";

    StatusBarController(AppSettings& settings, BackupViewModel& backup, AppLifecycle& lifecycle,
                        QObject* parent = nullptr);

    // "{name}: {what the card is doing}".
    [[nodiscard]] static QString cardLine(const QString& volumeName, const CardState& state,
                                          std::optional<double> progress);

    // Whether the icon is meant to be shown: what menuBarMode says.
    [[nodiscard]] bool isShown() const { return tray_.isVisible(); }
    // The menu's entries in order, an empty text for each separator.
    [[nodiscard]] QStringList menuTexts() const;
    [[nodiscard]] QMenu& menu() { return menu_; }

    // A message from the icon, when it is shown and the desktop has a tray. False when it is not.
    bool showMessage(const QString& title, const QString& body);

signals:
    void openMainWindowRequested();

private:
    void scheduleRebuild();
    void rebuildMenu();
    void applyVisibility();

    AppSettings& settings_;
    BackupViewModel& backup_;
    AppLifecycle& lifecycle_;
    QMenu menu_;
    QSystemTrayIcon tray_;
    bool rebuildPending_ = false;
};

}  // namespace tapekeep
