#include "cards/OperationLock.h"

#include <gtest/gtest.h>

#include <latch>
#include <optional>
#include <thread>
#include <vector>

#include "cards/OperationLockError.h"

namespace tapekeep {
namespace {

const VolumeUUID cardA{"0E239BC6-F960-3107-89CF-1C97F78BB46B"};
const VolumeUUID cardB{"4A2B-9C1D"};

// A lock with its own notification centre, recording what it posts and what observers see.
class OperationLockTest : public ::testing::Test {
protected:
    OperationLockTest() {
        center.addObserver(Notifications::cardContentMayHaveChanged,
                           [this](const std::string& uuid) { posted.push_back(uuid); });
        lock.observeActiveVolumeUUIDs(
            [this](const std::set<std::string>& uuids) { snapshots.push_back(uuids); });
    }

    NotificationCenter center;
    OperationLock lock{center};
    std::vector<std::string> posted;
    std::vector<std::set<std::string>> snapshots;
};

TEST_F(OperationLockTest, AnyKindConflictsWithAnyHolderNamesItAndChangesNothing) {
    EXPECT_EQ(lock.acquire(cardA, OperationKind::browse), (Lease{cardA, OperationKind::browse}));
    for (OperationKind kind : {OperationKind::backup, OperationKind::restore, OperationKind::browse}) {
        try {
            lock.acquire(cardA, kind);
            ADD_FAILURE() << "a held card was acquired for " << rawValue(kind);
        } catch (const OperationLockError& error) {
            EXPECT_EQ(error.kind(), OperationLockError::Kind::conflict);
            EXPECT_EQ(error.existing(), OperationKind::browse);
            EXPECT_EQ(error.description(), "Operation in progress: browse");
        }
    }
    EXPECT_EQ(lock.owner(cardA), OperationKind::browse);
    EXPECT_EQ(snapshots.size(), 1u);
}

TEST_F(OperationLockTest, ObserversFollowTheSetOfDistinctVolumesUntilItIsEmpty) {
    std::vector<bool> seenActive;
    const auto token = lock.observeActiveVolumeUUIDs(
        [&](const std::set<std::string>&) { seenActive.push_back(lock.isActive(cardA)); });
    const Lease a = lock.acquire(cardA, OperationKind::backup);
    ASSERT_EQ(snapshots.size(), 1u);  // seen before acquire returned
    const Lease b = lock.acquire(cardB, OperationKind::restore);
    EXPECT_EQ(lock.owner(cardB), OperationKind::restore);
    lock.release(a);
    lock.removeObserver(token);
    lock.release(b);
    const std::vector<std::set<std::string>> expected{
        {cardA.rawValue}, {cardA.rawValue, cardB.rawValue}, {cardB.rawValue}, {}};
    EXPECT_EQ(snapshots, expected);
    EXPECT_EQ(seenActive, (std::vector<bool>{true, true, false}));
    EXPECT_TRUE(lock.activeVolumeUUIDs().empty());
    EXPECT_EQ(lock.owner(cardA), std::nullopt);
}

TEST_F(OperationLockTest, ReleaseComparesKindsNotLeasesAndOnlyRestoreAndBrowsePost) {
    const Lease restore = lock.acquire(cardA, OperationKind::restore);
    lock.release(restore);
    lock.acquire(cardA, OperationKind::backup);
    lock.release(restore);  // stale, of another kind: the hold stays, the post happens
    EXPECT_EQ(lock.owner(cardA), OperationKind::backup);
    lock.release(Lease{cardA, OperationKind::backup});
    EXPECT_FALSE(lock.isActive(cardA));
    lock.release(lock.acquire(cardB, OperationKind::browse));
    EXPECT_EQ(posted, (std::vector<std::string>{cardA.rawValue, cardA.rawValue, cardB.rawValue}));
}

TEST(OperationLockRaceTest, OfTwoSimultaneousAcquiresExactlyOneWins) {
    NotificationCenter center;
    OperationLock lock(center);
    for (int round = 0; round < 200; ++round) {
        const VolumeUUID uuid{"CARD-" + std::to_string(round)};
        std::latch start(2);
        std::optional<Lease> leases[2];
        std::optional<OperationKind> conflicts[2];
        const OperationKind kinds[2] = {OperationKind::backup, OperationKind::restore};
        auto contender = [&](int index) {
            start.arrive_and_wait();
            try {
                leases[index] = lock.acquire(uuid, kinds[index]);
            } catch (const OperationLockError& error) {
                conflicts[index] = error.existing();
            }
        };
        std::jthread first(contender, 0), second(contender, 1);
        first.join();
        second.join();
        ASSERT_NE(leases[0].has_value(), leases[1].has_value()) << "round " << round;
        const int winner = leases[0] ? 0 : 1;
        EXPECT_EQ(conflicts[1 - winner], kinds[winner]);
        EXPECT_EQ(lock.owner(uuid), kinds[winner]);
    }
}

TEST(OperationKindTest, RawValuesRoundTrip) {
    for (OperationKind kind : {OperationKind::backup, OperationKind::restore, OperationKind::browse})
        EXPECT_EQ(operationKindFromRawValue(rawValue(kind)), kind);
    EXPECT_EQ(rawValue(OperationKind::restore), "restore");
    EXPECT_EQ(operationKindFromRawValue("Backup"), std::nullopt);
}

}  // namespace
}  // namespace tapekeep
