#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "core/SDCard.h"

namespace tapekeep {

// Everything one backup run needs, copied from the settings when the run starts.
struct BackupRequest {
    SDCard card;
    std::filesystem::path baseURL;  // the store, or a one-shot destination
    std::string rsyncPath;
    int keepCount = 5;
    std::vector<std::string> selectedFolders;  // card-relative
    std::vector<std::string> selectedSongs;    // card-relative
    bool selective = false;
    bool forceFullCopy = false;  // no link base at all: a copy that stands alone
    bool verify = false;
    std::string mismatchAction = "flag";  // "retry", "flag" or "abort"
    bool rotate = true;
};

}  // namespace tapekeep
