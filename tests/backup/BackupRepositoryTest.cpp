#include "backup/BackupRepository.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <future>
#include <nlohmann/json.hpp>
#include <thread>

#include "TempDir.h"
#include "backup/LatestLinkFailure.h"
#include "backup/RepositoryError.h"
#include "cards/OperationLockError.h"
#include "core/Cancelled.h"
#include "core/PosixError.h"
#include "platform/FileTimes.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::readFile;
using test::writeFile;
using Names = std::vector<std::string>;

Clock::time_point at(const std::string& stamp) {
    return *parseFolderTimestamp(stamp);
}

std::stop_token cancelledToken() {
    std::stop_source source;
    source.request_stop();
    return source.get_token();
}

// The immutable attribute makes the kernel refuse a removal or rename inside a folder even for
// root: the one reliable way to fail those on a real file system. Held open, so it follows a rename.
class ImmutableFlag {
public:
    explicit ImmutableFlag(const fs::path& path) : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        applied_ = fd_ >= 0 && change(true);
    }
    ~ImmutableFlag() {
        if (applied_) change(false);
        if (fd_ >= 0) ::close(fd_);
    }
    ImmutableFlag(const ImmutableFlag&) = delete;
    ImmutableFlag& operator=(const ImmutableFlag&) = delete;
    [[nodiscard]] bool applied() const { return applied_; }

private:
    bool change(bool on) const {
        int flags = 0;
        if (::ioctl(fd_, FS_IOC_GETFLAGS, &flags) != 0) return false;
        flags = on ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
        return ::ioctl(fd_, FS_IOC_SETFLAGS, &flags) == 0;
    }
    int fd_;
    bool applied_ = false;
};

class BackupRepositoryTest : public ::testing::Test {
protected:
    void SetUp() override {
        observer = center.addObserver(Notifications::backupsDidChange, [this](const std::string& object) {
            EXPECT_EQ(object, base.string());
            ++changeNotifications;
        });
    }
    void TearDown() override { center.removeObserver(observer); }

    fs::path makeVersion(const std::string& stamp, const std::string& content = "song") {
        writeFile(set / ("backup-" + stamp) / "Songs/a.m8s", content);
        return set / ("backup-" + stamp);
    }
    fs::path makeStaging() {
        const fs::path staging = repository.createStaging(set);
        writeFile(staging / "Songs/new.m8s", "staged");
        return staging;
    }
    fs::path publish(Clock::time_point when) {
        return repository.publishStaging(makeStaging(), set, when, {});
    }
    void pointLatestAt(const std::string& target) {
        fs::remove(set / "latest");
        fs::create_symlink(target, set / "latest");
    }
    Names versionNames() {
        Names names;
        for (const auto& version : repository.listVersions(set)) names.push_back(version.folderName);
        return names;
    }
    std::string latestText() { return fs::read_symlink(set / "latest").string(); }
    bool latestExists() { return fs::exists(fs::symlink_status(set / "latest")); }
    Names hiddenEntries(const std::string& prefix) {
        Names names;
        for (const auto& entry : fs::directory_iterator(set))
            if (entry.path().filename().string().starts_with(prefix))
                names.push_back(entry.path().filename());
        return names;
    }

    test::TempDir temp;
    const fs::path base = temp / "Backups";
    const fs::path set = base / "M8_ABCD1234";
    NotificationCenter center;
    BackupRepository repository{base, center};
    NotificationCenter::Token observer = 0;
    int changeNotifications = 0;
};

// ---- listing --------------------------------------------------------------------------------

TEST_F(BackupRepositoryTest, ListSetsTakesRealFoldersSortedAndNamesTheirVolumes) {
    EXPECT_TRUE(repository.listSets().empty());
    const std::map<std::string, std::string> folderToVolume = {{"M8_ABCD1234", "M8"},
                                                               {" My Card _0000FFFF", "My Card"},
                                                               {"NoSeparator", "NoSeparator"},
                                                               {"a_b_c", "a_b"}};
    for (const auto& [folder, volume] : folderToVolume) fs::create_directories(base / folder);
    makeVersion("2025-01-01-120000");
    fs::create_directories(base / ".edits");
    writeFile(base / "notes.txt", "not a set");
    fs::create_directory_symlink(base / "M8_ABCD1234", base / "Linked_11111111");

    const auto sets = repository.listSets();
    ASSERT_EQ(sets.size(), folderToVolume.size());
    auto expected = folderToVolume.begin();
    for (const auto& listed : sets) {
        EXPECT_EQ(listed.folderName, expected->first);
        EXPECT_EQ(listed.volumeName, (expected++)->second) << listed.folderName;
        EXPECT_EQ(listed.rootURL, base / listed.folderName);
        EXPECT_EQ(listed.versions.size(), listed.folderName == "M8_ABCD1234" ? 1u : 0u) << listed.folderName;
    }
}

TEST_F(BackupRepositoryTest, ListVersionsNewestFirstWithLatestMarkedAndOnlyRealVersionFolders) {
    EXPECT_FALSE(repository.versionCount(set).has_value());
    for (const char* stamp : {"2025-01-01-120000", "2025-03-01-120000", "2025-02-01-120000", "garbage",
                              "2025-04-01-120000-KEEP", "backup-2025-05-01-120000"})
        makeVersion(stamp);
    writeFile(set / ".tapekeep-card.json", R"({"uuid":"ABCD-1234","volumeName":"M8"})");
    fs::create_directory_symlink(set / "backup-2025-03-01-120000", set / "backup-2026-01-01-120000");
    writeFile(set / "backup-2027-01-01-120000", "a file, not a folder");
    fs::create_directories(set / ".incomplete-1234");
    fs::create_directories(set / "other");
    // An absolute link marks the version by its last component.
    pointLatestAt((set / "backup-2025-02-01-120000/").string());

    const auto versions = repository.listVersions(set);
    EXPECT_EQ(versionNames(),
              (Names{"backup-2025-03-01-120000", "backup-2025-02-01-120000", "backup-2025-01-01-120000"}));
    ASSERT_EQ(versions.size(), 3u);
    EXPECT_EQ(versions[0].date, at("2025-03-01-120000"));
    EXPECT_EQ(versions[0].url, set / "backup-2025-03-01-120000");
    for (const auto& version : versions)
        EXPECT_EQ(version.isLatest, version.folderName == "backup-2025-02-01-120000");
    EXPECT_EQ(repository.versionCount(set), 3);
}

// ---- staging and publishing -----------------------------------------------------------------

TEST_F(BackupRepositoryTest, PublishTwiceInOneSecondNamesOneSecondApart) {
    const fs::path staging = repository.createStaging(set), unused = repository.createStaging(set);
    EXPECT_NE(staging, unused);
    EXPECT_EQ(staging.filename().string().size(), std::string(".incomplete-").size() + 36);
    EXPECT_TRUE(fs::is_directory(staging) && fs::is_empty(staging));
    writeFile(staging / "Songs/new.m8s", "staged");
    // The set folder may be written differently from the one the staging folder was made in.
    const fs::path version =
        repository.publishStaging(staging, base / "." / "M8_ABCD1234/", at("2025-06-01-101500") + 100ms, {});
    EXPECT_EQ(version.lexically_normal(), set / "backup-2025-06-01-101500");
    EXPECT_FALSE(fs::exists(staging));
    EXPECT_EQ(readFile(version / "Songs/new.m8s"), "staged");
    EXPECT_EQ(latestText(), "backup-2025-06-01-101500");
    EXPECT_EQ(BackupRepository::resolvePreviousVersion(set), fs::canonical(version));
    EXPECT_EQ(changeNotifications, 1);

    EXPECT_EQ(publish(at("2025-06-01-101500") + 900ms).filename(), "backup-2025-06-01-101501");
    EXPECT_EQ(latestText(), "backup-2025-06-01-101501");
    EXPECT_EQ(changeNotifications, 2);
    EXPECT_TRUE(hiddenEntries(".latest-").empty());
}

TEST_F(BackupRepositoryTest, PublishAfterTheClockWentBackNamesOneSecondAfterTheNewestAndStepsOverTakenNames) {
    makeVersion("2030-01-01-235959");
    makeVersion("2029-01-01-000000");
    // Neither is a version, so the date rule ignores them; only the no-replace rename sees them.
    writeFile(set / "backup-2030-01-02-000000", "a stray file");
    fs::create_symlink("/nowhere", set / "backup-2030-01-02-000001");
    EXPECT_EQ(publish(at("2025-06-01-101500")).filename(), "backup-2030-01-02-000002");
    EXPECT_EQ(versionNames().front(), "backup-2030-01-02-000002");
    EXPECT_EQ(readFile(set / "backup-2030-01-02-000000"), "a stray file");
    EXPECT_EQ(fs::read_symlink(set / "backup-2030-01-02-000001"), "/nowhere");
}

TEST_F(BackupRepositoryTest, SymbolicLinkNamedLikeAVersionIsNeverAVersion) {
    writeFile(temp / "elsewhere/Songs/keep.m8s", "must survive");
    makeVersion("2024-01-01-120000");
    fs::create_directory_symlink(temp / "elsewhere", set / "backup-2025-01-01-120000");

    EXPECT_EQ(versionNames(), Names{"backup-2024-01-01-120000"});
    EXPECT_EQ(publish(at("2024-06-01-120000")).filename(),
              "backup-2024-06-01-120000");  // its date is ignored
    repository.rotate(set, 1, {});
    EXPECT_EQ(versionNames(), Names{"backup-2024-06-01-120000"});
    EXPECT_TRUE(fs::is_symlink(set / "backup-2025-01-01-120000"));
    EXPECT_EQ(readFile(temp / "elsewhere/Songs/keep.m8s"), "must survive");
}

TEST_F(BackupRepositoryTest, PublishRefusesWhatIsNotAStagingFolderOfTheSet) {
    fs::create_directories(temp / "Other/.incomplete-A");
    fs::create_directories(set / "work-in-progress");
    fs::create_directories(temp / "real-folder");
    fs::create_directory_symlink(temp / "real-folder", set / ".incomplete-link");
    const std::vector<std::pair<fs::path, std::string>> refusals = {
        {temp / "Other/.incomplete-A", "Staging directory " + (temp / "Other/.incomplete-A").string() +
                                           " is not inside backup set " + set.string() + "."},
        {set / "work-in-progress", "Refusing to publish work-in-progress: not a staging directory."},
        {set / ".incomplete-link", "Staging path " + (set / ".incomplete-link").string() +
                                       " is not a directory (symbolic links are never published)."},
    };
    for (const auto& [staging, text] : refusals) {
        try {
            repository.publishStaging(staging, set, at("2025-06-01-101500"), {});
            ADD_FAILURE() << "published " << staging;
        } catch (const RepositoryError& error) {
            EXPECT_EQ(error.description(), text);
            EXPECT_EQ(error.code(), 22);
        }
        EXPECT_TRUE(fs::exists(fs::symlink_status(staging))) << staging;
    }
    EXPECT_TRUE(repository.listVersions(set).empty());
    EXPECT_FALSE(latestExists());
    EXPECT_EQ(changeNotifications, 0);
}

TEST_F(BackupRepositoryTest, FailedPublishRenameKeepsTheStagingName) {
    const fs::path staging = makeStaging();
    ImmutableFlag frozenSet(set);
    if (!frozenSet.applied()) GTEST_SKIP() << "this file system cannot make a folder immutable";
    try {
        repository.publishStaging(staging, set, at("2025-06-01-101500"), {});
        FAIL() << "published into an immutable folder";
    } catch (const PosixError& error) {
        EXPECT_EQ(error.code(), EPERM);
    }
    EXPECT_TRUE(fs::is_directory(staging));
    EXPECT_EQ(changeNotifications, 0);
}

TEST_F(BackupRepositoryTest, LatestThatCannotBeReplacedStillLeavesThePublishedVersion) {
    writeFile(set / "latest/blocker", "a real folder where the link belongs");
    try {
        publish(at("2025-06-01-101500"));
        FAIL() << "latest was replaced";
    } catch (const LatestLinkFailure& failure) {
        EXPECT_EQ(failure.versionURL(), set / "backup-2025-06-01-101500");
        EXPECT_TRUE(fs::is_directory(failure.versionURL()));
        EXPECT_EQ(failure.description(), "Atomic symlink rename failed: " + errnoText(EISDIR));
    }
    EXPECT_EQ(changeNotifications, 1);
    EXPECT_TRUE(hiddenEntries(".latest-").empty());
    EXPECT_TRUE(hiddenEntries(".incomplete-").empty());
}

TEST_F(BackupRepositoryTest, UpdateLatestLinkIsRelativeInsideTheSetAndAbsoluteOutside) {
    makeVersion("2025-01-01-120000");
    repository.updateLatestLink(set, base / "M8_ABCD1234/./backup-2025-01-01-120000/");
    EXPECT_EQ(latestText(), "backup-2025-01-01-120000");
    writeFile(temp / "Elsewhere/backup-2025-02-01-120000/file", "x");
    repository.updateLatestLink(set, temp / "Elsewhere/backup-2025-02-01-120000");
    EXPECT_EQ(latestText(), (temp / "Elsewhere/backup-2025-02-01-120000").string());
    EXPECT_TRUE(hiddenEntries(".latest-").empty());
}

// ---- resolving and repairing latest ---------------------------------------------------------

TEST_F(BackupRepositoryTest, PreviousVersionIsOnlyAFolderNamedBackupDirectlyInTheSet) {
    EXPECT_FALSE(BackupRepository::resolvePreviousVersion(set).has_value());
    const fs::path version = makeVersion("2025-01-01-120000");
    writeFile(temp / "Other/backup-2025-01-01-120000/file", "x");
    writeFile(set / "backup-file", "a file");
    fs::create_directory_symlink(temp / "Other/backup-2025-01-01-120000", set / "backup-link");
    const std::vector<std::pair<std::string, bool>> linkToFound = {
        {"backup-2025-01-01-120000", true},
        {version.string(), true},
        {"backup-2025-09-09-120000", false},
        {(temp / "Other/backup-2025-01-01-120000").string(), false},
        {"backup-file", false},
        {"backup-link", false},
    };
    for (const auto& [text, found] : linkToFound) {
        pointLatestAt(text);
        const auto previous = BackupRepository::resolvePreviousVersion(set);
        EXPECT_EQ(previous, found ? std::optional(fs::canonical(version)) : std::nullopt) << text;
    }
}

TEST_F(BackupRepositoryTest, RepairPointsOnlyADanglingLatestAtTheNewestVersion) {
    struct Case {
        Names versions;
        std::optional<std::string> latest, repaired;
    };
    const std::vector<Case> cases = {
        {{"2025-01-01-120000", "2025-03-01-120000", "2025-02-01-120000"},
         "backup-2024-12-31-120000",
         "backup-2025-03-01-120000"},
        {{"2025-01-01-120000", "2025-03-01-120000"}, "backup-2025-01-01-120000", "backup-2025-01-01-120000"},
        {{"2025-01-01-120000"}, std::nullopt, std::nullopt},
        {{}, "backup-2025-01-01-120000", std::nullopt},
    };
    for (const auto& [versions, latest, repaired] : cases) {
        fs::remove_all(set);
        fs::create_directories(set);
        for (const auto& stamp : versions) makeVersion(stamp);
        if (latest) pointLatestAt(*latest);
        repository.repairLatestLink(set);
        EXPECT_EQ(latestExists() ? std::optional(latestText()) : std::nullopt, repaired)
            << latest.value_or("");
    }
}

// ---- rotation -------------------------------------------------------------------------------

// Folders that publishing did not name, however much they look like versions, and the set's card file.
const Names foreignFolders = {"backup-copy", "backup-2025-01-01-120000-KEEP",
                              "backup-backup-2099-01-01-000000", "backup-2025-02-30-120000", "backup-"};

TEST_F(BackupRepositoryTest, RotationRemovesOnlyTheOldestVersionsAndNothingItDidNotName) {
    struct Case {
        int keepCount;
        Names remaining;
        std::string latest;
    };
    const std::string v1 = "backup-2025-01-01-120000", v2 = "backup-2025-02-01-120000",
                      v3 = "backup-2025-03-01-120000";
    const std::vector<Case> cases = {
        {-1, {v3}, v3}, {1, {v3}, v3}, {2, {v3, v2}, v2}, {3, {v3, v2, v1}, v2}, {9, {v3, v2, v1}, v2}};
    for (const auto& [keepCount, remaining, latest] : cases) {
        SCOPED_TRACE(keepCount);
        fs::remove_all(set);
        for (const char* stamp : {"2025-02-01-120000", "2025-03-01-120000", "2025-01-01-120000"})
            makeVersion(stamp);
        for (const auto& name : foreignFolders) writeFile(set / name / "Songs/a.m8s", name);
        writeFile(set / ".tapekeep-card.json", R"({"uuid":"ABCD-1234","volumeName":"M8"})");
        pointLatestAt(v2);
        const int before = changeNotifications;
        repository.rotate(set, keepCount, {});
        EXPECT_EQ(versionNames(), remaining);
        EXPECT_EQ(latestText(), latest);
        EXPECT_TRUE(hiddenEntries(".deleting-").empty());
        EXPECT_EQ(changeNotifications, before + (remaining.size() < 3 ? 1 : 0));
        for (const auto& name : foreignFolders) EXPECT_EQ(readFile(set / name / "Songs/a.m8s"), name);
        EXPECT_TRUE(fs::exists(set / ".tapekeep-card.json"));
    }
}

TEST_F(BackupRepositoryTest, FoldersItDidNotNameNeitherDateAPublishNorBecomeLatest) {
    makeVersion("2025-01-01-120000");
    for (const auto& name : foreignFolders) writeFile(set / name / "Songs/a.m8s", name);
    // Published after the newest version, not after "backup-backup-2099-…".
    EXPECT_EQ(publish(at("2025-06-01-101500")).filename(), "backup-2025-06-01-101500");
    // A dangling latest is repaired to the newest version, and with none left it goes.
    pointLatestAt("backup-2024-01-01-120000");
    repository.repairLatestLink(set);
    EXPECT_EQ(latestText(), "backup-2025-06-01-101500");
    fs::remove_all(set / "backup-2025-01-01-120000");
    fs::remove_all(set / "backup-2025-06-01-101500");
    pointLatestAt("backup-2024-01-01-120000");
    repository.repairLatestLink(set);
    EXPECT_FALSE(latestExists());
    // Nor is one the previous version when latest names it.
    pointLatestAt("backup-copy");
    EXPECT_FALSE(BackupRepository::resolvePreviousVersion(set).has_value());
    for (const auto& name : foreignFolders) EXPECT_EQ(readFile(set / name / "Songs/a.m8s"), name);
}

TEST_F(BackupRepositoryTest, InterruptedRotationLeavesAHiddenDeletingFolderNeverATruncatedVersion) {
    const fs::path oldest = makeVersion("2025-01-01-120000");
    writeFile(oldest / "Songs/b.m8s", "second song");
    makeVersion("2025-02-01-120000");
    std::optional<ImmutableFlag> frozen;
    frozen.emplace(oldest / "Songs/a.m8s");
    if (!frozen->applied()) GTEST_SKIP() << "this file system cannot make a file immutable";

    EXPECT_THROW(repository.rotate(set, 1, {}), PosixError);
    EXPECT_EQ(changeNotifications, 1);
    EXPECT_EQ(versionNames(), Names{"backup-2025-02-01-120000"});
    const auto leftovers = hiddenEntries(".deleting-");
    ASSERT_EQ(leftovers.size(), 1u);
    EXPECT_EQ(readFile(set / leftovers[0] / "Songs/a.m8s"), "song");

    frozen.reset();
    EXPECT_EQ(repository.removeIncomplete(set, Clock::now(), {}), std::vector<fs::path>{set / leftovers[0]});
    EXPECT_TRUE(hiddenEntries(".deleting-").empty());
}

TEST_F(BackupRepositoryTest, CancelledOperationsChangeNothing) {
    for (const char* stamp : {"2025-01-01-120000", "2025-02-01-120000", "2025-03-01-120000"})
        makeVersion(stamp);
    writeFile(set / ".deleting-1/file", "x");
    const fs::path staging = makeStaging();
    EXPECT_THROW(repository.publishStaging(staging, set, at("2025-06-01-101500"), cancelledToken()),
                 Cancelled);
    EXPECT_THROW(repository.rotate(set, 1, cancelledToken()), Cancelled);
    EXPECT_THROW(repository.removeIncomplete(set, Clock::now() + 48h, cancelledToken()), Cancelled);
    EXPECT_TRUE(fs::is_directory(staging));
    EXPECT_EQ(repository.versionCount(set), 3);
    EXPECT_EQ(hiddenEntries(".deleting-"), Names{".deleting-1"});
}

// ---- clearing remains of earlier runs -------------------------------------------------------

TEST_F(BackupRepositoryTest, StagingIsRemovedAfterTheGracePeriodAndOnlyTheNewestFailedOneIsKeptThatLong) {
    EXPECT_TRUE(repository.removeIncomplete(set, Clock::now(), {}).empty());  // no set folder yet
    // Named so that the newer one is listed first: creation, not order, decides.
    const fs::path older = set / ".incomplete-B", newer = set / ".incomplete-A";
    writeFile(older / "failure.txt", "Incomplete backup. Not a restore source.\nfirst\n");
    const auto olderCreated = creationTime(older);
    ASSERT_TRUE(olderCreated.has_value());
    while (Clock::now() < *olderCreated + 50ms) std::this_thread::sleep_for(10ms);
    writeFile(newer / "failure.txt", "Incomplete backup. Not a restore source.\nsecond\n");
    ASSERT_GT(creationTime(newer), olderCreated);
    const fs::path unmarked = makeStaging();

    EXPECT_EQ(repository.removeIncomplete(set, Clock::now() + 1h, {}), std::vector<fs::path>{older});
    EXPECT_TRUE(repository.removeIncomplete(set, Clock::now() + 2h, {}, 3h).empty());
    EXPECT_TRUE(fs::is_directory(newer) && fs::is_directory(unmarked));
    EXPECT_EQ(repository.removeIncomplete(set, Clock::now() + 25h, {}).size(), 2u);
    EXPECT_FALSE(fs::exists(newer) || fs::exists(unmarked));
}

// With the set's lock held no run can be staging in the set: an unmarked staging folder belongs to
// a run that died (killed, or the machine went down) and goes at once, whatever its age. The failed
// ones follow the usual rule.
TEST_F(BackupRepositoryTest, WithTheSetLockHeldAnAbandonedStagingGoesAtOnce) {
    writeFile(set / ".incomplete-A/failure.txt", "Incomplete backup. Not a restore source.\nfailed\n");
    const fs::path abandoned = makeStaging();
    writeFile(abandoned / "Songs/half.m8s", "half");
    const fs::path version = makeVersion("2025-01-01-120000");
    fs::create_symlink("backup-2025-01-01-120000", set / ".latest-DEAD");  // a swap cut short

    EXPECT_TRUE(repository.removeIncomplete(set, Clock::now(), {}).empty());  // may be a live run's
    EXPECT_TRUE(fs::is_symlink(set / ".latest-DEAD"));
    const BackupSetLock held(set);
    EXPECT_EQ(repository.removeIncomplete(held, Clock::now(), {}), std::vector<fs::path>{abandoned});
    EXPECT_FALSE(fs::exists(fs::symlink_status(set / ".latest-DEAD")));
    EXPECT_TRUE(fs::exists(set / ".incomplete-A/failure.txt"));
    EXPECT_TRUE(fs::is_directory(version));
    EXPECT_EQ(versionNames(), Names{"backup-2025-01-01-120000"});
    EXPECT_TRUE(fs::is_regular_file(set / BackupSetLock::fileName));
    EXPECT_EQ(repository.listSets().size(), 1u);
}

TEST_F(BackupRepositoryTest, TheSetLockKeepsASecondRunOutUntilItIsLetGo) {
    std::optional<BackupSetLock> first;
    first.emplace(set);  // creates the set folder
    try {
        BackupSetLock second(set);
        ADD_FAILURE() << "two runs held one set";
    } catch (const OperationLockError& error) {
        EXPECT_EQ(error.existing(), OperationKind::backup);
    }
    first.reset();
    EXPECT_NO_THROW(BackupSetLock{set});
    fs::remove(set / BackupSetLock::fileName);
    fs::create_symlink(temp / "elsewhere", set / BackupSetLock::fileName);
    EXPECT_THROW(BackupSetLock{set}, PosixError);  // a planted link is not followed
    EXPECT_FALSE(fs::exists(temp / "elsewhere"));
}

TEST_F(BackupRepositoryTest, DeletingFoldersAreRemovedButLinksAreNotFollowed) {
    writeFile(set / ".deleting-1/Songs/a.m8s", "x");
    writeFile(set / ".deleting-2/file", "x");
    writeFile(temp / "outside/precious", "keep");
    fs::create_directory_symlink(temp / "outside", set / ".deleting-link");
    fs::create_directory_symlink(temp / "outside", set / ".incomplete-link");
    const fs::path version = makeVersion("2025-01-01-120000");

    EXPECT_EQ(repository.removeIncomplete(set, Clock::now() + 48h, {}),
              (std::vector<fs::path>{set / ".deleting-1", set / ".deleting-2"}));
    EXPECT_EQ(readFile(temp / "outside/precious"), "keep");
    EXPECT_TRUE(fs::is_symlink(set / ".deleting-link"));
    EXPECT_TRUE(fs::is_directory(version));
}

TEST_F(BackupRepositoryTest, InstancesForTheSameBaseFolderWaitForEachOther) {
    BackupRepository sameBase(base / "", center);
    BackupRepository otherBase(temp / "OtherBackups", center);
    std::future<fs::path> waiting;
    bool otherBaseFinished = false;
    // Posted while the publish still holds the store.
    const auto token = center.addObserver(Notifications::backupsDidChange, [&](const std::string&) {
        waiting = std::async(std::launch::async, [&] { return sameBase.createStaging(set); });
        EXPECT_EQ(waiting.wait_for(200ms), std::future_status::timeout);
        auto other = std::async(std::launch::async,
                                [&] { return otherBase.createStaging(temp / "OtherBackups/S_1"); });
        otherBaseFinished = other.wait_for(30s) == std::future_status::ready;
    });
    publish(at("2025-06-01-101500"));
    center.removeObserver(token);
    EXPECT_TRUE(otherBaseFinished);
    ASSERT_TRUE(waiting.valid());
    EXPECT_TRUE(fs::is_directory(waiting.get()));
}

// ---- the card a set belongs to -------------------------------------------------------------

TEST_F(BackupRepositoryTest, ClaimWritesTheCardFileOnceAndAnotherCardsSetIsRefused) {
    const SDCard card{"/media/M8", "M8", "4C3C-645B"}, other{"/media/M8", "M8", "3C3C-645B"};
    const fs::path file = set / ".tapekeep-card.json";
    EXPECT_NO_THROW(BackupRepository::checkSetBelongsTo(set, card.diskUtilUUID));  // no set yet
    fs::create_directories(set);
    repository.claimSet(set, card);
    EXPECT_EQ(nlohmann::json::parse(readFile(file)),
              (nlohmann::json{{"uuid", "4C3C-645B"}, {"volumeName", "M8"}}));
    const std::string written = readFile(file);
    EXPECT_NO_THROW(repository.claimSet(set, {"/media/M8", "M8 renamed", "4c3c-645b"}));
    EXPECT_NO_THROW(BackupRepository::checkSetBelongsTo(set, "4C3C-645B"));
    for (const auto& attempt : std::vector<std::function<void()>>{
             [&] { BackupRepository::checkSetBelongsTo(set, other.diskUtilUUID); },
             [&] { repository.claimSet(set, other); }}) {
        try {
            attempt();
            ADD_FAILURE() << "another card's set was accepted";
        } catch (const RepositoryError& error) {
            EXPECT_EQ(error.description(), "This backup set belongs to another card (4C3C-645B).");
            EXPECT_EQ(error.code(), 22);
        }
    }
    EXPECT_EQ(readFile(file), written);
    Names hidden = hiddenEntries(".");
    EXPECT_EQ(hidden, Names{".tapekeep-card.json"});  // no temporary left behind
}

TEST_F(BackupRepositoryTest, DamagedCardFileIsRefusedNamingItAndNeverReplaced) {
    const SDCard card{"/media/M8", "M8", "4C3C-645B"};
    const fs::path file = set / ".tapekeep-card.json";
    struct Case {
        std::string name;
        std::function<void()> arrange;
        std::string reason;
    };
    const std::vector<Case> cases = {
        {"not JSON", [&] { writeFile(file, "{\"uuid\": \"4C3C"); }, "not a JSON object"},
        {"a list", [&] { writeFile(file, R"(["4C3C-645B"])"); }, "not a JSON object"},
        {"no uuid", [&] { writeFile(file, R"({"volumeName":"M8"})"); }, "it names no card UUID"},
        {"empty uuid", [&] { writeFile(file, R"({"uuid":""})"); }, "it names no card UUID"},
        {"numeric uuid", [&] { writeFile(file, R"({"uuid":4})"); }, "it names no card UUID"},
        {"a folder", [&] { fs::create_directories(file); }, errnoText(EISDIR)},
        {"a link to a good file",
         [&] {
             writeFile(temp / "card.json", R"({"uuid":"4C3C-645B"})");
             fs::create_symlink(temp / "card.json", file);
         },
         errnoText(ELOOP)},
        {"huge", [&] { writeFile(file, R"({"uuid":"4C3C-645B"})" + std::string(70000, ' ')); },
         errnoText(EFBIG)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove_all(set);
        fs::create_directories(set);
        c.arrange();
        const auto before = fs::symlink_status(file).type();
        const std::string content = before == fs::file_type::regular ? readFile(file) : "";
        const std::string text = "The card file of this backup set is damaged: " + file.string() + ": " +
                                 c.reason + ". Fix or remove it.";
        for (const auto& attempt : std::vector<std::function<void()>>{
                 [&] { BackupRepository::checkSetBelongsTo(set, card.diskUtilUUID); },
                 [&] { repository.claimSet(set, card); }}) {
            try {
                attempt();
                ADD_FAILURE() << "a damaged card file was accepted";
            } catch (const RepositoryError& error) {
                EXPECT_EQ(error.description(), text);
            }
        }
        EXPECT_EQ(fs::symlink_status(file).type(), before);
        if (before == fs::file_type::regular) {
            EXPECT_EQ(readFile(file), content);
        }
    }
}

// ---- side-car files -------------------------------------------------------------------------

TEST_F(BackupRepositoryTest, SizesRoundTripAndUnreadableCachesAreEmpty) {
    fs::create_directories(set);
    const std::map<std::string, std::int64_t> sizes = {{"backup-2025-01-01-120000", 5'000'000'000'000},
                                                       {"backup-2025-02-01-120000", 0}};
    BackupRepository::saveSizes(set, sizes);
    EXPECT_EQ(BackupRepository::loadSizes(set), sizes);
    EXPECT_TRUE(BackupRepository::loadSizes(temp / "missing").empty());
    for (const char* content : {"not json", "{\"backup-x\": \"big\"}"}) {
        writeFile(set / ".tapekeep-sizes.json", content);
        EXPECT_TRUE(BackupRepository::loadSizes(set).empty()) << content;
    }
    fs::remove(set / ".tapekeep-sizes.json");
    fs::create_directory(set / ".tapekeep-sizes.json");
    EXPECT_THROW(BackupRepository::saveSizes(set, sizes), PosixError);
}

TEST_F(BackupRepositoryTest, VersionSizeSumsRegularFilesWithoutFollowingLinks) {
    const fs::path version = makeVersion("2025-01-01-120000", "12345");
    writeFile(version / "Samples/deep/kick.wav", std::string(1000, 'k'));
    writeFile(version / ".hidden", "123");
    writeFile(temp / "outside/huge", std::string(100000, 'h'));
    fs::create_symlink(temp / "outside/huge", version / "Samples/link.wav");
    fs::create_directory_symlink(temp / "outside", version / "Samples/outside");
    EXPECT_EQ(BackupRepository::versionSize(version, {}), 5 + 1000 + 3);
    EXPECT_THROW(BackupRepository::versionSize(version, cancelledToken()), Cancelled);
    EXPECT_THROW(BackupRepository::versionSize(set / "backup-missing", {}), PosixError);
}

TEST_F(BackupRepositoryTest, NotesAreTrimmedDeletedWhenEmptyAndReadOnlyWhenValid) {
    const fs::path version = makeVersion("2025-01-01-120000");
    const fs::path note = version / ".tapekeep-note";
    EXPECT_EQ(BackupRepository::readNote(version), "");
    EXPECT_EQ(BackupRepository::saveNote(version, " \n\tZweite Zeile\nnächste\u00a0\u2028\n"), std::nullopt);
    EXPECT_EQ(readFile(note), "Zweite Zeile\nnächste");
    EXPECT_EQ(BackupRepository::readNote(version), "Zweite Zeile\nnächste");
    EXPECT_EQ(BackupRepository::saveNote(version, " \u3000\n"), std::nullopt);
    EXPECT_FALSE(fs::exists(note));
    EXPECT_EQ(BackupRepository::saveNote(version, ""), std::nullopt) << "deleting no note is no failure";

    writeFile(note, "bad \xff\xfe bytes");
    EXPECT_EQ(BackupRepository::readNote(version), "");
    fs::remove(note);
    writeFile(temp / "outside-note", "not this version's");
    fs::create_symlink(temp / "outside-note", note);
    EXPECT_EQ(BackupRepository::readNote(version), "");
    fs::remove(note);
    writeFile(note / "blocker", "a folder in the note's place");
    EXPECT_EQ(BackupRepository::saveNote(version, "  "),
              "Could not delete note: " + note.string() + ": " + errnoText(ENOTEMPTY));
    EXPECT_TRUE(BackupRepository::saveNote(set / "backup-missing", "note")
                    .value_or("")
                    .starts_with("Could not save note: "));
}

}  // namespace
}  // namespace tapekeep
