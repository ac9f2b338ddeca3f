#include "FileSnapshot.h"

#include <sys/stat.h>

#include "TempDir.h"

namespace tapekeep::test {

FileSnapshot FileSnapshot::of(const std::filesystem::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return {};
    std::string bytes = S_ISREG(status.st_mode) ? readFile(path) : std::string();
    if (S_ISLNK(status.st_mode)) bytes = std::filesystem::read_symlink(path).string();
    return {bytes, status.st_ino, status.st_mode};
}

}  // namespace tapekeep::test
