#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>

namespace tapekeep {

// What one open and fstat tell about a file: enough to see that it is the same file (device and
// inode) and that it did not change between two looks (size, modification and status change times).
// A touch that changes no byte still moves the status change time. The device is the platform's
// dev_t: on Linux it is 64 bits wide, and cut to 32 two devices could look alike.
struct FileFingerprint {
    dev_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = 0;
    std::int64_t modificationSeconds = 0;
    std::int64_t modificationNanoseconds = 0;
    std::int64_t statusChangeSeconds = 0;
    std::int64_t statusChangeNanoseconds = 0;

    bool operator==(const FileFingerprint&) const = default;

    // Opens the path for reading (through links; a FIFO without waiting for a writer), fstats it and
    // closes it at once. Throws PosixError with the errno, EIO when there is none. Any thread.
    static FileFingerprint of(const std::filesystem::path& path);
    // The same, or nothing when the path cannot be opened.
    static std::optional<FileFingerprint> tryOf(const std::filesystem::path& path);
};

// Whether the two paths name one file: the same path once links are resolved, or the same device
// and inode, as hard links between backup versions are. A path that cannot be opened (a destination
// not yet written) is no other path's file. Any thread.
bool isSameFile(const std::filesystem::path& first, const std::filesystem::path& second);

}  // namespace tapekeep
