#pragma once

#include <memory>

#include "workflows/BackgroundTasks.h"
#include "workflows/MainThreadPoster.h"

class QObject;

namespace tapekeep {

// The background tasks of one controller object and the poster that brings their results back to
// its thread. Destroying it stops the posting, cancels the tasks and waits for them; so an owner
// declares it after every member that its tasks use while they run, and it goes before them.
class BackgroundWork {
public:
    explicit BackgroundWork(QObject* owner)
        : poster_(std::make_shared<MainThreadPoster>(owner)), tasks_(poster_) {}
    BackgroundWork(const BackgroundWork&) = delete;
    BackgroundWork& operator=(const BackgroundWork&) = delete;
    ~BackgroundWork() {
        poster_->detach();
        tasks_.stopAll();
    }

    [[nodiscard]] const std::shared_ptr<MainThreadPoster>& poster() const { return poster_; }
    [[nodiscard]] BackgroundTasks& tasks() { return tasks_; }

private:
    std::shared_ptr<MainThreadPoster> poster_;
    BackgroundTasks tasks_;
};

}  // namespace tapekeep
