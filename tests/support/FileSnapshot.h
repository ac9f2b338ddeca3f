#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace tapekeep::test {

// What must not change about a file that is left alone: its kind, its bytes (or a link's target),
// its inode and its mode. Links are not followed.
struct FileSnapshot {
    std::string bytes;
    ino_t inode = 0;
    mode_t mode = 0;

    // All zero and empty when nothing is there.
    static FileSnapshot of(const std::filesystem::path& path);
    bool operator==(const FileSnapshot&) const = default;
};

}  // namespace tapekeep::test
