#pragma once

#include <string>

#include "core/Timestamp.h"

namespace tapekeep {

// Where one card stands in the backup controller.
struct CardState {
    enum class Kind { idle, confirming, running, success, failed, autoBackupCountdown };

    Kind kind = Kind::idle;
    std::string message;               // for success and failed
    Clock::time_point start{}, end{};  // for autoBackupCountdown

    static CardState idle() { return {}; }
    static CardState confirming() { return {Kind::confirming, {}, {}, {}}; }
    static CardState running() { return {Kind::running, {}, {}, {}}; }
    static CardState success(std::string text) { return {Kind::success, std::move(text), {}, {}}; }
    static CardState failed(std::string text) { return {Kind::failed, std::move(text), {}, {}}; }
    static CardState autoBackupCountdown(Clock::time_point from, Clock::time_point to) {
        return {Kind::autoBackupCountdown, {}, from, to};
    }

    // "idle", "confirming", "running", "success", "failed", "autoBackupCountdown".
    static const char* rawValue(Kind kind);

    bool operator==(const CardState&) const = default;
};

}  // namespace tapekeep
