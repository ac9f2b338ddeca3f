#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tapekeep {

// The kernel's table of mounts, as /proc/self/mountinfo lists them. A value; any thread.
class MountTable {
public:
    struct Entry {
        std::filesystem::path mountPoint;
        std::string source;  // "/dev/sdb1" for a block device; any other text for a virtual or FUSE mount
        std::string fileSystemType;

        bool operator==(const Entry&) const = default;
    };

    // Reads mountinfo text; the kernel's octal escapes ("\040" for a space) are decoded.
    // Lines that do not have the documented shape are skipped.
    static MountTable parse(std::string_view mountinfo);

    // The table of this process's mount namespace now. Throws PosixError when it cannot be read.
    static MountTable readLive();

    [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }

    // The mount that holds the path: the one with the longest mount point that is the path or an
    // ancestor of it, the latest when several are stacked there. Null when none matches.
    [[nodiscard]] const Entry* mountContaining(const std::filesystem::path& path) const;

    // The mount points strictly below any of the roots, at any depth, in table order and each once.
    // Those whose last component begins with "." are left out.
    [[nodiscard]] std::vector<std::filesystem::path> volumesBelow(
        const std::vector<std::filesystem::path>& roots) const;

private:
    std::vector<Entry> entries_;
};

}  // namespace tapekeep
