#include "core/LinkWalk.h"

#include <sys/stat.h>

#include <cerrno>

#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"

namespace tapekeep {

std::optional<std::filesystem::path> firstSymbolicLink(const std::filesystem::path& root,
                                                       const std::vector<std::string>& components,
                                                       UnreadableComponent unreadable) {
    std::filesystem::path walked = root;
    for (const auto& component : components) {
        walked /= component;
        struct stat status {};
        if (retryingInterrupts([&] { return ::lstat(walked.c_str(), &status); }) != 0) {
            if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
            if (unreadable == UnreadableComponent::fails) throw PosixError::fromErrno(errno, walked.string());
            continue;
        }
        if (S_ISLNK(status.st_mode)) return walked;
    }
    return std::nullopt;
}

}  // namespace tapekeep
