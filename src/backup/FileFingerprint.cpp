#include "backup/FileFingerprint.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "core/FileDescriptor.h"
#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

FileFingerprint fingerprintOf(const struct stat& status) {
    return {status.st_dev,
            static_cast<std::uint64_t>(status.st_ino),
            static_cast<std::int64_t>(status.st_size),
            static_cast<std::int64_t>(status.st_mtim.tv_sec),
            static_cast<std::int64_t>(status.st_mtim.tv_nsec),
            static_cast<std::int64_t>(status.st_ctim.tv_sec),
            static_cast<std::int64_t>(status.st_ctim.tv_nsec)};
}

int knownErrno() {
    return errno != 0 ? errno : EIO;
}

// The fingerprint, or the errno of the step that failed.
std::optional<FileFingerprint> look(const fs::path& path, int& failure) {
    errno = 0;
    const FileDescriptor file(retryingInterrupts(
        [&] { return ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
    if (!file.isOpen()) {
        failure = knownErrno();
        return std::nullopt;
    }
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) {
        failure = knownErrno();
        return std::nullopt;
    }
    return fingerprintOf(status);
}

// The path with links resolved and standardised, as far as it exists; nothing when it cannot be read.
std::optional<fs::path> resolved(const fs::path& path) {
    std::error_code error;
    auto result = fs::weakly_canonical(fs::absolute(path, error), error);
    if (error) return std::nullopt;
    return result.lexically_normal();
}

}  // namespace

FileFingerprint FileFingerprint::of(const fs::path& path) {
    int failure = 0;
    if (auto fingerprint = look(path, failure)) return *fingerprint;
    throw PosixError::fromErrno(failure, path.string());
}

std::optional<FileFingerprint> FileFingerprint::tryOf(const fs::path& path) {
    int failure = 0;
    return look(path, failure);
}

bool isSameFile(const fs::path& first, const fs::path& second) {
    const auto firstPath = resolved(first);
    if (firstPath && firstPath == resolved(second)) return true;
    const auto firstFile = FileFingerprint::tryOf(first);
    const auto secondFile = FileFingerprint::tryOf(second);
    return firstFile && secondFile && firstFile->device == secondFile->device &&
           firstFile->inode == secondFile->inode;
}

}  // namespace tapekeep
