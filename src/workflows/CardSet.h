#pragma once

#include <functional>
#include <set>
#include <string>
#include <utility>

namespace tapekeep {

// A set of cards, by volume UUID, that backs one observable property of a controller: every real
// change is told through the callback given at construction. Used on the controller's thread only.
class CardSet {
public:
    explicit CardSet(std::function<void()> changed) : changed_(std::move(changed)) {}

    void insert(const std::string& uuid) {
        if (uuids_.insert(uuid).second) changed_();
    }
    void erase(const std::string& uuid) {
        if (uuids_.erase(uuid) > 0) changed_();
    }
    [[nodiscard]] bool contains(const std::string& uuid) const { return uuids_.contains(uuid); }
    [[nodiscard]] const std::set<std::string>& all() const { return uuids_; }

private:
    std::function<void()> changed_;
    std::set<std::string> uuids_;
};

}  // namespace tapekeep
