// Versions made by real backups of a real FAT card, put back on the card by `tapekeep-cli restore`
// with the real rsync: what a restore may change, what it must leave alone, and what its preview says.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "CardFiles.h"
#include "FileContent.h"
#include "FuseCardTest.h"
#include "M8Files.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::readFile;
using test::treeOf;
using test::writeFile;
using Json = nlohmann::json;

void setModificationTime(const fs::path& file, std::time_t seconds) {
    ASSERT_TRUE(test::setModificationTime(file, seconds)) << file;
}

class RestoreCardTest : public test::FuseCardTest {
protected:
    void SetUp() override {
        FuseCardTest::SetUp();
        if (IsSkipped()) return;
        writeFile(card_->mountPath() / "Songs/GIG.m8s", test::songWithSamples({"/Samples/kick.wav"}));
        writeFile(card_->mountPath() / "Songs/JAM.m8s", "jam");
        writeFile(card_->mountPath() / "Instruments/BASS.m8i", "bass");
        writeFile(card_->mountPath() / "Samples/kick.wav", "kick");
        writeFile(card_->mountPath() / "Samples/pad.wav", "pad");
        version_ = backupOk();
        ASSERT_FALSE(version_.empty());
    }

    test::CliResult restore(const std::vector<std::string>& extra = {},
                            const std::map<std::string, std::string>& environment = {}) const {
        std::vector<std::string> arguments{"--json", "restore", "M8CARD", setName(), versionName()};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        return cli(arguments, environment);
    }
    std::string setName() const { return version_.parent_path().filename().string(); }
    std::string versionName() const { return version_.filename().string(); }

    static std::map<std::string, std::string> rows(const test::CliResult& preview) {
        std::map<std::string, std::string> kinds;
        const Json listing = Json::parse(preview.out);
        for (const auto& row : listing.at("rows")) kinds[row.at("path")] = row.at("kind");
        return kinds;
    }

    // The files whose content differs between two pictures of the card, or that only the second has.
    static std::set<std::string> changed(const std::map<std::string, std::string>& before,
                                         const std::map<std::string, std::string>& after) {
        std::set<std::string> paths;
        for (const auto& [path, content] : after)
            if (content != "/" && (!before.contains(path) || before.at(path) != content)) paths.insert(path);
        return paths;
    }

    fs::path version_;
};

// The card moved on after the backup: one song was edited there (newer than the version's), one was
// made there, one was deleted there, and the version holds a sample newer than the card's. The preview
// names exactly what the restore then changes: the deleted song comes back and the newer sample
// replaces the card's; the edit and the card's own song stay as they are.
TEST_F(RestoreCardTest, ThePreviewNamesWhatTheRestoreChangesAndNewerWorkOnTheCardIsKept) {
    const fs::path card = card_->mountPath();
    writeFile(version_ / "Songs/JAM.m8s", "jam as backed up, edited since on the card");
    setModificationTime(version_ / "Songs/JAM.m8s", 1'600'000'000);
    test::rewriteOnCard(card / "Songs/JAM.m8s", "jam edited on the device");
    writeFile(card / "Songs/NEW.m8s", "made on the device after the backup");
    fs::remove(card / "Instruments/BASS.m8i");
    writeFile(version_ / "Samples/pad.wav", "pad as a later backup had it");
    setModificationTime(version_ / "Samples/pad.wav", std::time(nullptr) + 86'400);
    const auto before = treeOf(card);

    const auto preview = restore({"--preview"});
    ASSERT_EQ(preview.status, 0) << preview.err;
    EXPECT_EQ(rows(preview), (std::map<std::string, std::string>{{"Instruments/BASS.m8i", "added"},
                                                                 {"Samples/pad.wav", "modified"}}));
    EXPECT_EQ(treeOf(card), before) << "a preview writes nothing";

    const auto result = restore();
    ASSERT_EQ(result.status, 0) << result.err;
    const Json answer = Json::parse(result.out);
    EXPECT_EQ(answer.at("restored"), true);
    EXPECT_TRUE(answer.at("safetyVersion").is_string()) << "the card had changes no version held";
    EXPECT_EQ(answer.at("warning"), nullptr);
    const auto after = treeOf(card);
    std::set<std::string> previewed;
    for (const auto& [path, kind] : rows(preview)) previewed.insert(path);
    EXPECT_EQ(changed(before, after), previewed);
    EXPECT_EQ(readFile(card / "Songs/JAM.m8s"), "jam edited on the device");
    EXPECT_EQ(readFile(card / "Songs/NEW.m8s"), "made on the device after the backup");
    EXPECT_EQ(readFile(card / "Instruments/BASS.m8i"), "bass");
    EXPECT_EQ(readFile(card / "Samples/pad.wav"), "pad as a later backup had it");
}

TEST_F(RestoreCardTest, SongsRestoredOneByOneBringTheSamplesTheyUse) {
    const fs::path card = card_->mountPath();
    for (const char* file : {"Songs/GIG.m8s", "Songs/JAM.m8s", "Samples/kick.wav", "Samples/pad.wav"})
        fs::remove(card / file);

    const auto preview = restore({"--songs", "Songs/GIG.m8s", "--preview"});
    ASSERT_EQ(preview.status, 0) << preview.err;
    EXPECT_EQ(rows(preview), (std::map<std::string, std::string>{{"Samples/kick.wav", "added"},
                                                                 {"Songs/GIG.m8s", "added"}}));
    const auto result = restore({"--songs", "Songs/GIG.m8s"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.err.find("Restoring 1 song(s) + 1 referenced sample(s)…"), std::string::npos)
        << result.err;
    EXPECT_EQ(readFile(card / "Songs/GIG.m8s"), readFile(version_ / "Songs/GIG.m8s"));
    EXPECT_EQ(readFile(card / "Samples/kick.wav"), "kick");
    EXPECT_FALSE(fs::exists(card / "Samples/pad.wav"));
    EXPECT_FALSE(fs::exists(card / "Songs/JAM.m8s"));
}

TEST_F(RestoreCardTest, AVersionDeletedAfterItWasChosenIsNotFoundAndTheCardIsUntouched) {
    fs::remove(card_->mountPath() / "Songs/JAM.m8s");
    const auto before = treeOf(card_->mountPath());
    const fs::path marker = temp_ / "held";
    const auto run =
        startHeldAt("restore-checks", marker, {"--json", "restore", "M8CARD", setName(), versionName()});
    ASSERT_TRUE(fs::exists(marker)) << run->err();
    fs::remove_all(version_);
    fs::remove(marker);
    EXPECT_EQ(run->wait(), 1) << run->err();
    EXPECT_EQ(run->lastErrorLine(), "Backup source no longer exists on disk.");
    EXPECT_EQ(run->out(), "");
    EXPECT_EQ(treeOf(card_->mountPath()), before);
}

// SIGINT and SIGTERM stop the restore through the controller's cancellation, held where it would
// next look at the card, so that nothing is written.
TEST_F(RestoreCardTest, ASignalCancelsTheRestoreWith130AndWritesNothing) {
    fs::remove(card_->mountPath() / "Songs/JAM.m8s");
    const auto before = treeOf(card_->mountPath());
    for (const int signal : {SIGINT, SIGTERM}) {
        SCOPED_TRACE(signal == SIGINT ? "SIGINT" : "SIGTERM");
        const fs::path marker = temp_ / ("held-" + std::to_string(signal));
        const auto run =
            startHeldAt("restore-checks", marker, {"--json", "restore", "M8CARD", setName(), versionName()});
        ASSERT_TRUE(fs::exists(marker)) << run->err();
        run->signal(signal);
        EXPECT_EQ(run->wait(), 130) << run->err();
        EXPECT_EQ(run->lastErrorLine(), "Restore was cancelled.");
        EXPECT_NE(run->err().find("Restore cancelled by user."), std::string::npos) << run->err();
        EXPECT_EQ(run->out(), "");
        EXPECT_EQ(treeOf(card_->mountPath()), before);
        fs::remove(marker);
    }
}

// The backup runs in another process, held by the test hook in its transfer pass.
TEST_F(RestoreCardTest, ARestoreWhileABackupHoldsTheCardIsRefusedAndChangesNothing) {
    fs::remove(card_->mountPath() / "Songs/JAM.m8s");
    expectRefusedWhileABackupHoldsTheCard([&] { return restore(); },
                                          "Another operation is already running for this card.");
}

TEST_F(RestoreCardTest, AFolderOrSongTheVersionLacksIsAUsageError) {
    const auto folder = restore({"--folders", "Projects"});
    EXPECT_EQ(folder.status, 2) << folder.err;
    EXPECT_EQ(folder.lastErrorLine, "The version has no folder \"Projects\".");
    const auto song = restore({"--songs", "Songs/NONE.m8s"});
    EXPECT_EQ(song.status, 2) << song.err;
    EXPECT_EQ(song.lastErrorLine, "The version has no song \"Songs/NONE.m8s\".");
}

}  // namespace
}  // namespace tapekeep
