#pragma once

#include <functional>

namespace tapekeep::cli {

// Runs the controllers' event loop until done() holds (checked after every batch of events). The
// first SIGINT or SIGTERM calls onInterrupt once, so that a controller can stop through its own
// cancellation path; the loop goes on until done() holds.
void runEventsUntil(const std::function<bool()>& done, const std::function<void()>& onInterrupt = {});

}  // namespace tapekeep::cli
