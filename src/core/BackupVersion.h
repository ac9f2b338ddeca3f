#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "core/Timestamp.h"

namespace tapekeep {

// One published snapshot folder, "backup-<yyyy-MM-dd-HHmmss>".
struct BackupVersion {
    std::filesystem::path url;
    std::string folderName;
    std::optional<Clock::time_point> date;  // from the folder name; absent when it does not parse
    bool isLatest = false;
};

}  // namespace tapekeep
