#pragma once

#include <map>
#include <string>
#include <vector>

#include "workflows/FolderSelection.h"
#include "workflows/RestoreMode.h"
#include "workflows/RestoreSubpathSelection.h"
#include "workflows/SongItem.h"
#include "workflows/SongsRestoreMode.h"

namespace tapekeep {

// What the user chose to restore from a version, as the wizard holds it.
struct RestoreChoice {
    RestoreMode mode = RestoreMode::fullBackup;
    SongsRestoreMode songsMode = SongsRestoreMode::fullFolder;
    std::vector<FolderSelection> folders;  // the version's top-level folders
    // A folder's listed entries, by the folder's relative path; a folder not listed counts whole.
    std::map<std::string, std::vector<RestoreSubpathSelection>> folderChildren;
    std::vector<SongItem> songs;  // the songs of the version's Songs folder
};

}  // namespace tapekeep
