#include "workflows/CardChangeFollower.h"

#include <gtest/gtest.h>

#include "EventLoop.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;

const std::string cardID = "76FA-7D45-0000-0001";

class CardChangeFollowerTest : public ::testing::Test {
protected:
    CardChangeFollowerTest() {
        test::startApplication();
        QObject::connect(&follower, &CardChangeFollower::changed,
                         [this](const std::string& uuid) { changes.push_back(uuid); });
        QObject::connect(&follower, &CardChangeFollower::quiet,
                         [this](const std::string& uuid) { quiets.push_back(uuid); });
    }

    std::size_t quietsOf(const std::string& uuid) const {
        return std::count(quiets.begin(), quiets.end(), uuid);
    }

    test::TempDir temp;
    CardChangeFollower follower{100ms, CardChangeWatcher::Timing{20ms, 20ms}};
    std::vector<std::string> changes, quiets;
};

TEST_F(CardChangeFollowerTest, ABurstOfChangesEndsInOneQuietReport) {
    for (int report = 0; report < 5; ++report) follower.restartQuietTime(cardID);
    ASSERT_TRUE(test::waitFor([&] { return quietsOf(cardID) >= 1; }));
    // Another card, quiet from now on: by its report every timer of the first one has run out.
    follower.restartQuietTime("76FA-7D45-0000-0002");
    ASSERT_TRUE(test::waitFor([&] { return quietsOf("76FA-7D45-0000-0002") == 1; }));
    EXPECT_EQ(quietsOf(cardID), 1u);
}

TEST_F(CardChangeFollowerTest, ACardThatMovedIsWatchedWhereItIsNow) {
    const fs::path first = temp / "volumes/CARD", second = temp / "volumes/CARD1";
    fs::create_directories(first);
    fs::create_directories(second);
    follower.follow({SDCard{first, "CARD", cardID}});
    test::writeFile(first / "Songs/intro.m8s", "song");
    ASSERT_TRUE(test::waitFor([&] { return !changes.empty(); }, 10s));

    follower.follow({SDCard{second, "CARD", cardID}});  // unmounted and mounted again elsewhere
    changes.clear();
    test::writeFile(second / "Songs/intro.m8s", "song");
    EXPECT_TRUE(test::waitFor([&] { return !changes.empty(); }, 10s));
    EXPECT_EQ(changes.front(), cardID);
}

}  // namespace
}  // namespace tapekeep
