#include "core/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "core/PosixError.h"

namespace tapekeep {

FileLock::FileLock(const std::filesystem::path& lockFile) {
    fd_ = ::open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ < 0) throw PosixError::fromErrno(errno, lockFile.string());
    while (::flock(fd_, LOCK_EX) != 0) {
        if (errno == EINTR) continue;
        const int code = errno;
        ::close(fd_);
        throw PosixError::fromErrno(code, lockFile.string());
    }
}

FileLock::~FileLock() {
    ::close(fd_);
}

}  // namespace tapekeep
