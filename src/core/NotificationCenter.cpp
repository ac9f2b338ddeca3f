#include "core/NotificationCenter.h"

#include <vector>

namespace tapekeep {

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter center;
    return center;
}

NotificationCenter::Token NotificationCenter::addObserver(const std::string& name, Observer observer) {
    std::lock_guard lock(mutex_);
    Token token = nextToken_++;
    observers_.emplace(token, Registration{name, std::move(observer)});
    return token;
}

void NotificationCenter::removeObserver(Token token) {
    std::lock_guard lock(mutex_);
    observers_.erase(token);
}

void NotificationCenter::post(const std::string& name, const std::string& object) {
    std::vector<Observer> matching;
    {
        std::lock_guard lock(mutex_);
        for (const auto& [token, registration] : observers_)
            if (registration.name == name) matching.push_back(registration.observer);
    }
    // Called outside the lock so that an observer may add or remove observers.
    for (const auto& observer : matching) observer(object);
}

}  // namespace tapekeep
