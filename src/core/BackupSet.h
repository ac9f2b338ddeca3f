#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "core/BackupVersion.h"

namespace tapekeep {

// All versions of one card: the folder "{volumeName}_{id8}" (see backupSetFolderName).
struct BackupSet {
    std::filesystem::path rootURL;
    std::string folderName;
    std::string volumeName;
    std::vector<BackupVersion> versions;  // newest first
};

// "{volumeName}_{id8}", id8 being the last 8 characters of the UUID with its dashes removed, or
// all of them when fewer: "M8_4C3C645B" for a card named M8 with the UUID 4C3C-645B.
std::string backupSetFolderName(const std::string& volumeName, const std::string& diskUtilUUID);

}  // namespace tapekeep
