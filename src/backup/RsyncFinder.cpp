#include "backup/RsyncFinder.h"

#include <sys/stat.h>
#include <unistd.h>

namespace tapekeep {

const std::vector<std::string>& rsyncCandidates() {
    static const std::vector<std::string> candidates{"/usr/local/bin/rsync", "/usr/bin/rsync"};
    return candidates;
}

std::optional<std::string> findBestRsync(const std::vector<std::string>& candidates) {
    for (const std::string& candidate : candidates) {
        if (isExecutableFile(candidate)) return candidate;
    }
    return std::nullopt;
}

bool isExecutableFile(const std::string& path) {
    struct stat info {};
    if (path.empty() || ::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
    return ::access(path.c_str(), X_OK) == 0;
}

}  // namespace tapekeep
