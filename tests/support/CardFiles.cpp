#include "CardFiles.h"

#include <sys/stat.h>

#include "TempDir.h"

namespace tapekeep::test {

void rewriteOnCard(const std::filesystem::path& file, const std::string& content) {
    std::filesystem::remove(file);
    writeFile(file, content);
}

ino_t inodeOf(const std::filesystem::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return 0;
    return info.st_ino;
}

}  // namespace tapekeep::test
