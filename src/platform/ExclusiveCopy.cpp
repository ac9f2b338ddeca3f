#include "platform/ExclusiveCopy.h"

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>
#include <string>

#include "core/Cancelled.h"
#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"

namespace tapekeep::ExclusiveCopy {
namespace fs = std::filesystem;

namespace {

FileDescriptor openBelow(int parentFd, const std::string& name, int flags, const fs::path& whole) {
    return FileDescriptor::checked(
        retryingInterrupts([&] { return ::openat(parentFd, name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC); }),
        whole.string());
}

struct stat statusOf(int fd, const fs::path& path) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) throw PosixError::fromErrno(errno, path.string());
    return status;
}

void copyContents(int from, int to, const fs::path& destination) {
    for (;;) {
        const ssize_t count = retryingInterrupts([&] { return ::sendfile(to, from, nullptr, 1 << 20); });
        if (count < 0) throw PosixError::fromErrno(errno, destination.string());
        if (count == 0) return;
    }
}

void copyAttributes(const struct stat& source, int to, const fs::path& destination) {
    const timespec times[2] = {source.st_atim, source.st_mtim};
    if (::fchmod(to, source.st_mode & 0777) != 0 || ::futimens(to, times) != 0)
        throw PosixError::fromErrno(errno, destination.string());
}

}  // namespace

FileDescriptor openRegularFileWithoutLinks(const fs::path& absolutePath) {
    if (!absolutePath.is_absolute()) throw PosixError(EINVAL, absolutePath.string() + " is not absolute");
    FileDescriptor current = openBelow(AT_FDCWD, "/", O_RDONLY | O_DIRECTORY, absolutePath);
    const fs::path relative = absolutePath.relative_path();
    for (auto component = relative.begin(); component != relative.end(); ++component) {
        if (component->empty()) continue;  // a trailing separator
        // Opening a FIFO for reading would wait for a writer: the last open never blocks.
        const bool last = std::next(component) == relative.end();
        current = openBelow(current.get(), component->native(), O_RDONLY | (last ? O_NONBLOCK : O_DIRECTORY),
                            absolutePath);
    }
    if (!S_ISREG(statusOf(current.get(), absolutePath).st_mode))
        throw PosixError(EINVAL, absolutePath.string() + " is not a regular file");
    return current;
}

void copyToNewFile(int sourceFd, const fs::path& destination, const std::stop_token& token) {
    throwIfCancelled(token);
    const struct stat source = statusOf(sourceFd, destination);
    FileDescriptor output = FileDescriptor::checked(
        retryingInterrupts([&] {
            return ::open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        }),
        destination.string());
    try {
        if (::lseek(sourceFd, 0, SEEK_SET) < 0) throw PosixError::fromErrno(errno, destination.string());
        copyContents(sourceFd, output.get(), destination);
        copyAttributes(source, output.get(), destination);
    } catch (...) {
        output.reset();
        ::unlink(destination.c_str());
        throw;
    }
}

}  // namespace tapekeep::ExclusiveCopy
