#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <stop_token>
#include <thread>

#include "workflows/MainThreadPoster.h"

namespace tapekeep {

// The background work of a controller: each task on a thread of its own, cancellable through its
// stop token, and joined on the controller's thread once it has ended. Used on the controller's
// thread only; the work itself runs elsewhere and reports through the poster.
class BackgroundTasks {
public:
    using Id = std::uint64_t;
    using Work = std::function<void(std::stop_token token)>;

    explicit BackgroundTasks(std::shared_ptr<MainThreadPoster> poster) : poster_(std::move(poster)) {}
    ~BackgroundTasks() { stopAll(); }

    using EndHandler = std::function<void(Id id)>;

    // Starts work; once it returns, onEnded (if any) runs on the controller's thread with the task's id.
    Id start(Work work, EndHandler onEnded = {});
    void cancel(Id id);
    [[nodiscard]] bool isRunning(Id id) const { return threads_.contains(id); }
    // Cancels every task and waits for all of them.
    void stopAll();

private:
    void reap(Id id);

    std::shared_ptr<MainThreadPoster> poster_;
    std::map<Id, std::jthread> threads_;
    Id nextId_ = 1;
};

}  // namespace tapekeep
