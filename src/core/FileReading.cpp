#include "core/FileReading.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/FileDescriptor.h"
#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"

namespace tapekeep {
namespace {

FileDescriptor openForReading(const std::filesystem::path& file, const FileReadOptions& options) {
    // O_NONBLOCK only keeps the open from waiting for a writer on a FIFO, which the type check then
    // refuses; it changes nothing for a regular file.
    const int flags = O_RDONLY | O_CLOEXEC | (options.followSymbolicLinks ? 0 : O_NOFOLLOW) |
                      (options.regularFileOnly ? O_NONBLOCK : 0);
    return FileDescriptor::checked(retryingInterrupts([&] { return ::open(file.c_str(), flags); }),
                                   file.string());
}

// The size the file reports; throws for what the options refuse.
std::size_t checkedSize(int fd, const FileReadOptions& options, const std::string& context) {
    struct stat status {};
    if (retryingInterrupts([&] { return ::fstat(fd, &status); }) != 0)
        throw PosixError::fromErrno(errno, context);
    if (options.regularFileOnly && !S_ISREG(status.st_mode))
        throw PosixError::fromErrno(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, context);
    const auto size = static_cast<std::size_t>(status.st_size);
    if (size > options.largestSize) throw PosixError::fromErrno(EFBIG, context);
    return size;
}

// The number of bytes read into [buffer, buffer + size), fewer only at the end of the file.
template <typename Bytes>
void appendUntilEnd(int fd, Bytes& bytes, std::size_t largestSize, const std::string& context) {
    char chunk[16384];
    while (const std::size_t count = readFully(fd, chunk, sizeof chunk, context)) {
        if (count > largestSize - bytes.size()) throw PosixError::fromErrno(EFBIG, context);
        bytes.insert(bytes.end(), chunk, chunk + count);
        if (count < sizeof chunk) break;
    }
}

template <typename Bytes>
Bytes readWhole(const std::filesystem::path& file, const FileReadOptions& options) {
    const std::string context = file.string();
    const FileDescriptor fd = openForReading(file, options);
    const std::size_t size = checkedSize(fd.get(), options, context);
    Bytes bytes(size, '\0');
    if (size == 0) {
        appendUntilEnd(fd.get(), bytes, options.largestSize, context);
    } else {
        bytes.resize(readFully(fd.get(), bytes.data(), size, context));  // shorter if it shrank since
    }
    return bytes;
}

}  // namespace

std::size_t readFully(int fd, char* buffer, std::size_t size, const std::string& context) {
    std::size_t filled = 0;
    while (filled < size) {
        const ssize_t count = retryingInterrupts([&] { return ::read(fd, buffer + filled, size - filled); });
        if (count < 0) throw PosixError::fromErrno(errno, context);
        if (count == 0) break;
        filled += static_cast<std::size_t>(count);
    }
    return filled;
}

std::string readWholeFile(const std::filesystem::path& file, const FileReadOptions& options) {
    return readWhole<std::string>(file, options);
}

std::vector<char> readWholeFileBytes(const std::filesystem::path& file, const FileReadOptions& options) {
    return readWhole<std::vector<char>>(file, options);
}

std::string readToEnd(int fd, const std::string& context) {
    std::string bytes;
    appendUntilEnd(fd, bytes, bytes.max_size(), context);
    return bytes;
}

}  // namespace tapekeep
