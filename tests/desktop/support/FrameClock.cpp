#include "FrameClock.h"

#include <QQuickWindow>

#include <algorithm>

namespace tapekeep::test {

FrameClock::FrameClock(QQuickWindow& window) : window_(window) {
    // frameSwapped comes from the render thread where there is one.
    connection_ = QObject::connect(
        &window_, &QQuickWindow::frameSwapped, &window_,
        [this] {
            {
                std::lock_guard lock(mutex_);
                swaps_.push_back(std::chrono::steady_clock::now());
            }
            QMetaObject::invokeMethod(
                &window_, [window = &window_] { window->update(); }, Qt::QueuedConnection);
        },
        Qt::DirectConnection);
    window_.update();
}

FrameClock::~FrameClock() {
    stop();
}

void FrameClock::stop() {
    QObject::disconnect(connection_);
}

std::size_t FrameClock::frames() const {
    std::lock_guard lock(mutex_);
    return swaps_.size();
}

std::vector<std::chrono::steady_clock::duration> FrameClock::intervals() const {
    std::lock_guard lock(mutex_);
    std::vector<std::chrono::steady_clock::duration> result;
    for (std::size_t index = 1; index < swaps_.size(); ++index)
        result.push_back(swaps_[index] - swaps_[index - 1]);
    return result;
}

std::chrono::milliseconds FrameClock::worstInterval() const {
    const auto all = intervals();
    if (all.empty()) return {};
    return std::chrono::duration_cast<std::chrono::milliseconds>(*std::max_element(all.begin(), all.end()));
}

std::chrono::milliseconds FrameClock::medianInterval() const {
    auto all = intervals();
    if (all.empty()) return {};
    std::nth_element(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(all.size() / 2), all.end());
    return std::chrono::duration_cast<std::chrono::milliseconds>(all[all.size() / 2]);
}

}  // namespace tapekeep::test
