#include "platform/FileTimes.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <cerrno>

#include "TempDir.h"
#include "core/PosixError.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::TempDir;
using test::writeFile;

// File system clocks are coarse and may trail the system clock by a tick.
constexpr auto slack = 2s;

const Clock::time_point year2001 = Clock::from_time_t(978307200);
const Clock::time_point year2002 = Clock::from_time_t(1009843200);

void setTimes(const fs::path& path, Clock::time_point accessed, Clock::time_point modified) {
    const struct timespec times[2] = {{Clock::to_time_t(accessed), 0}, {Clock::to_time_t(modified), 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

struct stat statusOf(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0);
    return status;
}

bool fileSystemReportsBirthTime(const fs::path& path) {
    struct statx status {};
    return ::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &status) == 0 &&
           (status.stx_mask & STATX_BTIME) != 0;
}

TEST(FileTimesTest, CreationTimeIsBirthTimeWhereReportedElseModificationTimeAndNeverFollowsLinks) {
    TempDir temp;
    const auto before = Clock::now();
    writeFile(temp / "file", "x");
    fs::create_directory(temp / "folder");
    for (const char* name : {"file", "folder"}) {
        const auto created = creationTime(temp / name);
        ASSERT_TRUE(created.has_value()) << name;
        EXPECT_GE(*created, before - slack) << name;
        EXPECT_LE(*created, Clock::now() + slack) << name;
    }
    setTimes(temp / "file", year2002, year2001);
    if (fileSystemReportsBirthTime(temp / "file")) {
        EXPECT_GE(creationTime(temp / "file"), before - 1h)
            << "an old modification time taken for the creation";
    } else {
        EXPECT_EQ(creationTime(temp / "file"), year2001);
    }
    fs::create_symlink(temp / "nowhere", temp / "dangling");
    EXPECT_TRUE(creationTime(temp / "dangling").has_value());
    EXPECT_FALSE(creationTime(temp / "missing").has_value());
}

TEST(FileTimesTest, SetModificationTimeToNowKeepsTheAccessTimeAndTouchesALinkNotItsTarget) {
    TempDir temp;
    fs::create_directory(temp / "staging");
    writeFile(temp / "target", "x");
    for (const char* name : {"staging", "target"}) setTimes(temp / name, year2002, year2001);
    fs::create_symlink(temp / "target", temp / "link");
    const auto before = Clock::now();
    setModificationTimeToNow(temp / "staging");
    setModificationTimeToNow(temp / "link");
    EXPECT_GE(Clock::from_time_t(statusOf(temp / "staging").st_mtim.tv_sec), before - slack);
    EXPECT_EQ(Clock::from_time_t(statusOf(temp / "staging").st_atim.tv_sec), year2002);
    EXPECT_EQ(Clock::from_time_t(statusOf(temp / "target").st_mtim.tv_sec), year2001);
    try {
        setModificationTimeToNow(temp / "missing");
        FAIL() << "touching a missing item succeeded";
    } catch (const PosixError& error) {
        EXPECT_EQ(error.code(), ENOENT);
    }
}

}  // namespace
}  // namespace tapekeep
