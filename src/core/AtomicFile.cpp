#include "core/AtomicFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "core/PosixError.h"
#include "core/Uuid.h"

namespace tapekeep {
namespace {

void writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            throw PosixError::fromErrno(errno);
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

}  // namespace

void writeNewFile(const std::filesystem::path& file, std::string_view bytes) {
    int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) throw PosixError::fromErrno(errno, file.string());
    try {
        writeAll(fd, bytes);
        if (::fsync(fd) != 0) throw PosixError::fromErrno(errno, file.string());
    } catch (...) {
        ::close(fd);
        throw;
    }
    if (::close(fd) != 0) throw PosixError::fromErrno(errno, file.string());
}

void writeFileAtomically(const std::filesystem::path& target, std::string_view bytes) {
    const auto temporary = target.parent_path() / ("." + target.filename().string() + ".tmp-" + makeUuid());
    try {
        writeNewFile(temporary, bytes);
    } catch (const PosixError& error) {
        if (error.code() != EEXIST) ::unlink(temporary.c_str());
        throw;
    }
    if (::rename(temporary.c_str(), target.c_str()) != 0) {
        int code = errno;
        ::unlink(temporary.c_str());
        throw PosixError::fromErrno(code, target.string());
    }
}

}  // namespace tapekeep
