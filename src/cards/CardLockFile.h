#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "cards/OperationKind.h"
#include "cards/VolumeUUID.h"
#include "core/FileLock.h"

namespace tapekeep {

// The part of a lease that other processes see: an flock on `card-<UUID>.lock` in a private
// folder, so that the desktop application, the CLI and a watcher never work on one card at once.
// While held the file names the holder's kind, so that a refused process can say what is going on.
// Released when destroyed, or by the system when the process dies. Any thread; one owner.
class CardLockFile {
public:
    // ${XDG_RUNTIME_DIR:-/tmp}/tapekeep-<uid>
    static std::filesystem::path defaultFolder();

    // Holds the card for `kind`, or throws OperationLockError::conflict with the kind of the other
    // process's holder. Throws PosixError when the folder (see openPrivateFolder) or the file
    // cannot be used.
    static std::unique_ptr<CardLockFile> acquire(const std::filesystem::path& folder, const VolumeUUID& uuid,
                                                 OperationKind kind);

    // Whether any holder (another process, or another lease of this one) has the card now, without
    // ever keeping a starting holder out: the probe waits on the same guard as acquire does. Throws
    // PosixError as acquire does.
    static bool isHeld(const std::filesystem::path& folder, const VolumeUUID& uuid);

    CardLockFile(const CardLockFile&) = delete;
    CardLockFile& operator=(const CardLockFile&) = delete;
    ~CardLockFile();

private:
    explicit CardLockFile(FileLock lock) : lock_(std::move(lock)) {}

    FileLock lock_;
};

}  // namespace tapekeep
