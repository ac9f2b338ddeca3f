#pragma once

#include <filesystem>

namespace tapekeep {

// Renames `from` to `to` without ever replacing an existing `to`: throws PosixError with EEXIST
// when `to` exists (a dangling symbolic link counts), or with the errno of any other failure.
// Atomic through renameat2(RENAME_NOREPLACE). Where the file system refuses that flag (EINVAL,
// as some network shares do), falls back, with a log line, to an existence test and rename(2);
// that fallback can lose a race with another process creating `to` in between.
// Any thread.
void renameNoReplace(const std::filesystem::path& from, const std::filesystem::path& to);

namespace detail {
// The fallback alone, for file systems without RENAME_NOREPLACE. Same contract, not atomic.
void renameAfterExistenceTest(const std::filesystem::path& from, const std::filesystem::path& to);
}  // namespace detail

}  // namespace tapekeep
