#pragma once

#include <filesystem>

namespace tapekeep {

// An exclusive flock on a lock file, held for the object's lifetime, so that this process and
// others (the desktop application and the CLI) take turns. Blocks until the lock is free.
// Throws PosixError when the lock file cannot be opened or locked.
class FileLock {
public:
    explicit FileLock(const std::filesystem::path& lockFile);
    ~FileLock();  // closing the descriptor drops the lock
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    int fd_ = -1;
};

}  // namespace tapekeep
