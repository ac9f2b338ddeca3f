#include "cli/EventLoop.h"

#include <QEventLoop>
#include <QTimer>

#include "cli/SignalCancellation.h"

namespace tapekeep::cli {

void runEventsUntil(const std::function<bool()>& done, const std::function<void()>& onInterrupt) {
    // Signals arrive on their own thread; the check below hands them to the controller.
    bool interruptHandled = false;
    while (!done()) {
        if (SignalCancellation::signalled() && !interruptHandled) {
            if (onInterrupt) onInterrupt();
            interruptHandled = true;
        }
        QEventLoop loop;
        QTimer::singleShot(50, &loop, &QEventLoop::quit);
        loop.exec();
    }
}

}  // namespace tapekeep::cli
