#pragma once

#include <cstdint>
#include <optional>

namespace tapekeep {

// What the store holds for one card.
struct BackupInfo {
    int versions = 0;
    std::optional<std::int64_t> totalSize;  // logical bytes of all versions, once known

    bool operator==(const BackupInfo&) const = default;
};

}  // namespace tapekeep
