#pragma once

#include <string>

#include "core/FileDiff.h"

namespace tapekeep {

// How many files of one top-level folder were added, modified or deleted.
struct FolderDiff {
    std::string name;  // the top-level folder, or "" for files at the card's root
    int added = 0, modified = 0, deleted = 0;

    // Counts one more difference of this kind.
    void count(FileDiff::Kind kind) {
        switch (kind) {
            case FileDiff::Kind::added:
                ++added;
                break;
            case FileDiff::Kind::modified:
                ++modified;
                break;
            case FileDiff::Kind::deleted:
                ++deleted;
                break;
        }
    }

    bool operator==(const FolderDiff&) const = default;
};

}  // namespace tapekeep
