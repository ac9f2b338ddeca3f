#include "platform/LinuxDiskIdentity.h"

#include <gtest/gtest.h>

#include "FatCard.h"
#include "TempDir.h"
#include "core/Cancelled.h"
#include "platform/ProcessRunner.h"

namespace tapekeep {
namespace {

TEST(LinuxDiskIdentityTest, AMountWithoutABlockDeviceHasNoUuidAndACancelledCallRunsNothing) {
    EXPECT_EQ(LinuxDiskIdentity::diskInfo("/proc/self", {}), DiskInfo{});
    std::stop_source cancelled;
    cancelled.request_stop();
    EXPECT_THROW(LinuxDiskIdentity::diskInfo("/", cancelled.get_token()), Cancelled);
}

TEST(LinuxDiskIdentityTest, AFatCardOnALoopDeviceIsExternalWithItsFileSystemUuid) {
    if (auto reason = test::FatCard::unavailableReason()) GTEST_SKIP() << *reason;
    test::TempDir folder;
    test::FatCard card(folder / "card.img", folder / "media", "M8CARD");
    ASSERT_FALSE(card.uuid().empty());
    const DiskInfo expected{card.uuid(), false};
    const auto runsBefore = ProcessRunner::shared().runCounts();
    EXPECT_EQ(LinuxDiskIdentity::diskInfo(card.mountPath(), {}), expected);
    std::filesystem::create_directories(card.mountPath() / "Songs");
    EXPECT_EQ(LinuxDiskIdentity::diskInfo(card.mountPath() / "Songs", {}), expected);
    // The check runs around every rsync pass: udev and the superblock answer it, no tool does.
    EXPECT_EQ(ProcessRunner::shared().runCounts(), runsBefore);
}

}  // namespace
}  // namespace tapekeep
