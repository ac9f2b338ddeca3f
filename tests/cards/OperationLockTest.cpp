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
        lock.observeActiveVolumeUUIDs([this](const std::set<std::string>& uuids) { snapshots.push_back(uuids); });
    }

    static std::optional<OperationKind> conflictOf(OperationLock& lock, const VolumeUUID& uuid, OperationKind kind) {
        try {
            lock.acquire(uuid, kind);
        } catch (const OperationLockError& error) {
            return error.existing();
        }
        return std::nullopt;
    }

    NotificationCenter center;
    OperationLock lock{center};
    std::vector<std::string> posted;
    std::vector<std::set<std::string>> snapshots;
};

TEST_F(OperationLockTest, AnyKindConflictsWithAnyHolderAndChangesNothing) {
    const Lease lease = lock.acquire(cardA, OperationKind::backup);
    EXPECT_EQ(lease, (Lease{cardA, OperationKind::backup}));
    for (OperationKind kind : {OperationKind::backup, OperationKind::restore, OperationKind::browse})
        EXPECT_EQ(conflictOf(lock, cardA, kind), OperationKind::backup) << rawValue(kind);
    EXPECT_EQ(lock.owner(cardA), OperationKind::backup);
    EXPECT_EQ(snapshots.size(), 1u);
}

TEST_F(OperationLockTest, ConflictNamesTheHolder) {
    lock.acquire(cardA, OperationKind::browse);
    try {
        lock.acquire(cardA, OperationKind::backup);
        FAIL() << "a held card was acquired";
    } catch (const OperationLockError& error) {
        EXPECT_EQ(error.kind(), OperationLockError::Kind::conflict);
        EXPECT_EQ(error.existing(), OperationKind::browse);
        EXPECT_EQ(error.description(), "Operation in progress: browse");
    }
}

TEST_F(OperationLockTest, DistinctVolumesNeverConflict) {
    lock.acquire(cardA, OperationKind::backup);
    lock.acquire(cardB, OperationKind::restore);
    EXPECT_EQ(lock.owner(cardA), OperationKind::backup);
    EXPECT_EQ(lock.owner(cardB), OperationKind::restore);
    EXPECT_EQ(lock.activeVolumeUUIDs(), (std::set<std::string>{cardA.rawValue, cardB.rawValue}));
}

TEST_F(OperationLockTest, ObserversFollowTheSetUntilItIsEmpty) {
    const Lease a = lock.acquire(cardA, OperationKind::backup);
    ASSERT_EQ(snapshots.size(), 1u);  // seen before acquire returned
    const Lease b = lock.acquire(cardB, OperationKind::browse);
    lock.release(a);
    lock.release(b);
    const std::vector<std::set<std::string>> expected{
        {cardA.rawValue}, {cardA.rawValue, cardB.rawValue}, {cardB.rawValue}, {}};
    EXPECT_EQ(snapshots, expected);
    EXPECT_TRUE(lock.activeVolumeUUIDs().empty());
    EXPECT_FALSE(lock.isActive(cardA));
    EXPECT_EQ(lock.owner(cardA), std::nullopt);
}

TEST_F(OperationLockTest, StaleReleaseOfAnotherKindKeepsTheHoldAndStillPosts) {
    const Lease restore = lock.acquire(cardA, OperationKind::restore);
    lock.release(restore);
    lock.acquire(cardA, OperationKind::backup);
    lock.release(restore);
    EXPECT_EQ(lock.owner(cardA), OperationKind::backup);
    EXPECT_EQ(posted, (std::vector<std::string>{cardA.rawValue, cardA.rawValue}));
}

TEST_F(OperationLockTest, ReleaseComparesKindsNotLeases) {
    const Lease first = lock.acquire(cardA, OperationKind::browse);
    lock.release(first);
    lock.acquire(cardA, OperationKind::browse);
    lock.release(first);
    EXPECT_FALSE(lock.isActive(cardA));
}

TEST_F(OperationLockTest, OnlyRestoreAndBrowseReleasesPost) {
    lock.release(lock.acquire(cardA, OperationKind::backup));
    EXPECT_TRUE(posted.empty());
    lock.release(lock.acquire(cardA, OperationKind::restore));
    lock.release(lock.acquire(cardB, OperationKind::browse));
    EXPECT_EQ(posted, (std::vector<std::string>{cardA.rawValue, cardB.rawValue}));
}

TEST_F(OperationLockTest, RemovedObserverIsNoLongerCalled) {
    std::size_t calls = 0;
    const auto token = lock.observeActiveVolumeUUIDs([&](const std::set<std::string>&) { ++calls; });
    const Lease lease = lock.acquire(cardA, OperationKind::backup);
    lock.removeObserver(token);
    lock.release(lease);
    EXPECT_EQ(calls, 1u);
}

TEST_F(OperationLockTest, AnObserverMayAskTheLock) {
    std::vector<bool> seenActive;
    lock.observeActiveVolumeUUIDs([&](const std::set<std::string>&) { seenActive.push_back(lock.isActive(cardA)); });
    lock.release(lock.acquire(cardA, OperationKind::backup));
    EXPECT_EQ(seenActive, (std::vector<bool>{true, false}));
}

TEST_F(OperationLockTest, AnEmptyUuidIsNotRefusedHere) {
    const Lease lease = lock.acquire(VolumeUUID{""}, OperationKind::backup);
    EXPECT_TRUE(lock.isActive(VolumeUUID{""}));
    lock.release(lease);
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
