#include "workflows/BackupSetFacts.h"

#include <gtest/gtest.h>

#include "EventLoop.h"
#include "TempDir.h"
#include "backup/BackupRepository.h"
#include "core/BackupSet.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;

const SDCard card{"/media/CARD", "CARD", "76FA-7D45-0000-0001"};

class BackupSetFactsTest : public ::testing::Test {
protected:
    BackupSetFactsTest() {
        test::startApplication();
        // Two versions of the card, the newer one the latest and noted.
        test::writeFile(version("backup-2024-05-01-120000") / "Songs/intro.m8s", std::string(100, 's'));
        test::writeFile(version("backup-2024-05-02-120000") / "Songs/intro.m8s", std::string(300, 's'));
        test::writeFile(version("backup-2024-05-02-120000") / "Samples/kick.wav", std::string(20, 'k'));
        fs::create_directory_symlink("backup-2024-05-02-120000", setRoot() / "latest");
        EXPECT_FALSE(
            BackupRepository::saveNote(version("backup-2024-05-02-120000"), "kick take 3").has_value());
    }

    fs::path store() const { return temp / "backups"; }
    fs::path setRoot() const { return store() / backupSetFolderName(card.volumeName, card.diskUtilUUID); }
    fs::path version(const std::string& name) const { return setRoot() / name; }

    BackupInfo loaded() {
        facts.load(card, store());
        EXPECT_TRUE(test::waitFor([&] { return facts.info(card.diskUtilUUID).has_value(); }, 10s));
        return facts.info(card.diskUtilUUID).value_or(BackupInfo{});
    }

    test::TempDir temp;
    BackupSetFacts facts;
};

TEST_F(BackupSetFactsTest, TheVersionsAreCountedAndMeasuredOnceAndTheLatestNoteShows) {
    const BackupInfo info = loaded();
    EXPECT_EQ(info.versions, 2);
    EXPECT_EQ(info.totalSize, 100 + 331);  // the note, 11 bytes, is a file of its version
    EXPECT_EQ(facts.latestNote(card.diskUtilUUID), "kick take 3");
    const std::map<std::string, std::int64_t> measured{{"backup-2024-05-01-120000", 100},
                                                       {"backup-2024-05-02-120000", 331}};
    EXPECT_TRUE(test::waitFor([&] { return BackupRepository::loadSizes(setRoot()) == measured; }, 10s));
}

// A version never changes once published, so its size in the cache is taken as it is.
TEST_F(BackupSetFactsTest, ASizeInTheCacheIsNotMeasuredAgain) {
    BackupRepository::saveSizes(setRoot(), {{"backup-2024-05-01-120000", 5000}});
    EXPECT_EQ(loaded().totalSize, 5000 + 331);
}

}  // namespace
}  // namespace tapekeep
