#include "cards/OperationLock.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <latch>
#include <optional>
#include <thread>
#include <vector>

#include "TempDir.h"
#include "cards/OperationLockError.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;

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

    test::TempDir lockFolder;
    NotificationCenter center;
    OperationLock lock{center, lockFolder.path()};
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
    test::TempDir lockFolder;
    NotificationCenter center;
    OperationLock lock(center, lockFolder.path());
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

// ---- across processes ------------------------------------------------------------------------
// A second table on the same lock folder stands for another process: flock keeps two opens of one
// file apart just as it keeps two processes apart.

struct TwoProcesses : ::testing::Test {
    test::TempDir folder;
    fs::path lockFolder = folder / "tapekeep-lock";
    NotificationCenter center;
    OperationLock first{center, lockFolder};
    OperationLock second{center, lockFolder};
};

TEST_F(TwoProcesses, AHeldCardIsRefusedWithTheHoldersKindUntilItIsReleased) {
    for (OperationKind held : {OperationKind::backup, OperationKind::restore, OperationKind::browse}) {
        const Lease lease = first.acquire(cardA, held);
        for (OperationKind wanted : {OperationKind::backup, OperationKind::restore, OperationKind::browse}) {
            try {
                second.acquire(cardA, wanted);
                ADD_FAILURE() << rawValue(wanted) << " got a card held for " << rawValue(held);
            } catch (const OperationLockError& error) {
                EXPECT_EQ(error.existing(), held) << rawValue(wanted);
            }
        }
        EXPECT_FALSE(second.isActive(cardA));                          // the refusal changed nothing here
        second.release(second.acquire(cardB, OperationKind::browse));  // other cards stay free
        first.release(lease);
        second.release(second.acquire(cardA, held));
    }
    struct stat status {};
    ASSERT_EQ(::stat(lockFolder.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
}

TEST_F(TwoProcesses, AProbeSeesTheOtherProcesssHold) {
    EXPECT_FALSE(second.isHeldAnywhere(cardA));
    const Lease lease = first.acquire(cardA, OperationKind::backup);
    EXPECT_TRUE(second.isHeldAnywhere(cardA));
    EXPECT_TRUE(first.isHeldAnywhere(cardA));
    EXPECT_FALSE(second.isHeldAnywhere(cardB));
    first.release(lease);
    EXPECT_FALSE(second.isHeldAnywhere(cardA));
}

TEST_F(TwoProcesses, ATableThatEndsWithoutReleasingFreesTheCardWithIt) {
    auto doomed = std::make_unique<OperationLock>(center, lockFolder);
    doomed->acquire(cardA, OperationKind::restore);
    EXPECT_THROW(second.acquire(cardA, OperationKind::backup), OperationLockError);
    doomed.reset();  // as a process's descriptors close when it dies
    EXPECT_EQ(second.acquire(cardA, OperationKind::backup), (Lease{cardA, OperationKind::backup}));
}

TEST_F(TwoProcesses, EveryVolumeNameStaysOneFileInTheLockFolder) {
    const std::vector<VolumeUUID> hostile{{"../../escape"}, {"a/b"}, {".."}, {""}, {"x\ny%2F"}};
    std::vector<Lease> leases;
    for (const auto& uuid : hostile) leases.push_back(first.acquire(uuid, OperationKind::browse));
    for (const auto& uuid : hostile)
        EXPECT_THROW(second.acquire(uuid, OperationKind::browse), OperationLockError);
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(lockFolder)) {
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(entry.path()))) << entry.path();
        names.insert(entry.path().filename().string());
    }
    EXPECT_EQ(names.size(), hostile.size());
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);
    for (const auto& lease : leases) first.release(lease);
}

// Another user may have made the folder's name first in a shared /tmp. Such a folder is never
// used: nothing is created or written through it, and the lease holds within the process only.
TEST(OperationLockFolderTest, AFolderThatIsNotPrivatelyOursIsNeverUsed) {
    test::TempDir temp;
    const fs::path elsewhere = temp / "attacker";
    fs::create_directories(elsewhere);
    const std::vector<std::pair<std::string, std::function<void(const fs::path&)>>> setups{
        {"a symbolic link to a folder",
         [&](const fs::path& folder) { fs::create_directory_symlink(elsewhere, folder); }},
        {"a folder of another user",
         [](const fs::path& folder) {
             fs::create_directory(folder);
             fs::permissions(folder, fs::perms::owner_all);
             ASSERT_EQ(::chown(folder.c_str(), 65534, 65534), 0);
         }},
        {"a folder others may write to",
         [](const fs::path& folder) {
             fs::create_directory(folder);
             fs::permissions(folder, fs::perms::all);
         }},
        {"a file", [](const fs::path& folder) { test::writeFile(folder, "not a folder"); }},
        {"a folder whose lock file is a symbolic link",
         [&](const fs::path& folder) {
             fs::create_directory(folder);
             fs::permissions(folder, fs::perms::owner_all);
             fs::create_symlink(elsewhere / "planted", folder / ("card-" + cardB.rawValue + ".lock"));
         }},
    };
    if (::geteuid() != 0) GTEST_SKIP() << "giving a folder to another user needs root";
    for (std::size_t index = 0; index < setups.size(); ++index) {
        const auto& [name, setup] = setups[index];
        const fs::path folder = temp / ("tapekeep-" + std::to_string(index));
        setup(folder);
        NotificationCenter center;
        OperationLock first(center, folder), second(center, folder);
        const Lease lease = first.acquire(cardB, OperationKind::backup);
        try {
            second.release(second.acquire(cardB, OperationKind::restore));
        } catch (const OperationLockError&) {
            ADD_FAILURE() << name << " was used for the lock file";
        }
        EXPECT_TRUE(fs::is_empty(elsewhere)) << name;
        first.release(lease);
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
