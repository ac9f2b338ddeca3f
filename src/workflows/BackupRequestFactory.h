#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "backup/BackupRequest.h"
#include "core/SDCard.h"

namespace tapekeep {

class AppSettings;

// What the user chose for one run, besides the settings.
struct BackupChoice {
    std::optional<std::filesystem::path> destinationOverride;  // a one-shot destination
    std::vector<std::string> selectedFolders;
    std::vector<std::string> selectedSongs;
    bool selective = false;  // the selection is a part of the card
};

// Builds the request of one run from the settings and the user's choice; baseFolder is the usual
// store (the setting, or a front end's override). A one-shot destination other than it forces a
// full copy, so that it never hard-links into the store.
BackupRequest makeBackupRequest(const SDCard& card, const AppSettings& settings, const BackupChoice& choice,
                                const std::filesystem::path& baseFolder);

// Why the request must not run, when its kept-versions count is below what the setting allows:
// rotation would then delete every version but the one just made. Nothing when it may run.
std::optional<std::string> keepCountRefusal(const BackupRequest& request);

}  // namespace tapekeep
