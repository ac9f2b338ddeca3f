#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "edits/EditMode.h"

namespace tapekeep {

// What the stage sheet decided: which part of which sample goes where.
struct EditStagingRequest {
    std::filesystem::path source;  // the sample inside the backup version
    double rangeLow = 0;           // the kept range, in seconds from the start of the source
    double rangeHigh = 0;
    double originalDuration = 0;  // of the source, in seconds
    EditMode mode = EditMode::saveAsNew;
    std::string sourceVersionFolder;             // the backup version's folder name
    std::string sourceRelativePath;              // card path of the source
    std::string targetRelativePath;              // card path to write
    std::string backupRootName;                  // the backup set
    std::vector<std::string> affectedSongs;      // card paths of the songs that use the sample
    std::optional<std::string> replacingEditID;  // the pending edit that this one replaces
    std::vector<std::string> backupPaths;        // card paths in the backup version, for the collision test
};

}  // namespace tapekeep
