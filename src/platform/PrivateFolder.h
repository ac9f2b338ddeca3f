#pragma once

#include <filesystem>

#include "core/FileDescriptor.h"

namespace tapekeep {

// Opens a folder that only this user can reach, creating it with mode 0700 when it is missing. In a
// shared folder such as /tmp another user may have made the name first, as a folder of theirs or a
// symbolic link to somewhere else: anything but a real directory of ours that no one else may enter
// is refused with PosixError, and nothing in it is touched. Any thread.
FileDescriptor openPrivateFolder(const std::filesystem::path& folder);

}  // namespace tapekeep
