#include "platform/FreeSpace.h"

#include <sys/statvfs.h>

#include <limits>

#include "core/RetryingInterrupts.h"

namespace tapekeep {

std::optional<std::int64_t> availableBytes(const std::filesystem::path& path) {
    struct statvfs status {};
    if (retryingInterrupts([&] { return ::statvfs(path.c_str(), &status); }) != 0) return std::nullopt;
    constexpr auto largest = static_cast<unsigned long long>(std::numeric_limits<std::int64_t>::max());
    const auto blocks = static_cast<unsigned long long>(status.f_bavail);
    const auto blockSize = static_cast<unsigned long long>(status.f_frsize);
    if (blockSize != 0 && blocks > largest / blockSize) return std::numeric_limits<std::int64_t>::max();
    return static_cast<std::int64_t>(blocks * blockSize);
}

}  // namespace tapekeep
