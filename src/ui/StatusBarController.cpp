#include "ui/StatusBarController.h"

#include <QIcon>
#include <QPainter>
#include <QPixmap>

#include "app/AppSettings.h"
#include "ui/AppLifecycle.h"
#include "ui/CardTileValues.h"
#include "workflows/BackupViewModel.h"

namespace tapekeep {

namespace {

// The installed icon where the desktop's theme has it; otherwise a plain mark drawn here, since a
// tray icon without a picture is not shown at all.
QIcon trayIcon() {
    QPixmap mark(64, 64);
    mark.fill(Qt::transparent);
    QPainter painter(&mark);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(QColor(0x11, 0x11, 0x11));
    painter.setPen(Qt::NoPen);
    painter.drawRoundedRect(mark.rect(), 10, 10);
    painter.setPen(Qt::white);
    QFont font = painter.font();
    font.setPixelSize(44);
    font.setBold(true);
    painter.setFont(font);
    painter.drawText(mark.rect(), Qt::AlignCenter, QStringLiteral("T"));
    painter.end();
    return QIcon::fromTheme(QStringLiteral("org.tapekeep.Tapekeep"), QIcon(mark));
}

QString stateText(const CardState& state, std::optional<double> progress) {
    switch (state.kind) {
        case CardState::Kind::idle:
            return QStringLiteral("Ready");
        case CardState::Kind::confirming:
            return QStringLiteral("Choosing what to back up");
        case CardState::Kind::autoBackupCountdown:
            return QStringLiteral("Backup starts soon");
        case CardState::Kind::running:
            if (!progress) return QStringLiteral("Backing up");
            return QStringLiteral("Backing up (%1%)").arg(CardTileValues::percent(progress).toInt());
        case CardState::Kind::success:
        case CardState::Kind::failed:
            return QString::fromStdString(state.message);
    }
    return {};
}

}  // namespace

StatusBarController::StatusBarController(AppSettings& settings, BackupViewModel& backup,
                                         AppLifecycle& lifecycle, QObject* parent)
    : QObject(parent), settings_(settings), backup_(backup), lifecycle_(lifecycle) {
    tray_.setIcon(trayIcon());
    tray_.setToolTip(QStringLiteral("Tapekeep"));
    tray_.setContextMenu(&menu_);
    connect(&tray_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger) emit openMainWindowRequested();
    });
    for (auto signal : {&BackupViewModel::detectedCardsChanged, &BackupViewModel::cardStatesChanged,
                        &BackupViewModel::cardProgressChanged})
        connect(&backup_, signal, this, &StatusBarController::scheduleRebuild);
    connect(&settings_, &AppSettings::menuBarModeChanged, this, &StatusBarController::applyVisibility);
    rebuildMenu();
    applyVisibility();
}

QString StatusBarController::cardLine(const QString& volumeName, const CardState& state,
                                      std::optional<double> progress) {
    return volumeName + QStringLiteral(": ") + stateText(state, progress);
}

QStringList StatusBarController::menuTexts() const {
    QStringList texts;
    for (const QAction* action : menu_.actions())
        texts << (action->isSeparator() ? QString() : action->text());
    return texts;
}

bool StatusBarController::showMessage(const QString& title, const QString& body) {
    if (!tray_.isVisible() || !QSystemTrayIcon::isSystemTrayAvailable()) return false;
    tray_.showMessage(title, body, tray_.icon());
    return true;
}

// Later, on the event loop: a change may come from one of the menu's own commands while it runs.
void StatusBarController::scheduleRebuild() {
    if (rebuildPending_) return;
    rebuildPending_ = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            rebuildPending_ = false;
            rebuildMenu();
        },
        Qt::QueuedConnection);
}

// The menu is small and changes only with the cards, so it is built again each time. Card lines are
// information, not commands.
void StatusBarController::rebuildMenu() {
    menu_.clear();
    const auto& cards = backup_.detectedCards();
    for (const SDCard& card : cards) {
        const std::string& uuid = card.diskUtilUUID;
        menu_
            .addAction(cardLine(QString::fromStdString(card.volumeName), backup_.cardState(uuid),
                                backup_.cardProgress(uuid)))
            ->setEnabled(false);
    }
    if (cards.empty()) menu_.addAction(QString::fromLatin1(noCardText))->setEnabled(false);
    menu_.addSeparator();
    connect(menu_.addAction(QString::fromLatin1(openMainWindowText)), &QAction::triggered, this,
            &StatusBarController::openMainWindowRequested);
    QAction* backupAll = menu_.addAction(QString::fromLatin1(backupAllText));
    backupAll->setEnabled(!cards.empty());
    connect(backupAll, &QAction::triggered, &lifecycle_, &AppLifecycle::backupAll);
    menu_.addSeparator();
    connect(menu_.addAction(QString::fromLatin1(quitText)), &QAction::triggered, this, [this] {
        lifecycle_.quitRequested();
        if (lifecycle_.alert()) emit openMainWindowRequested();  // the question is asked in the window
    });
}

void StatusBarController::applyVisibility() {
    tray_.setVisible(settings_.menuBarMode());
}

}  // namespace tapekeep
