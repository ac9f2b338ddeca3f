#include "workflows/ComparisonViewModel.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>

#include "EventLoop.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::startApplication;
using test::writeFile;

// Two versions of a set as folders, and a controller over them with the real rsync.
class ComparisonViewModelTest : public ::testing::Test {
protected:
    void SetUp() override { startApplication(); }

    BackupVersion version(const std::string& name) {
        const fs::path folder = temp_ / "set" / name;
        fs::create_directories(folder);
        return BackupVersion{folder, name, std::nullopt, false};
    }

    std::unique_ptr<ComparisonViewModel> controller(const BackupVersion& a, const BackupVersion& b,
                                                    std::string rsyncPath = "/usr/bin/rsync") {
        ComparisonViewModel::Dependencies dependencies;
        dependencies.rsyncPath = std::move(rsyncPath);
        dependencies.logStore = RsyncLogStore(temp_ / "logs");
        auto comparison = std::make_unique<ComparisonViewModel>(std::vector{a, b}, std::move(dependencies));
        comparison->chooseVersionA(0);
        comparison->chooseVersionB(1);
        return comparison;
    }

    // Runs one comparison to its end.
    static void compare(ComparisonViewModel& comparison) {
        bool finished = false;
        QObject::connect(&comparison, &ComparisonViewModel::comparisonFinished,
                         [&finished] { finished = true; });
        comparison.compare();
        ASSERT_TRUE(comparison.isComparing());
        ASSERT_TRUE(test::waitFor([&] { return finished; }));
        EXPECT_FALSE(comparison.isComparing());
    }

    static std::map<std::string, std::string> rows(const ComparisonViewModel& comparison) {
        std::map<std::string, std::string> kinds;
        for (const auto& difference : comparison.diffResult().value())
            kinds[difference.path] = FileDiff::rawValue(difference.kind);
        return kinds;
    }

    test::TempDir temp_;
};

// Same size and same time with other bytes: only a comparison by content sees it.
void writeWithTime(const fs::path& file, const std::string& content) {
    writeFile(file, content);
    struct timespec times[2] = {{1'700'000'000, 0}, {1'700'000'000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
}

TEST_F(ComparisonViewModelTest, ContentDecidesAndAOnlyFileIsAddedAndABOnlyOneDeleted) {
    const auto a = version("backup-2026-01-01-100000");
    const auto b = version("backup-2026-01-02-100000");
    writeWithTime(a.url / "Songs/SAME.m8s", "same");
    writeWithTime(b.url / "Songs/SAME.m8s", "same");
    writeWithTime(a.url / "Samples/kick.wav", "kick one");
    writeWithTime(b.url / "Samples/kick.wav", "kick two");
    writeFile(a.url / "Songs/NEW.m8s", "only in A");
    writeFile(b.url / "Songs/OLD.m8s", "only in B");

    auto comparison = controller(a, b);
    compare(*comparison);
    const std::map<std::string, std::string> expected{
        {"Samples/kick.wav", "modified"}, {"Songs/NEW.m8s", "added"}, {"Songs/OLD.m8s", "deleted"}};
    EXPECT_EQ(rows(*comparison), expected);
    EXPECT_FALSE(comparison->errorMessage());
}

TEST_F(ComparisonViewModelTest, VersionsThatDifferOnlyInNotesAndLitterMatch) {
    const auto a = version("backup-2026-01-01-100000");
    const auto b = version("backup-2026-01-02-100000");
    writeWithTime(a.url / "Songs/SAME.m8s", "same");
    writeWithTime(b.url / "Songs/SAME.m8s", "same");
    writeFile(a.url / ".tapekeep-note", "before the gig");
    writeFile(b.url / ".DS_Store", "litter");
    writeFile(b.url / "Songs/._SAME.m8s", "resource fork");

    auto comparison = controller(a, b);
    compare(*comparison);
    ASSERT_TRUE(comparison->diffResult().has_value()) << comparison->errorMessage().value_or("");
    EXPECT_TRUE(comparison->diffResult()->empty());
}

TEST_F(ComparisonViewModelTest, ASelectionErrorKeepsTheEarlierResultBesideItsMessage) {
    const auto a = version("backup-2026-01-01-100000");
    const auto b = version("backup-2026-01-02-100000");
    writeFile(a.url / "Songs/NEW.m8s", "only in A");
    auto comparison = controller(a, b);
    compare(*comparison);
    ASSERT_EQ(rows(*comparison).size(), 1u);

    comparison->chooseVersionB(-1);
    comparison->compare();
    EXPECT_EQ(comparison->errorMessage(), "Select two versions to compare.");
    EXPECT_FALSE(comparison->isComparing());
    EXPECT_EQ(rows(*comparison).size(), 1u);

    comparison->chooseVersionB(0);
    comparison->compare();
    EXPECT_EQ(comparison->errorMessage(), "Select two different versions.");
    EXPECT_EQ(rows(*comparison).size(), 1u);
}

TEST_F(ComparisonViewModelTest, FailuresLeaveNoResultAndSayWhy) {
    const auto a = version("backup-2026-01-01-100000");
    const auto b = version("backup-2026-01-02-100000");
    writeFile(a.url / "Songs/NEW.m8s", "only in A");

    // A version deleted since it was listed: rsync cannot read the source, and 23 is no success here.
    auto gone =
        controller(BackupVersion{temp_ / "set/backup-2026-01-03-100000", "gone", std::nullopt, false}, b);
    compare(*gone);
    EXPECT_FALSE(gone->diffResult());
    EXPECT_EQ(gone->errorMessage(), "rsync failed with exit code 23");

    auto missingTool = controller(a, b, (temp_ / "no-rsync").string());
    compare(*missingTool);
    EXPECT_FALSE(missingTool->diffResult());
    ASSERT_TRUE(missingTool->errorMessage());
    EXPECT_NE(missingTool->errorMessage()->find((temp_ / "no-rsync").string()), std::string::npos)
        << *missingTool->errorMessage();
}

// An rsync of a version Tapekeep does not know: its output is kept, never shown as rows, however
// well formed it looks.
TEST_F(ComparisonViewModelTest, OutputOfAnUnknownRsyncIsSavedForDiagnosisAndNotShown) {
    const auto a = version("backup-2026-01-01-100000");
    const auto b = version("backup-2026-01-02-100000");
    const fs::path oldRsync = temp_ / "old-rsync";
    writeFile(oldRsync,
              "#!/bin/sh\n"
              "if [ \"$1\" = --version ]; then echo 'rsync  version 3.0.9  protocol version 30'; exit 0; fi\n"
              "printf '>f+++++++++\\tSongs/NEW.m8s\\n'\n");
    fs::permissions(oldRsync, fs::perms::owner_all);

    auto comparison = controller(a, b, oldRsync.string());
    compare(*comparison);
    EXPECT_FALSE(comparison->diffResult());
    ASSERT_TRUE(comparison->errorMessage());
    const std::string prefix = "rsync output parse failed — raw log saved to ";
    ASSERT_TRUE(comparison->errorMessage()->starts_with(prefix)) << *comparison->errorMessage();
    const fs::path log = comparison->errorMessage()->substr(prefix.size());
    EXPECT_EQ(log.parent_path(), temp_ / "logs");
    EXPECT_EQ(test::readFile(log), ">f+++++++++\tSongs/NEW.m8s");

    // A file where the log folder should be: nothing can be saved, and the message says so.
    fs::remove_all(temp_ / "logs");
    writeFile(temp_ / "logs", "not a folder");
    auto unsaved = controller(a, b, oldRsync.string());
    compare(*unsaved);
    EXPECT_FALSE(unsaved->diffResult());
    EXPECT_EQ(unsaved->errorMessage(), "rsync output parse failed — could not save diagnostic log");
}

}  // namespace
}  // namespace tapekeep
