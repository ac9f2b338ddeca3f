#pragma once

#include <functional>
#include <memory>
#include <mutex>

class QObject;

namespace tapekeep {

// Brings results from background threads back to a controller's thread as queued calls, and stops
// doing so once the controller is going away. Shared by the controller and its tasks.
class MainThreadPoster {
public:
    explicit MainThreadPoster(QObject* owner) : owner_(owner) {}

    // Any thread. Runs work on the owner's thread later, unless the owner has been detached by then.
    void post(std::function<void()> work);
    // The owner's destructor, first of all: no post queues anything after this returns.
    void detach();

private:
    std::mutex mutex_;
    QObject* owner_;  // guarded by mutex_; null once detached
};

}  // namespace tapekeep
