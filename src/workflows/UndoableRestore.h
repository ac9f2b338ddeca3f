#pragma once

#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>

#include "backup/BackupOperation.h"
#include "backup/BackupRequest.h"
#include "backup/RestoreError.h"
#include "core/SDCard.h"
#include "workflows/RestoreOperation.h"
#include "workflows/RestoreUndoRecord.h"

namespace tapekeep {

// A restore that can be taken back. rsync's -u means restoring an older version can never put back
// the newer files a restore replaced, so before the restore writes anything the card is backed up as
// a normal version of its set (the safety version), and what the restore is about to change and add
// is recorded beside it (RestoreUndoRecord). undo() puts those files back from the safety version
// and removes the added ones.
//
// The caller holds the card's restore lease across everything here: the safety backup, the preview,
// the restore and the undo run under it, and the backup engine takes no lease of its own. run() and
// undo() block the calling thread; onLine is called on it.
class UndoableRestore {
public:
    struct Request {
        RestoreOperation::Request restore;
        // The safety backup's request, as a backup of the whole card is built from the settings;
        // absent when the setting backupBeforeRestore is off, and the restore then cannot be undone.
        std::optional<BackupRequest> safetyBackup;
        std::filesystem::path baseFolder;  // the store holding the card's set, its record and safety version
    };

    struct Dependencies {
        RestoreOperation::Dependencies restore;
        BackupOperation::VolumeValidator validateVolume;  // the backup engine's identity check
        BackupOperation::Environment environment = BackupOperation::Environment::system();
    };

    struct Result {
        std::optional<RestoreError> failure;                 // the restore's, as RestoreOperation::run says
        std::optional<std::filesystem::path> safetyVersion;  // a version made for this restore
    };

    // The safety backup (or none, when the card is up to date with its latest version), the record,
    // then the restore. A failed safety backup throws RestoreUndoError::safetyBackupFailed before
    // anything is written to the card. Throws as RestoreOperation::run does, and Cancelled.
    static Result run(const Request& request, const RestoreOperation::LineHandler& onLine,
                      const Dependencies& dependencies, std::stop_token token);

    // True when a restore with the setting on would back the card up first: the card differs from
    // the latest version of its set, or the set has none. Throws Cancelled, and an Error when the
    // card or the set cannot be read.
    static bool needsSafetyBackup(const SDCard& card, const std::filesystem::path& baseFolder,
                                  std::stop_token token);

    // Puts the card back as the safety version of its last restore had it, for the files that
    // restore changed and added, and forgets the restore. Returns the safety version. Throws
    // RestoreUndoError (nothing to undo, safety version gone), RestoreError (volumeUnmounted, or the
    // rsync run's failure), and Cancelled.
    static std::filesystem::path undo(const SDCard& card, const std::filesystem::path& baseFolder,
                                      const std::string& rsyncPath,
                                      const RestoreOperation::LineHandler& onLine,
                                      const RestoreOperation::Dependencies& dependencies,
                                      std::stop_token token);

    // The set folder of a card under the base folder.
    static std::filesystem::path setRootOf(const SDCard& card, const std::filesystem::path& baseFolder);
};

}  // namespace tapekeep
