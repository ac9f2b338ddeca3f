#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace tapekeep {

// Plays freedesktop sound-theme events through libcanberra, on a thread of its own: opening the
// sound device may take a while, and the caller is the GUI thread. Where no sound can play (no
// device, no theme, no such event) there is silence and a line in the log. Any thread.
class CanberraSoundPlayer {
public:
    CanberraSoundPlayer();
    ~CanberraSoundPlayer();
    CanberraSoundPlayer(const CanberraSoundPlayer&) = delete;
    CanberraSoundPlayer& operator=(const CanberraSoundPlayer&) = delete;

    void play(const std::string& eventId);

private:
    void run(std::stop_token token);

    std::mutex mutex_;
    std::condition_variable_any wake_;
    std::deque<std::string> queue_;  // guarded by mutex_
    std::jthread worker_;            // last: starts once the rest exists
};

}  // namespace tapekeep
