#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tapekeep {

// Where one edit stands during an apply run.
struct ApplyProgress {
    enum class Phase { starting, copying, verifying, done, failed };

    Phase phase = Phase::starting;
    // While copying: bytes written so far. Never given now, so the copy shows as indeterminate.
    std::optional<std::int64_t> bytesWritten;
    std::string message;  // why the run gave up on the edit; failed only

    static ApplyProgress starting() { return {Phase::starting, std::nullopt, {}}; }
    static ApplyProgress copying() { return {Phase::copying, std::nullopt, {}}; }
    static ApplyProgress verifying() { return {Phase::verifying, std::nullopt, {}}; }
    static ApplyProgress done() { return {Phase::done, std::nullopt, {}}; }
    static ApplyProgress failed(std::string message) {
        return {Phase::failed, std::nullopt, std::move(message)};
    }

    bool operator==(const ApplyProgress&) const = default;
};

}  // namespace tapekeep
