#include "platform/FileTimes.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"

namespace tapekeep {
namespace {

Clock::time_point toTimePoint(std::int64_t seconds, std::uint32_t nanoseconds) {
    return Clock::time_point(std::chrono::duration_cast<Clock::duration>(
        std::chrono::seconds(seconds) + std::chrono::nanoseconds(nanoseconds)));
}

}  // namespace

std::optional<Clock::time_point> creationTime(const std::filesystem::path& path) {
    struct statx status {};
    const auto query = [&] {
        return ::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME | STATX_MTIME, &status);
    };
    if (retryingInterrupts(query) != 0) return std::nullopt;
    if ((status.stx_mask & STATX_BTIME) != 0)
        return toTimePoint(status.stx_btime.tv_sec, status.stx_btime.tv_nsec);
    if ((status.stx_mask & STATX_MTIME) != 0)
        return toTimePoint(status.stx_mtime.tv_sec, status.stx_mtime.tv_nsec);
    return std::nullopt;
}

void setModificationTimeToNow(const std::filesystem::path& path) {
    const struct timespec times[2] = {{0, UTIME_OMIT}, {0, UTIME_NOW}};
    const auto touch = [&] { return ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW); };
    if (retryingInterrupts(touch) != 0) throw PosixError::fromErrno(errno, path.string());
}

}  // namespace tapekeep
