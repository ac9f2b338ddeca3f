#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "core/FileDescriptor.h"

namespace tapekeep {

// An exclusive flock on a lock file, held for the object's lifetime, so that this process and
// others (the desktop application and the CLI) take turns. Two opens of one file exclude each
// other even within one process. Throws PosixError when the lock file cannot be opened or locked.
class FileLock {
public:
    // Blocks until the lock is free.
    explicit FileLock(const std::filesystem::path& lockFile);

    // Takes the lock on an open file without waiting: the lock then owns the descriptor. Absent when
    // another open file holds it, and the descriptor stays the caller's.
    static std::optional<FileLock> tryLocking(FileDescriptor& file, const std::string& context);

    FileLock(FileLock&&) noexcept = default;
    FileLock& operator=(FileLock&&) noexcept = default;
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock() = default;  // closing the descriptor drops the lock

    [[nodiscard]] int descriptor() const { return file_.get(); }

private:
    explicit FileLock(FileDescriptor file) : file_(std::move(file)) {}

    FileDescriptor file_;
};

}  // namespace tapekeep
