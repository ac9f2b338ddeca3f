#pragma once

#include <vector>

#include "workflows/FolderDiff.h"

namespace tapekeep {

// Differences between a card and its latest backup, per top-level folder.
struct DiffSummary {
    std::vector<FolderDiff> folders;  // by name
    bool operator==(const DiffSummary&) const = default;
};

}  // namespace tapekeep
