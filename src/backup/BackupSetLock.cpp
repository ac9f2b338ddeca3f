#include "backup/BackupSetLock.h"

#include <fcntl.h>

#include "cards/OperationLockError.h"
#include "core/PosixError.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

FileLock lockSet(const fs::path& setRoot) {
    std::error_code error;
    fs::create_directories(setRoot, error);
    if (error) throw PosixError::fromErrno(error.value(), setRoot.string());
    const fs::path file = setRoot / BackupSetLock::fileName;
    // Not followed if it is a symbolic link: the lock is this file in this folder or nothing.
    FileDescriptor descriptor = FileDescriptor::checked(
        ::open(file.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600), file.string());
    auto lock = FileLock::tryLocking(descriptor, file.string());
    if (!lock) throw OperationLockError::conflict(OperationKind::backup);
    return std::move(*lock);
}

}  // namespace

BackupSetLock::BackupSetLock(const fs::path& setRoot) : setRoot_(setRoot), lock_(lockSet(setRoot)) {}

}  // namespace tapekeep
