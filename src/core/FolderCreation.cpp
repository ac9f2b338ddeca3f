#include "core/FolderCreation.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "core/FileDescriptor.h"
#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

FileDescriptor openFolder(const fs::path& folder) {
    return FileDescriptor::checked(
        retryingInterrupts([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }),
        folder.string());
}

FileDescriptor enterOrMakeFolder(const FileDescriptor& parent, const fs::path& name, const fs::path& path,
                                 const std::function<void(const fs::path&)>& refuseLink) {
    if (retryingInterrupts([&] { return ::mkdirat(parent.get(), name.c_str(), 0777); }) != 0 &&
        errno != EEXIST)
        throw PosixError::fromErrno(errno, path.string());
    const int child = retryingInterrupts([&] {
        return ::openat(parent.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    });
    if (child < 0 && errno == ELOOP) refuseLink(path);
    return FileDescriptor::checked(child, path.string());
}

}  // namespace

void makeFoldersWithoutFollowingLinks(const fs::path& root, const fs::path& folder,
                                      const std::function<void(const fs::path& link)>& refuseLink) {
    FileDescriptor current = openFolder(root);
    fs::path reached = root;
    for (const auto& name : folder.lexically_relative(root)) {
        if (name == "." || name.empty()) continue;  // the folder is the root itself
        reached /= name;
        current = enterOrMakeFolder(current, name, reached, refuseLink);
    }
}

}  // namespace tapekeep
