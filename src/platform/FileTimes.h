#pragma once

#include <filesystem>
#include <optional>

#include "core/Timestamp.h"

namespace tapekeep {

// When the item itself (a symbolic link is not followed) was created: its birth time where the
// file system reports one, else its modification time. Absent when the item cannot be examined.
// Any thread.
std::optional<Clock::time_point> creationTime(const std::filesystem::path& path);

// Sets the item's modification time to the present moment, leaving its access time alone.
// A symbolic link itself is touched, never its target. Throws PosixError. Any thread.
void setModificationTimeToNow(const std::filesystem::path& path);

}  // namespace tapekeep
