#include "backup/AtomicFileExport.h"

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "backup/AtomicFileExportError.h"
#include "backup/FileFingerprint.h"
#include "core/Cancelled.h"
#include "core/FileDescriptor.h"
#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"
#include "core/TestPause.h"
#include "core/Uuid.h"

namespace tapekeep::AtomicFileExport {
namespace fs = std::filesystem;

namespace {

// Between two cancellation checks a copy moves at most this much.
constexpr std::size_t copyBlockSize = 8 * 1024 * 1024;

// Removes the temporary file when the export ends, however it ends; after the rename nothing is
// left there to remove. A failure to remove is dropped: it must never replace the export's error.
class TemporaryFile {
public:
    explicit TemporaryFile(fs::path path) : path_(std::move(path)) {}
    ~TemporaryFile() {
        std::error_code ignored;
        fs::remove(path_, ignored);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    [[nodiscard]] const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

bool isPresent(const fs::path& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

void refuseChangedSource(const fs::path& source, const fs::path& destination, const FileFingerprint& before) {
    if (FileFingerprint::of(source) != before) throw AtomicFileExportError::sourceChangedDuringExport();
    if (isSameFile(source, destination)) throw AtomicFileExportError::sourceAndDestinationAreSame();
}

// The output reaches the disk before its name does, so that a crash leaves the old file or the new.
void syncToDisk(const fs::path& file, const fs::path& destination) {
    const auto output = FileDescriptor::checked(
        retryingInterrupts([&] { return ::open(file.c_str(), O_RDONLY | O_CLOEXEC); }), destination.string());
    if (::fsync(output.get()) != 0) throw PosixError::fromErrno(errno, destination.string());
}

void publish(const fs::path& temporary, const fs::path& destination) {
    if (::rename(temporary.c_str(), destination.c_str()) != 0)
        throw PosixError::fromErrno(errno != 0 ? errno : EIO, destination.string());
}

void copyBlocks(int from, int to, std::int64_t size, const fs::path& source, const std::stop_token& token) {
    for (std::int64_t copied = 0; copied < size;) {
        throwIfCancelled(token);
        const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(size - copied, copyBlockSize));
        const ssize_t count = retryingInterrupts([&] { return ::sendfile(to, from, nullptr, wanted); });
        if (count < 0) throw PosixError::fromErrno(errno, source.string());
        // A file that ends early was cut short while it was read: the fingerprint check refuses it.
        if (count == 0) return;
        copied += count;
    }
}

void copyContent(const fs::path& source, const fs::path& temporary, const fs::path& destination,
                 const std::stop_token& token) {
    throwIfCancelled(token);
    const auto input = FileDescriptor::checked(
        retryingInterrupts([&] { return ::open(source.c_str(), O_RDONLY | O_CLOEXEC); }), source.string());
    struct stat status {};
    if (::fstat(input.get(), &status) != 0) throw PosixError::fromErrno(errno, source.string());
    const auto output = FileDescriptor::checked(
        retryingInterrupts(
            [&] { return ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600); }),
        destination.string());
    copyBlocks(input.get(), output.get(), status.st_size, source, token);
    const timespec times[2] = {status.st_atim, status.st_mtim};
    if (::fchmod(output.get(), status.st_mode & 07777) != 0 || ::futimens(output.get(), times) != 0)
        throw PosixError::fromErrno(errno, destination.string());
    throwIfCancelled(token);
}

}  // namespace

fs::path temporaryPath(const fs::path& destination) {
    const fs::path name = destination.filename();
    return destination.parent_path() /
           ("." + name.stem().string() + "-export-" + makeUuid() + ".tmp" + name.extension().string());
}

void exportFile(const std::optional<fs::path>& source, const fs::path& destination, const Writer& writer,
                const std::stop_token& token) {
    throwIfCancelled(token);
    std::optional<FileFingerprint> before;
    if (source) {
        before = FileFingerprint::of(*source);
        if (isSameFile(*source, destination)) throw AtomicFileExportError::sourceAndDestinationAreSame();
    }
    const TemporaryFile temporary(temporaryPath(destination));
    writer(temporary.path());
    TestPause::at("export-written", token);
    throwIfCancelled(token);
    if (!isPresent(temporary.path())) throw AtomicFileExportError::outputMissing();
    if (source) refuseChangedSource(*source, destination, *before);
    syncToDisk(temporary.path(), destination);
    publish(temporary.path(), destination);
}

void copy(const fs::path& source, const fs::path& destination, const std::stop_token& token) {
    exportFile(
        source, destination,
        [&](const fs::path& temporary) { copyContent(source, temporary, destination, token); }, token);
}

}  // namespace tapekeep::AtomicFileExport
