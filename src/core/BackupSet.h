#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "core/BackupVersion.h"

namespace tapekeep {

// All versions of one card: the folder "{volumeName}_{last 8 characters of the UUID}".
struct BackupSet {
    std::filesystem::path rootURL;
    std::string folderName;
    std::string volumeName;
    std::vector<BackupVersion> versions;  // newest first
};

// "{volumeName}_{id8}", id8 being the last 8 characters of the UUID, or all of it when shorter.
std::string backupSetFolderName(const std::string& volumeName, const std::string& diskUtilUUID);

}  // namespace tapekeep
