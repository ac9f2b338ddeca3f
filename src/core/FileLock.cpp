#include "core/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"

namespace tapekeep {

FileLock::FileLock(const std::filesystem::path& lockFile)
    : file_(FileDescriptor::checked(::open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600),
                                    lockFile.string())) {
    if (retryingInterrupts([&] { return ::flock(file_.get(), LOCK_EX); }) != 0)
        throw PosixError::fromErrno(errno, lockFile.string());
}

std::optional<FileLock> FileLock::tryLocking(FileDescriptor& file, const std::string& context) {
    if (retryingInterrupts([&] { return ::flock(file.get(), LOCK_EX | LOCK_NB); }) == 0)
        return FileLock(std::move(file));
    if (errno == EWOULDBLOCK) return std::nullopt;
    throw PosixError::fromErrno(errno, context);
}

}  // namespace tapekeep
