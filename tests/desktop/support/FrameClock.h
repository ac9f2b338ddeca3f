#pragma once

#include <QMetaObject>

#include <chrono>
#include <mutex>
#include <vector>

class QQuickWindow;

namespace tapekeep::test {

// Keeps a window drawing frame after frame, as an animation would, and records when each frame
// reached the screen. Each next frame is asked for through the GUI thread's event queue, so a
// GUI thread that is busy shows as a long interval between two frames.
class FrameClock {
public:
    explicit FrameClock(QQuickWindow& window);
    ~FrameClock();
    FrameClock(const FrameClock&) = delete;
    FrameClock& operator=(const FrameClock&) = delete;

    void stop();
    [[nodiscard]] std::size_t frames() const;
    [[nodiscard]] std::chrono::milliseconds worstInterval() const;
    [[nodiscard]] std::chrono::milliseconds medianInterval() const;

private:
    [[nodiscard]] std::vector<std::chrono::steady_clock::duration> intervals() const;

    QQuickWindow& window_;
    QMetaObject::Connection connection_;
    mutable std::mutex mutex_;
    std::vector<std::chrono::steady_clock::time_point> swaps_;  // guarded by mutex_
};

}  // namespace tapekeep::test
