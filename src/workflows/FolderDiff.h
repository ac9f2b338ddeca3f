#pragma once

#include <string>

namespace tapekeep {

// How many files of one top-level folder were added, modified or deleted.
struct FolderDiff {
    std::string name;  // the top-level folder, or "" for files at the card's root
    int added = 0, modified = 0, deleted = 0;
    bool operator==(const FolderDiff&) const = default;
};

}  // namespace tapekeep
