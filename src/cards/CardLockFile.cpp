#include "cards/CardLockFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <string>

#include "cards/OperationLockError.h"
#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"
#include "platform/PrivateFolder.h"
#include "platform/UserFolders.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

// The UUID as one harmless file name component: anything but letters, digits, '-', '_' and '.'
// becomes %XX, so that no volume can name a path outside the folder.
std::string fileNameFor(const VolumeUUID& uuid) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string name = "card-";
    for (const unsigned char c : uuid.rawValue) {
        if (std::isalnum(c) != 0 || c == '-' || c == '_' || c == '.') {
            name += static_cast<char>(c);
        } else {
            name += '%';
            name += hex[c >> 4];
            name += hex[c & 0xF];
        }
    }
    return name + ".lock";
}

// Serialises the steps around the flock (take it and name the holder; read the holder's name;
// clear it and let go) between processes, so that a refused process never reads the file while
// its holder is still writing it. An open-file-description lock on the same file: independent of
// the flock, held only for those few system calls.
class ContentGuard {
public:
    explicit ContentGuard(int fd) : fd_(fd) {
        if (retryingInterrupts([&] { return change(F_WRLCK, F_OFD_SETLKW); }) != 0)
            throw PosixError::fromErrno(errno, "Could not lock a card lock file");
    }
    ~ContentGuard() { change(F_UNLCK, F_OFD_SETLK); }
    ContentGuard(const ContentGuard&) = delete;
    ContentGuard& operator=(const ContentGuard&) = delete;

private:
    int change(short type, int command) const {
        struct flock range {};
        range.l_type = type;
        range.l_whence = SEEK_SET;  // from offset 0 with length 0: the whole file
        return ::fcntl(fd_, command, &range);
    }
    int fd_;
};

FileDescriptor openLockFile(const fs::path& folder, const VolumeUUID& uuid) {
    const FileDescriptor directory = openPrivateFolder(folder);
    const std::string name = fileNameFor(uuid);
    FileDescriptor file = FileDescriptor::checked(
        ::openat(directory.get(), name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600),
        (folder / name).string());
    struct stat status {};
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != ::geteuid())
        throw PosixError(EPERM, (folder / name).string() + " is not a lock file of ours");
    return file;
}

// The kind the holder wrote; a file that names none (written by something else) counts as a backup.
OperationKind holderKind(int fd) {
    std::array<char, 16> buffer{};
    const ssize_t count = retryingInterrupts([&] { return ::pread(fd, buffer.data(), buffer.size(), 0); });
    if (count <= 0) return OperationKind::backup;
    return operationKindFromRawValue(std::string_view(buffer.data(), static_cast<std::size_t>(count)))
        .value_or(OperationKind::backup);
}

void nameHolder(int fd, OperationKind kind, const fs::path& file) {
    const std::string_view text = rawValue(kind);
    if (::ftruncate(fd, 0) != 0 || retryingInterrupts([&] {
                                       return ::pwrite(fd, text.data(), text.size(), 0);
                                   }) != static_cast<ssize_t>(text.size()))
        throw PosixError::fromErrno(errno, file.string());
}

}  // namespace

fs::path CardLockFile::defaultFolder() {
    return UserFolders::runtimeDir() / ("tapekeep-" + std::to_string(::geteuid()));
}

std::unique_ptr<CardLockFile> CardLockFile::acquire(const fs::path& folder, const VolumeUUID& uuid,
                                                    OperationKind kind) {
    FileDescriptor file = openLockFile(folder, uuid);
    const fs::path path = folder / fileNameFor(uuid);
    const ContentGuard guard(file.get());
    auto lock = FileLock::tryLocking(file, path.string());
    if (!lock) throw OperationLockError::conflict(holderKind(file.get()));
    nameHolder(lock->descriptor(), kind, path);
    return std::unique_ptr<CardLockFile>(new CardLockFile(std::move(*lock)));
}

bool CardLockFile::isHeld(const fs::path& folder, const VolumeUUID& uuid) {
    FileDescriptor file = openLockFile(folder, uuid);
    const ContentGuard guard(file.get());
    // Taken and let go under the guard: an acquire in between waits for the guard, not for this.
    return !FileLock::tryLocking(file, (folder / fileNameFor(uuid)).string());
}

CardLockFile::~CardLockFile() {
    try {
        const ContentGuard guard(lock_.descriptor());
        [[maybe_unused]] const int truncated = ::ftruncate(lock_.descriptor(), 0);
        ::flock(lock_.descriptor(), LOCK_UN);
    } catch (const PosixError&) {
        // Closing the descriptor below lets go all the same; only the name of the holder stays.
    }
}

}  // namespace tapekeep
