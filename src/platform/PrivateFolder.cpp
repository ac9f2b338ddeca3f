#include "platform/PrivateFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "core/PosixError.h"

namespace tapekeep {

FileDescriptor openPrivateFolder(const std::filesystem::path& folder) {
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        throw PosixError::fromErrno(errno, folder.string());
    // O_NOFOLLOW: a symbolic link in the last component fails here instead of being followed.
    FileDescriptor opened = FileDescriptor::checked(
        ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC), folder.string());
    struct stat status {};
    if (::fstat(opened.get(), &status) != 0) throw PosixError::fromErrno(errno, folder.string());
    if (status.st_uid != ::geteuid()) throw PosixError(EPERM, folder.string() + " belongs to another user");
    if ((status.st_mode & 077) != 0) throw PosixError(EPERM, folder.string() + " is open to other users");
    return opened;
}

}  // namespace tapekeep
