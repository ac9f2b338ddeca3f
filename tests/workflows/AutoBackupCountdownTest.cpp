#include "workflows/AutoBackupCountdown.h"

#include <gtest/gtest.h>

#include "EventLoop.h"
#include "TempDir.h"
#include "app/AppSettings.h"
#include "core/SettingsStore.h"
#include "workflows/CardStateTable.h"

namespace tapekeep {
namespace {

const SDCard alpha{"/media/ALPHA", "ALPHA", "76FA-7D45-0000-000A"};
const SDCard bravo{"/media/BRAVO", "BRAVO", "76FA-7D45-0000-000B"};

class AutoBackupCountdownTest : public ::testing::Test {
protected:
    AutoBackupCountdownTest() {
        test::startApplication();
        settings.setAutoBackupOnConnect(true);
        settings.setAutoBackupDelaySeconds(0);
        QObject::connect(&countdown, &AutoBackupCountdown::elapsed,
                         [this](const std::string& uuid) { elapsed.push_back(uuid); });
    }

    bool countingDown(const SDCard& card) const {
        return states.state(card.diskUtilUUID).kind == CardState::Kind::autoBackupCountdown;
    }

    test::TempDir temp;
    SettingsStore store{temp / "settings.json"};
    AppSettings settings{store, [] { return std::optional<std::string>("/usr/bin/rsync"); }};
    CardStateTable states{[] {}};
    std::set<std::string> running;
    AutoBackupCountdown countdown{settings, states, std::nullopt,
                                  [this](const std::string& uuid) { return running.contains(uuid); }};
    std::vector<std::string> elapsed;
};

TEST_F(AutoBackupCountdownTest, OnlyACardThatWasNotThereBeforeTheMountIsArmed) {
    settings.setAutoBackupDelaySeconds(86'400);  // a countdown, once started, stays visible
    countdown.scanSucceeded({alpha});
    countdown.mountsChanged({alpha});
    countdown.scanSucceeded({alpha, bravo});
    EXPECT_FALSE(countingDown(alpha));
    EXPECT_TRUE(countingDown(bravo));
    EXPECT_TRUE(countdown.contains(bravo.diskUtilUUID));
}

TEST_F(AutoBackupCountdownTest, AMountBeforeTheFirstScanOrWithAutoBackupOffArmsNothing) {
    countdown.mountsChanged({});
    countdown.scanSucceeded({alpha});
    settings.setAutoBackupOnConnect(false);
    countdown.mountsChanged({alpha});
    countdown.scanSucceeded({alpha, bravo});
    EXPECT_FALSE(countdown.contains(alpha.diskUtilUUID));
    EXPECT_FALSE(countdown.contains(bravo.diskUtilUUID));
}

// The cards that were there before a failed scan's mount are not what the next mount compares with.
TEST_F(AutoBackupCountdownTest, AFailedScanForgetsTheCardsBeforeItsMount) {
    countdown.scanSucceeded({alpha});
    countdown.mountsChanged({alpha});
    countdown.scanFailed();
    countdown.mountsChanged({alpha, bravo});
    countdown.scanSucceeded({alpha, bravo});
    EXPECT_FALSE(countdown.contains(bravo.diskUtilUUID));
}

TEST_F(AutoBackupCountdownTest, ACardBeingConfirmedOrBackedUpIsNotArmed) {
    settings.setAutoBackupDelaySeconds(86'400);
    const std::vector<std::pair<CardState, bool>> cases = {
        {CardState::idle(), true},
        {CardState::failed("Backup was cancelled."), true},
        {CardState::success("Backup successful (0:01)."), true},
        {CardState::confirming(), false},
        {CardState::running(), false},
    };
    for (const auto& [state, armed] : cases) {
        SCOPED_TRACE(CardState::rawValue(state.kind));
        countdown.cancel(alpha.diskUtilUUID);
        states.set(alpha.diskUtilUUID, state);
        countdown.arm(alpha);
        EXPECT_EQ(countdown.contains(alpha.diskUtilUUID), armed);
    }
    // Its run's eject still holds the card, though the state says success.
    countdown.cancel(alpha.diskUtilUUID);
    states.set(alpha.diskUtilUUID, CardState::success("Backup successful (0:01)."));
    running.insert(alpha.diskUtilUUID);
    countdown.arm(alpha);
    EXPECT_FALSE(countdown.contains(alpha.diskUtilUUID));
}

TEST_F(AutoBackupCountdownTest, ACountdownEndsOnceUnlessCancelled) {
    settings.setAutoBackupDelaySeconds(1);
    countdown.arm(alpha);
    countdown.arm(bravo);
    EXPECT_TRUE(countdown.cancel(alpha.diskUtilUUID));
    // Both countdowns started together, the cancelled one first.
    ASSERT_TRUE(test::waitFor(
        [&] { return std::find(elapsed.begin(), elapsed.end(), bravo.diskUtilUUID) != elapsed.end(); }));
    EXPECT_EQ(elapsed, std::vector<std::string>{bravo.diskUtilUUID});
    EXPECT_FALSE(countdown.contains(bravo.diskUtilUUID));
    EXPECT_TRUE(countingDown(bravo));  // what follows is the controller's to decide
}

}  // namespace
}  // namespace tapekeep
