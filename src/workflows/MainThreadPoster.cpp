#include "workflows/MainThreadPoster.h"

#include <QMetaObject>
#include <QObject>

namespace tapekeep {

void MainThreadPoster::post(std::function<void()> work) {
    std::lock_guard lock(mutex_);
    if (owner_ == nullptr) return;
    // Queued calls to an object are discarded when it is destroyed, so none can outlive it.
    QMetaObject::invokeMethod(owner_, std::move(work), Qt::QueuedConnection);
}

void MainThreadPoster::detach() {
    std::lock_guard lock(mutex_);
    owner_ = nullptr;
}

}  // namespace tapekeep
