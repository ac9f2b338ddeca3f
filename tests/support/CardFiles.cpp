#include "CardFiles.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "TempDir.h"

namespace tapekeep::test {

void rewriteOnCard(const std::filesystem::path& file, const std::string& content) {
    std::filesystem::remove(file);
    writeFile(file, content);
}

bool setModificationTime(const std::filesystem::path& file, std::time_t seconds) {
    const struct timespec times[2] = {{seconds, 0}, {seconds, 0}};
    return ::utimensat(AT_FDCWD, file.c_str(), times, 0) == 0;
}

ino_t inodeOf(const std::filesystem::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return 0;
    return info.st_ino;
}

}  // namespace tapekeep::test
