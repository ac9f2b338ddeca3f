#pragma once

#include <cstdint>
#include <filesystem>
#include <stop_token>
#include <vector>

#include "workflows/FolderSelection.h"
#include "workflows/SongItem.h"

namespace tapekeep {

// What the options sheet offers from one card: its top-level folders, each chosen, by name, and the
// songs below its Songs folder, none chosen, by path. A song is a regular file whose extension
// reads ".m8s" in any letter case (a FAT card keeps "SONG.M8S" as written); hidden files, such as
// the "._" companions that another computer leaves, are neither songs nor folders.
struct CardOptionsListing {
    std::vector<FolderSelection> folders;
    std::vector<SongItem> songs;

    // Throws only Cancelled; what cannot be read is left out.
    static CardOptionsListing read(const std::filesystem::path& mountPath, std::stop_token token);
    // The bytes of the regular files below a folder; links are not followed. Throws only Cancelled.
    static std::int64_t folderSize(const std::filesystem::path& folder, std::stop_token token);
};

}  // namespace tapekeep
