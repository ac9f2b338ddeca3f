#include "workflows/BackgroundTasks.h"

namespace tapekeep {

BackgroundTasks::Id BackgroundTasks::start(Work work, EndHandler onEnded) {
    const Id id = nextId_++;
    threads_.emplace(id, std::jthread([this, id, work = std::move(work), onEnded = std::move(onEnded),
                                       poster = poster_](std::stop_token token) {
                         work(token);
                         poster->post([this, id, onEnded] {
                             reap(id);
                             if (onEnded) onEnded(id);
                         });
                     }));
    return id;
}

void BackgroundTasks::cancel(Id id) {
    if (auto found = threads_.find(id); found != threads_.end()) found->second.request_stop();
}

void BackgroundTasks::reap(Id id) {
    auto found = threads_.find(id);
    if (found == threads_.end()) return;
    found->second.join();  // the work has returned: this waits only for the thread's last steps
    threads_.erase(found);
}

void BackgroundTasks::stopAll() {
    for (auto& [id, thread] : threads_) thread.request_stop();
    for (auto& [id, thread] : threads_)
        if (thread.joinable()) thread.join();
    threads_.clear();
}

}  // namespace tapekeep
