// A sample of a real version folder read for staging: its card path, length and users, the paths a new
// file may not take, and the request that an overwrite or a new file makes of it.

#include "edits/StagingSource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "EditRecords.h"
#include "M8Files.h"
#include "SoxAudio.h"
#include "TempDir.h"
#include "content/BrowseFileError.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::writeFile;

class StagingSourceTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (const auto missing = test::soxMissing(); !missing.empty()) GTEST_SKIP() << missing;
        fs::create_directories(version_ / "Samples/Drums");
        test::makeAudio(version_ / "Samples/Drums/kick.wav", {"-r", "8000", "-c", "1", "-b", "16"}, 0.5);
        writeFile(version_ / "Songs/BEAT.m8s", test::songWithSamples({"/samples/drums/KICK.wav"}));
        writeFile(version_ / "Instruments/KIT.m8i", test::instrumentWithSample("/Samples/Drums/kick.wav"));
        writeFile(version_ / "Samples/Drums/kick_trim.wav", "an earlier trim");
        fs::create_directory_symlink(temp_.path(), version_ / "Away");
    }

    test::TempDir temp_;
    const fs::path version_ = temp_ / "M8_4C3C645B" / "backup-2026-01-01-100000";
};

TEST_F(StagingSourceTest, ASampleIsReadWithItsUsersAndTheVersionsPaths) {
    const auto source = StagingSource::read(version_, "Samples/Drums/kick.wav", {});
    EXPECT_EQ(source.cardPath, "/Samples/Drums/kick.wav");
    EXPECT_EQ(source.versionFolder, "backup-2026-01-01-100000");
    EXPECT_DOUBLE_EQ(source.durationSeconds, 0.5);
    auto users = source.users;
    std::ranges::sort(users);
    EXPECT_EQ(users, (std::vector<std::string>{"/Instruments/KIT.m8i", "/Songs/BEAT.m8s"}));
    EXPECT_TRUE(std::ranges::count(source.versionPaths, "/Samples/Drums/kick_trim.wav"));
    // A link is no path of the card the version was taken from, nor is what lies behind it.
    EXPECT_FALSE(
        std::ranges::any_of(source.versionPaths, [](const auto& path) { return path.starts_with("/Away"); }));
    EXPECT_EQ(StagingSource::read(version_, "/Samples/Drums/kick.wav", {}).cardPath, source.cardPath);
}

TEST_F(StagingSourceTest, AnOverwriteNamesTheUsersAndANewFileTakesAFreeName) {
    const auto source = StagingSource::read(version_, "Samples/Drums/kick.wav", {});
    const auto over = source.request(EditMode::overwrite, 0.1, 0.4, std::nullopt, "M8_4C3C645B", {});
    EXPECT_EQ(over.targetRelativePath, "/Samples/Drums/kick.wav");
    EXPECT_EQ(over.affectedSongs.size(), 2u);
    EXPECT_DOUBLE_EQ(over.originalDuration, 0.5);

    // kick_trim.wav is in the version and kick_trim_2.wav the target of a pending edit.
    const auto pending = test::newFileEdit("/Samples/Drums/KICK_TRIM_2.wav");
    const auto fresh = source.request(EditMode::saveAsNew, 0.1, 0.4, std::nullopt, "M8_4C3C645B", {pending});
    EXPECT_EQ(fresh.targetRelativePath, "/Samples/Drums/kick_trim_3.wav");
    const auto named = source.request(EditMode::saveAsNew, 0, 0.2, "/Samples/cut.wav", "M8_4C3C645B", {});
    EXPECT_EQ(named.targetRelativePath, "/Samples/cut.wav");
}

TEST_F(StagingSourceTest, ASampleOutsideTheVersionOrMissingIsRefused) {
    writeFile(temp_ / "outside.wav", "not in the version");
    for (const auto* path : {"../../outside.wav", "Away/outside.wav", "Samples/Drums/none.wav", ""})
        EXPECT_THROW(StagingSource::read(version_, path, {}), BrowseFileError) << path;
}

}  // namespace
}  // namespace tapekeep
