#pragma once

#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <optional>
#include <set>
#include <string>

#include "ui/LifecycleAlert.h"

namespace tapekeep {

class AppSettings;
class BackupViewModel;

// What may happen when the user closes the main window or quits, and the commands of the menus.
//
// Closing the window while an operation runs asks first ("Operation in Progress"); "Close Anyway"
// cancels through the backup controller. With the tray item on, a closed window only hides and the
// application stays; otherwise closing the window quits. Quitting with cards mounted asks whether to
// eject them when `askToEjectOnQuit` is set; "Eject and Quit" quits only once every card is ejected,
// and any refusal or failure keeps the application open and says why.
//
// The decisions are made here and the alerts only described: the window shows `alert` and answers
// with answerAlert. The application ends when quitApproved is emitted. GUI thread only.
class AppLifecycle : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap alert READ alertVariant NOTIFY alertChanged)
    Q_PROPERTY(bool isEjectingForQuit READ isEjectingForQuit NOTIFY isEjectingForQuitChanged)

public:
    // Whether any operation holds a card. Default: any lease of this process's operation lock.
    using OperationQuery = std::function<bool()>;

    AppLifecycle(AppSettings& settings, BackupViewModel& backup, OperationQuery isOperationRunning = {},
                 QObject* parent = nullptr);

    // The window's close button. True when the window may close now (it hides, the tray item
    // staying); otherwise the window stays and an alert or the quit takes over.
    Q_INVOKABLE bool windowCloseRequested();
    // The quit command of the menus and of the tray item.
    Q_INVOKABLE void quitRequested();
    // The user's answer to the alert on screen: the title of the button pressed, and whether the
    // suppression box is ticked. An answer to an alert that is no longer shown is ignored.
    Q_INVOKABLE void answerAlert(const QString& button, bool suppress = false);

    // The commands of the "Actions" menu and the tray item.
    Q_INVOKABLE void backupAll();
    Q_INVOKABLE void ejectAll();
    Q_INVOKABLE void refresh();

    [[nodiscard]] const std::optional<LifecycleAlert>& alert() const { return alert_; }
    [[nodiscard]] QVariantMap alertVariant() const { return alert_ ? alert_->variant() : QVariantMap{}; }
    [[nodiscard]] bool isEjectingForQuit() const { return !ejectsPending_.empty(); }

signals:
    void alertChanged();
    void isEjectingForQuitChanged();
    // The window may close now: closing it again passes.
    void closeApproved();
    // The application ends now.
    void quitApproved();

private:
    enum class Origin { window, quit };

    void show(LifecycleAlert alert);
    void dismiss();
    void askBeforeClosing(Origin origin);
    void closeAnyway();
    void quitUnlessCardsToEject();
    void ejectForQuit();
    void ejectFinished(const QString& uuid, const QString& error);

    AppSettings& settings_;
    BackupViewModel& backup_;
    OperationQuery isOperationRunning_;
    std::optional<LifecycleAlert> alert_;
    Origin closeOrigin_ = Origin::window;
    bool closeApproved_ = false;
    std::set<std::string> ejectsPending_;  // the cards the quit waits for
    QStringList ejectFailures_;
};

}  // namespace tapekeep
