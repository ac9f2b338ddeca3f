#pragma once

#include <filesystem>
#include <stop_token>

#include "core/FileDescriptor.h"

// Copies that neither follow a symbolic link nor replace anything: what lets a file leave a backup
// version without a link on the way leading somewhere else, and arrive in a folder of the user's
// without losing a file that was already there. Stateless; any thread.
namespace tapekeep::ExclusiveCopy {

// Opens the regular file at an absolute path whose every component is a real folder or, last, a real
// file: a symbolic link anywhere on the way fails (ELOOP or ENOTDIR) instead of being followed, and so
// does anything but a regular file at the end (EINVAL). Throws PosixError naming the path.
FileDescriptor openRegularFileWithoutLinks(const std::filesystem::path& absolutePath);

// Writes the open file's contents, permissions and modification time to a file created at
// `destination`, which must not exist yet: an existing name, a dangling symbolic link included, fails
// with EEXIST and is left untouched. A copy that fails half-way leaves no file. Throws PosixError, or
// Cancelled before the first byte.
void copyToNewFile(int sourceFd, const std::filesystem::path& destination, const std::stop_token& token);

}  // namespace tapekeep::ExclusiveCopy
