#pragma once

#include <string>

namespace tapekeep {

// Says that a copy of a pending saveAsNew edit to a card has begun and may have finished.
struct PendingCommitMarker {
    int schemaVersion = 1;
    std::string editID;
    std::string stagedFileName;
    std::string targetRelativePath;

    bool operator==(const PendingCommitMarker&) const = default;
};

}  // namespace tapekeep
