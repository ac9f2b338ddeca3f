#pragma once

#include <chrono>
#include <exception>
#include <stop_token>

namespace tapekeep {

// Thrown when work notices that its stop_token was triggered. Never wrapped into another error.
class Cancelled : public std::exception {
public:
    [[nodiscard]] const char* what() const noexcept override { return "The operation was cancelled."; }
};

inline void throwIfCancelled(const std::stop_token& token) {
    if (token.stop_requested()) throw Cancelled();
}

// Sleeps for the duration or until cancellation; returns false when cancelled.
bool sleepFor(std::chrono::milliseconds duration, const std::stop_token& token);

// True when the exception is a cancellation.
bool isCancellation(const std::exception_ptr& error);

}  // namespace tapekeep
