#include "ui/AppLifecycle.h"

#include "app/AppSettings.h"
#include "cards/OperationLock.h"
#include "workflows/BackupViewModel.h"

namespace tapekeep {

namespace {

const QString closeAnywayButton = QStringLiteral("Close Anyway");
const QString dontCloseButton = QStringLiteral("Don't Close");
const QString ejectAndQuitButton = QStringLiteral("Eject and Quit");
const QString quitButton = QStringLiteral("Quit");
const QString cancelButton = QStringLiteral("Cancel");
const QString okButton = QStringLiteral("OK");

LifecycleAlert closeWhileRunningAlert() {
    return {LifecycleAlert::Kind::closeWhileRunning,
            QStringLiteral("Operation in Progress"),
            QStringLiteral("Closing now cancels the running operation. An unfinished backup is discarded; a "
                           "finished one is kept."),
            {dontCloseButton, closeAnywayButton},
            {}};
}

LifecycleAlert ejectBeforeQuitAlert(const QStringList& names) {
    return {LifecycleAlert::Kind::ejectBeforeQuit,
            QStringLiteral("Eject %1 before quitting?").arg(names.join(QStringLiteral(", "))),
            {},
            {ejectAndQuitButton, quitButton, cancelButton},
            QStringLiteral("Don't ask again")};
}

LifecycleAlert ejectFailedAlert(const QStringList& messages) {
    return {LifecycleAlert::Kind::ejectFailed,
            QStringLiteral("Could Not Eject"),
            messages.join(QLatin1Char('\n')) + QStringLiteral("\nThe app stays open."),
            {okButton},
            {}};
}

bool anyCardLeased() {
    return !OperationLock::shared().activeVolumeUUIDs().empty();
}

}  // namespace

AppLifecycle::AppLifecycle(AppSettings& settings, BackupViewModel& backup, OperationQuery isOperationRunning,
                           QObject* parent)
    : QObject(parent),
      settings_(settings),
      backup_(backup),
      isOperationRunning_(isOperationRunning ? std::move(isOperationRunning) : anyCardLeased) {
    connect(&backup_, &BackupViewModel::ejectFinished, this, &AppLifecycle::ejectFinished);
}

bool AppLifecycle::windowCloseRequested() {
    if (closeApproved_) {
        closeApproved_ = false;
        return true;
    }
    if (isOperationRunning_()) {
        askBeforeClosing(Origin::window);
        return false;
    }
    if (settings_.menuBarMode()) return true;
    quitRequested();
    return false;
}

void AppLifecycle::quitRequested() {
    if (alert_ || isEjectingForQuit()) return;  // one question at a time
    if (isOperationRunning_()) return askBeforeClosing(Origin::quit);
    quitUnlessCardsToEject();
}

void AppLifecycle::answerAlert(const QString& button, bool suppress) {
    if (!alert_ || !alert_->buttons.contains(button)) return;
    const LifecycleAlert::Kind kind = alert_->kind;
    dismiss();
    switch (kind) {
        case LifecycleAlert::Kind::closeWhileRunning:
            if (button == closeAnywayButton) closeAnyway();
            return;
        case LifecycleAlert::Kind::ejectBeforeQuit:
            if (suppress) settings_.setAskToEjectOnQuit(false);
            if (button == ejectAndQuitButton) return ejectForQuit();
            if (button == quitButton) emit quitApproved();
            return;
        case LifecycleAlert::Kind::ejectFailed:
            return;
    }
}

void AppLifecycle::backupAll() {
    const std::vector<SDCard> cards = backup_.detectedCards();
    for (const SDCard& card : cards) backup_.startBackup(card);
}

void AppLifecycle::ejectAll() {
    const std::vector<SDCard> cards = backup_.detectedCards();
    for (const SDCard& card : cards) backup_.ejectCard(card);
}

void AppLifecycle::refresh() {
    backup_.scanForCards();
}

void AppLifecycle::show(LifecycleAlert alert) {
    alert_ = std::move(alert);
    emit alertChanged();
}

void AppLifecycle::dismiss() {
    alert_.reset();
    emit alertChanged();
}

void AppLifecycle::askBeforeClosing(Origin origin) {
    if (alert_) return;
    closeOrigin_ = origin;
    show(closeWhileRunningAlert());
}

// The operation is told to stop; its own cancellation path discards an unfinished backup. A window
// closed with the tray item on only hides, so the run's end still reaches the tray.
void AppLifecycle::closeAnyway() {
    backup_.cancelAllOperations();
    if (closeOrigin_ == Origin::window && settings_.menuBarMode()) {
        closeApproved_ = true;  // for the window's next close, which closeApproved asks for
        emit closeApproved();
        return;
    }
    emit quitApproved();
}

void AppLifecycle::quitUnlessCardsToEject() {
    QStringList names;
    for (const SDCard& card : backup_.detectedCards()) names << QString::fromStdString(card.volumeName);
    if (settings_.askToEjectOnQuit() && !names.isEmpty()) return show(ejectBeforeQuitAlert(names));
    emit quitApproved();
}

// Each card's eject reports through ejectFinished, a refusal at once, before ejectCard returns: so
// the cards are all listed as pending before the first eject starts.
void AppLifecycle::ejectForQuit() {
    const std::vector<SDCard> cards = backup_.detectedCards();
    if (cards.empty()) return emit quitApproved();
    ejectFailures_.clear();
    for (const SDCard& card : cards) ejectsPending_.insert(card.diskUtilUUID);
    emit isEjectingForQuitChanged();
    for (const SDCard& card : cards) backup_.ejectCard(card);
}

void AppLifecycle::ejectFinished(const QString& uuid, const QString& error) {
    if (ejectsPending_.erase(uuid.toStdString()) == 0) return;  // not one the quit waits for
    if (!error.isEmpty()) ejectFailures_ << error;
    if (!ejectsPending_.empty()) return;
    emit isEjectingForQuitChanged();
    if (ejectFailures_.isEmpty()) return emit quitApproved();
    show(ejectFailedAlert(ejectFailures_));
}

}  // namespace tapekeep
