#pragma once

#include <filesystem>

#include "core/FileLock.h"

namespace tapekeep {

// A backup's hold on its set folder, through an flock on the set's `.tapekeep-lock`, from before it
// reads `latest` until after rotation. It keeps two runs apart wherever they come from, even two
// processes that do not share a card lock folder. While it is held, no other run can be staging in
// the set. Listings skip the file, as they skip every hidden name.
class BackupSetLock {
public:
    static constexpr const char* fileName = ".tapekeep-lock";

    // Creates the set folder if needed and holds its lock. Throws OperationLockError::conflict
    // (backup) when another run holds it, PosixError when the folder or the file cannot be used.
    explicit BackupSetLock(const std::filesystem::path& setRoot);

    [[nodiscard]] const std::filesystem::path& setRoot() const { return setRoot_; }

private:
    std::filesystem::path setRoot_;
    FileLock lock_;
};

}  // namespace tapekeep
