#pragma once

#include <string>

#include "content/FileNode.h"

namespace tapekeep {

// One result of a search of a backup version.
struct BrowseSearchHit {
    FileNode node;
    // The folders from the version root to the node joined with "/", no leading slash; "" at the top.
    std::string relativeFolder;

    // The node's path below the version root.
    [[nodiscard]] std::string relativePath() const {
        return relativeFolder.empty() ? node.name : relativeFolder + "/" + node.name;
    }
};

}  // namespace tapekeep
