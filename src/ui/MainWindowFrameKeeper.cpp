#include "ui/MainWindowFrameKeeper.h"

#include <QGuiApplication>
#include <QScreen>

#include <algorithm>

#include "app/MainWindowFrame.h"
#include "core/Error.h"
#include "core/Log.h"
#include "core/SettingsStore.h"

namespace tapekeep {

namespace {

const Log log("MainWindowFrameKeeper");

// A frame kept from a screen that is gone would put the window where no one can reach it.
bool isOnAScreen(const QRect& frame) {
    const auto screens = QGuiApplication::screens();
    return std::any_of(screens.begin(), screens.end(),
                       [&](const QScreen* screen) { return screen->availableGeometry().intersects(frame); });
}

}  // namespace

MainWindowFrameKeeper::MainWindowFrameKeeper(SettingsStore& store, QWindow& window,
                                             std::chrono::milliseconds quietTime, QObject* parent)
    : QObject(parent), store_(store), window_(&window) {
    restore();
    quiet_.setSingleShot(true);
    quiet_.setInterval(quietTime);
    connect(&quiet_, &QTimer::timeout, this, &MainWindowFrameKeeper::save);
    for (auto signal :
         {&QWindow::xChanged, &QWindow::yChanged, &QWindow::widthChanged, &QWindow::heightChanged})
        connect(&window, signal, this, &MainWindowFrameKeeper::windowChanged);
}

MainWindowFrameKeeper::~MainWindowFrameKeeper() {
    if (quiet_.isActive()) save();
}

void MainWindowFrameKeeper::restore() {
    const auto stored =
        MainWindowFrame::parse(QString::fromStdString(store_.string(MainWindowFrame::settingsKey)));
    if (stored && isOnAScreen(*stored)) return window_->setGeometry(*stored);
    const QScreen* screen = QGuiApplication::primaryScreen();
    const auto frame = MainWindowFrame::defaultFrame(screen ? screen->availableGeometry() : QRect());
    if (frame) window_->setGeometry(*frame);
}

void MainWindowFrameKeeper::windowChanged() {
    if (window_ && window_->windowStates() == Qt::WindowNoState) quiet_.start();
}

void MainWindowFrameKeeper::save() {
    quiet_.stop();
    if (!window_) return;
    const std::string text = MainWindowFrame::text(window_->geometry()).toStdString();
    if (store_.string(MainWindowFrame::settingsKey) == text) return;
    try {
        store_.setValue(MainWindowFrame::settingsKey, text);
    } catch (const std::exception& error) {
        log.error("The window's frame was not saved: " + describe(error));
        return;
    }
    emit saved();
}

}  // namespace tapekeep
