#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

namespace tapekeep {

// Bytes an unprivileged user may still write on the file system holding `path` (statvfs:
// f_bavail × f_frsize). Absent when the file system cannot be asked. Any thread.
std::optional<std::int64_t> availableBytes(const std::filesystem::path& path);

}  // namespace tapekeep
