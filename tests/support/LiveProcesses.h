#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace tapekeep::test {

// The running processes (zombies left out) whose command line holds both texts, such as every
// "rsync" that works on a test's temporary folder.
std::vector<pid_t> liveProcessesMentioning(const std::string& program, const std::string& text);

// True while the process exists and is not a zombie that no one reaps.
bool isLive(pid_t pid);

// Checks `done` until it holds; false when it still did not after `limit`. The limit only guards
// against a hang: a test waits for a state, never for an amount of time.
bool waitUntil(const std::function<bool()>& done, std::chrono::seconds limit = std::chrono::seconds(120));

}  // namespace tapekeep::test
