#pragma once

#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QWindow>

#include <chrono>

namespace tapekeep {

class SettingsStore;

// Puts the main window where it was last time, and writes its frame to the settings store
// (`m8MainWindowFrame`) once it has stopped moving or resizing for a moment. A stored value that
// cannot be read gives the default frame on the primary screen. A maximised, full-screen or
// minimised window keeps the frame it had before. GUI thread only.
class MainWindowFrameKeeper : public QObject {
    Q_OBJECT

public:
    MainWindowFrameKeeper(SettingsStore& store, QWindow& window,
                          std::chrono::milliseconds quietTime = std::chrono::milliseconds(500),
                          QObject* parent = nullptr);
    ~MainWindowFrameKeeper() override;  // writes a change that is still waiting

    // Writes the window's frame now, if it changed since the last write.
    void save();

signals:
    void saved();

private:
    void restore();
    void windowChanged();

    SettingsStore& store_;
    QPointer<QWindow> window_;
    QTimer quiet_;
};

}  // namespace tapekeep
