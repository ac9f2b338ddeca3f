#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace tapekeep {

// Named posts with a string object, delivered synchronously on the posting thread.
// Observers that own GUI state hop to their own thread themselves. Thread-safe.
class NotificationCenter {
public:
    using Token = std::uint64_t;
    using Observer = std::function<void(const std::string& object)>;

    static NotificationCenter& defaultCenter();

    Token addObserver(const std::string& name, Observer observer);
    void removeObserver(Token token);
    void post(const std::string& name, const std::string& object);

private:
    struct Registration {
        std::string name;
        Observer observer;
    };
    std::mutex mutex_;
    std::map<Token, Registration> observers_;  // guarded by mutex_
    Token nextToken_ = 1;                      // guarded by mutex_
};

namespace Notifications {
inline constexpr const char* backupsDidChange = "Tapekeep.backupsDidChange";
inline constexpr const char* editsDidChange = "Tapekeep.editsDidChange";
inline constexpr const char* cardContentMayHaveChanged = "Tapekeep.cardContentMayHaveChanged";
}  // namespace Notifications

}  // namespace tapekeep
