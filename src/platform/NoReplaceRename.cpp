#include "platform/NoReplaceRename.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "core/Log.h"
#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"

namespace tapekeep {
namespace {

PosixError renameError(int code, const std::filesystem::path& from, const std::filesystem::path& to) {
    return PosixError::fromErrno(code, "Could not rename " + from.string() + " to " + to.string());
}

// 0 or the errno of renameat2(RENAME_NOREPLACE).
int renameExclusive(const std::filesystem::path& from, const std::filesystem::path& to) {
    const int result = retryingInterrupts(
        [&] { return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE); });
    return result == 0 ? 0 : errno;
}

}  // namespace

void renameNoReplace(const std::filesystem::path& from, const std::filesystem::path& to) {
    const int code = renameExclusive(from, to);
    if (code == 0) return;
    if (code != EINVAL && code != ENOSYS) throw renameError(code, from, to);
    Log("NoReplaceRename")
        .info("The file system refused RENAME_NOREPLACE for " + to.string() +
              "; renaming after an existence test instead");
    detail::renameAfterExistenceTest(from, to);
}

namespace detail {

void renameAfterExistenceTest(const std::filesystem::path& from, const std::filesystem::path& to) {
    struct stat status {};
    if (retryingInterrupts([&] { return ::lstat(to.c_str(), &status); }) == 0)
        throw renameError(EEXIST, from, to);
    if (errno != ENOENT) throw renameError(errno, from, to);
    if (retryingInterrupts([&] { return ::rename(from.c_str(), to.c_str()); }) != 0)
        throw renameError(errno, from, to);
}

}  // namespace detail
}  // namespace tapekeep
