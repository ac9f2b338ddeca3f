#include "platform/VolumeEjector.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "FatCard.h"
#include "TempDir.h"
#include "core/Cancelled.h"
#include "platform/EjectError.h"
#include "platform/MountTable.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;
using test::FatCard;

bool isMountPoint(const fs::path& path) {
    const MountTable table = MountTable::readLive();
    return std::any_of(table.entries().begin(), table.entries().end(),
                       [&](const MountTable::Entry& entry) { return entry.mountPoint == path; });
}

TEST(VolumeEjectorTest, AFolderThatIsNoMountPointIsNotMounted) {
    test::TempDir temp;  // a folder on some mount, which must not be ejected in its place
    try {
        VolumeEjector::ejectVolume(temp.path(), {});
        FAIL() << "ejected a folder that is no mount point";
    } catch (const EjectError& error) {
        EXPECT_EQ(error.kind(), EjectError::Kind::notMounted);
        EXPECT_EQ(error.description(), temp.path().string() + " is not mounted.");
    }
}

class VolumeEjectorCardTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (auto reason = FatCard::unavailableReason()) GTEST_SKIP() << "no FUSE card here: " << *reason;
        card.emplace(temp / "card.img", temp / "volumes", "M8CARD");
    }

    test::TempDir temp;
    std::optional<FatCard> card;
};

TEST_F(VolumeEjectorCardTest, EjectUnmountsTheCardGivenWithATrailingSeparator) {
    ASSERT_TRUE(isMountPoint(card->mountPath()));

    VolumeEjector::ejectVolume(card->mountPath().string() + "/", {});

    EXPECT_FALSE(isMountPoint(card->mountPath()));
}

TEST_F(VolumeEjectorCardTest, BusyOrCancelledEjectLeavesTheCardMounted) {
    test::writeFile(card->mountPath() / "open.txt", "held");
    const int held = ::open((card->mountPath() / "open.txt").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(held, 0);
    try {
        VolumeEjector::ejectVolume(card->mountPath(), {});
        ADD_FAILURE() << "ejected a card with an open file";
    } catch (const EjectError& error) {
        EXPECT_EQ(error.kind(), EjectError::Kind::toolFailed);
        EXPECT_NE(error.description().find("busy"), std::string::npos) << error.description();
    }
    ::close(held);

    std::stop_source cancelled;
    cancelled.request_stop();
    EXPECT_THROW(VolumeEjector::ejectVolume(card->mountPath(), cancelled.get_token()), Cancelled);

    EXPECT_TRUE(isMountPoint(card->mountPath()));
}

}  // namespace
}  // namespace tapekeep
