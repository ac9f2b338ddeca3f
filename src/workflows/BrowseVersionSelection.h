#pragma once

#include <filesystem>
#include <string>

#include "core/BackupSet.h"
#include "core/BackupVersion.h"

namespace tapekeep {

// The version open in the Browse tab, and what its browser is made with.
struct BrowseVersionSelection {
    std::filesystem::path versionURL;
    std::string rsyncPath;
    BackupSet backupSet;
    BackupVersion version;

    bool operator==(const BrowseVersionSelection& other) const {
        return versionURL == other.versionURL && rsyncPath == other.rsyncPath &&
               backupSet.rootURL == other.backupSet.rootURL && version.url == other.version.url;
    }
};

}  // namespace tapekeep
