#pragma once

#include <map>
#include <string>

#include "workflows/BackgroundTasks.h"

namespace tapekeep {

// The background task of each card for one kind of work, by volume UUID: at most one is the card's
// at a time, and a task that ended after being replaced is never taken for its replacement. Used
// on the owner's thread only.
class CardTasks {
public:
    explicit CardTasks(BackgroundTasks& tasks) : tasks_(tasks) {}

    // Starts work as the card's task, in place of any earlier one (which goes on unless stopped).
    BackgroundTasks::Id start(const std::string& uuid, BackgroundTasks::Work work,
                              BackgroundTasks::EndHandler onEnded = {}) {
        const auto id = tasks_.start(std::move(work), std::move(onEnded));
        ids_.insert_or_assign(uuid, id);
        return id;
    }
    // Forgets the card's task when it is still the one that ended, not a later replacement.
    bool forget(const std::string& uuid, BackgroundTasks::Id id) {
        auto found = ids_.find(uuid);
        if (found == ids_.end() || found->second != id) return false;
        ids_.erase(found);
        return true;
    }
    // Forgets the card's task, whichever it is.
    bool forget(const std::string& uuid) { return ids_.erase(uuid) > 0; }
    // Cancels the card's task and forgets it; false when it had none.
    bool stop(const std::string& uuid) {
        auto found = ids_.find(uuid);
        if (found == ids_.end()) return false;
        tasks_.cancel(found->second);
        ids_.erase(found);
        return true;
    }
    // Cancels the card's task but keeps it as the card's until it ends; false when it had none.
    bool requestStop(const std::string& uuid) {
        auto found = ids_.find(uuid);
        if (found == ids_.end()) return false;
        tasks_.cancel(found->second);
        return true;
    }
    void requestStopAll() {
        for (const auto& [uuid, id] : ids_) tasks_.cancel(id);
    }
    [[nodiscard]] bool contains(const std::string& uuid) const { return ids_.contains(uuid); }
    [[nodiscard]] const std::map<std::string, BackgroundTasks::Id>& all() const { return ids_; }

private:
    BackgroundTasks& tasks_;
    std::map<std::string, BackgroundTasks::Id> ids_;
};

}  // namespace tapekeep
