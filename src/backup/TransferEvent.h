#pragma once

#include <cstdint>
#include <optional>

namespace tapekeep {

// What a backup run tells its controller about the transfer, besides rsync's own lines:
// the dry run's estimate (absent when there is none) and the end of a transfer pass.
// A plain value; build one with the named constructors.
struct TransferEvent {
    enum class Kind { expectedBytes, expectedFiles, transferFinished };

    Kind kind = Kind::transferFinished;
    std::optional<std::int64_t> value;  // the count of expectedBytes and expectedFiles; absent otherwise

    static TransferEvent expectedBytes(std::optional<std::int64_t> bytes) {
        return {Kind::expectedBytes, bytes};
    }
    static TransferEvent expectedFiles(std::optional<std::int64_t> files) {
        return {Kind::expectedFiles, files};
    }
    static TransferEvent transferFinished() { return {Kind::transferFinished, std::nullopt}; }

    friend bool operator==(const TransferEvent&, const TransferEvent&) = default;
};

}  // namespace tapekeep
