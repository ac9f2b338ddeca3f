#include "workflows/CardEjector.h"

#include <gtest/gtest.h>

#include <atomic>

#include "CardLocks.h"
#include "EventLoop.h"
#include "TempDir.h"
#include "cards/OperationLock.h"
#include "core/Cancelled.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;

class CardEjectorTest : public ::testing::Test {
protected:
    CardEjectorTest() {
        test::startApplication();
        test::keepCardLocksIn(temp / "run");
    }

    CardEjector::Dependencies dependencies() {
        return {[this](const BackupRequest&, std::stop_token) {
                    if (notTheSameCard) throw std::runtime_error("Volume identity or mount path changed.");
                },
                [this](const fs::path&, std::stop_token) {
                    ++ejectCalls;
                    holderDuringEject = OperationLock::shared().owner(VolumeUUID{card.diskUtilUUID});
                    if (ejectCalls <= failingEjects) throw std::runtime_error("device busy");
                },
                {0ms, 1ms, 2ms}};
    }

    test::TempDir temp;
    const SDCard card{temp / "volumes/CARD", "CARD", "76FA-7D45-0000-0001"};
    std::atomic<bool> notTheSameCard{false};
    std::atomic<int> ejectCalls{0}, failingEjects{0};
    std::optional<OperationKind> holderDuringEject;
    CardEjector ejector{dependencies()};
};

TEST_F(CardEjectorTest, AFailedAttemptIsTriedAgainUntilOneSucceeds) {
    failingEjects = 2;
    EXPECT_EQ(ejector.ejectWithRetries(card, {}), std::nullopt);
    EXPECT_EQ(ejectCalls, 3);
}

TEST_F(CardEjectorTest, AfterTheLastFailedAttemptItsErrorIsReported) {
    failingEjects = 3;
    EXPECT_EQ(ejector.ejectWithRetries(card, {}), "Failed to eject: device busy");
    EXPECT_EQ(ejectCalls, 3);
}

TEST_F(CardEjectorTest, AVolumeThatIsNoLongerTheCardIsNeverEjected) {
    notTheSameCard = true;
    EXPECT_EQ(ejector.ejectWithRetries(card, {}), "Failed to eject: Volume identity or mount path changed.");
    EXPECT_EQ(ejectCalls, 0);
}

TEST_F(CardEjectorTest, ACancelledEjectMakesNoFurtherAttempt) {
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(static_cast<void>(ejector.ejectWithRetries(card, stop.get_token())), Cancelled);
    EXPECT_EQ(ejectCalls, 0);
}

TEST_F(CardEjectorTest, TheUsersEjectHoldsTheCardUntilItReports) {
    std::vector<std::string> events;
    QObject::connect(&ejector, &CardEjector::ejectStarting,
                     [&](const std::string& uuid) { events.push_back("starting " + uuid); });
    QObject::connect(&ejector, &CardEjector::ejectFinished, [&](const QString& uuid, const QString& error) {
        events.push_back("finished " + uuid.toStdString() + " \"" + error.toStdString() + "\"");
    });
    ejector.eject(card);
    ASSERT_TRUE(test::waitFor([&] { return events.size() == 2; }));
    EXPECT_EQ(events, (std::vector<std::string>{"starting " + card.diskUtilUUID,
                                                "finished " + card.diskUtilUUID + " \"\""}));
    EXPECT_EQ(holderDuringEject, OperationKind::browse);
    EXPECT_FALSE(OperationLock::shared().isActive(VolumeUUID{card.diskUtilUUID}));
}

TEST_F(CardEjectorTest, TheUsersEjectIsRefusedWhileABackupHoldsTheCard) {
    const Lease backup =
        OperationLock::shared().acquire(VolumeUUID{card.diskUtilUUID}, OperationKind::backup);
    bool starting = false;
    std::optional<QString> error;
    QObject::connect(&ejector, &CardEjector::ejectStarting, [&] { starting = true; });
    QObject::connect(&ejector, &CardEjector::ejectFinished,
                     [&](const QString&, const QString& text) { error = text; });
    ejector.eject(card);
    OperationLock::shared().release(backup);

    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->toStdString(), "Cannot eject while another operation is running.");
    EXPECT_FALSE(starting);
    EXPECT_EQ(ejectCalls, 0);
}

}  // namespace
}  // namespace tapekeep
