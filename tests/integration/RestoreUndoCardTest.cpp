// A restore that can be taken back, on a real FAT card with the real rsync: the card is backed up as
// a safety version before the restore writes anything, and `tapekeep-cli restore CARD --undo` puts
// back from it what the restore changed and removes what it added.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "CardFiles.h"
#include "FileContent.h"
#include "FuseCardTest.h"
#include "M8Files.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using Json = nlohmann::json;
using test::readFile, test::treeOf, test::writeFile;

constexpr std::time_t longAgo = 1'500'000'000;  // 2017: older than any version a test makes

class RestoreUndoCardTest : public test::FuseCardTest {
protected:
    void SetUp() override {
        FuseCardTest::SetUp();
        if (IsSkipped()) return;
        writeFile(card() / "Songs/GIG.m8s", test::songWithSamples({"/Samples/kick.wav"}));
        writeFile(card() / "Instruments/BASS.m8i", "bass");
        writeFile(card() / "Samples/kick.wav", "kick");
        writeFile(card() / "Samples/pad.wav", "pad");
        version_ = backupOk();
        ASSERT_FALSE(version_.empty());
    }

    fs::path card() const { return card_->mountPath(); }

    test::CliResult restore(const std::vector<std::string>& extra = {}) const {
        std::vector<std::string> arguments{"--json", "restore", "M8CARD", version_.parent_path().filename(),
                                           version_.filename()};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        return cli(arguments);
    }
    test::CliResult undo() const { return cli({"--json", "restore", "M8CARD", "--undo"}); }

    // The card moved on since the version: the pad was edited there, but its time is older than the
    // version's copy, so the restore replaces it; the bass was deleted there, so the restore adds it.
    void changeCardSinceTheVersion() {
        test::rewriteOnCard(card() / "Samples/pad.wav", "pad edited on the device, not yet backed up");
        ASSERT_TRUE(test::setModificationTime(card() / "Samples/pad.wav", longAgo));
        fs::remove(card() / "Instruments/BASS.m8i");
    }

    fs::path version_;
};

TEST_F(RestoreUndoCardTest, ARestoreOverUnsavedChangesKeepsThemInASafetyVersionAndUndoPutsThemBack) {
    changeCardSinceTheVersion();
    writeFile(version_ / "Songs/LIVE.m8s", "only in the version");
    // With the modes the card's files and folders have, which fusefat cannot change.
    writeFile(version_ / "Projects/LIVE/SET.m8s", "in a folder the card lacks");
    for (const char* path : {"Songs/LIVE.m8s", "Projects/LIVE/SET.m8s"})
        fs::permissions(version_ / path, fs::status(version_ / "Songs/GIG.m8s").permissions());
    for (const char* path : {"Projects", "Projects/LIVE"})
        fs::permissions(version_ / path, fs::status(version_ / "Songs").permissions());
    const auto before = treeOf(card());

    const auto preview = restore({"--preview"});
    ASSERT_EQ(preview.status, 0) << preview.err;
    EXPECT_EQ(Json::parse(preview.out).at("safetyBackup"), true);
    EXPECT_EQ(treeOf(card()), before);

    const auto restored = restore();
    ASSERT_EQ(restored.status, 0) << restored.err;
    const Json result = Json::parse(restored.out);
    ASSERT_TRUE(result.at("safetyVersion").is_string()) << restored.out;
    const fs::path safety = result.at("safetyVersion").get<std::string>();
    EXPECT_EQ(safety.parent_path(), version_.parent_path());
    EXPECT_EQ(storeEntries("backup-").size(), 2u);
    EXPECT_EQ(treeOf(safety), before) << "the safety version holds the card as it was, unsaved edit included";
    EXPECT_EQ(readFile(card() / "Samples/pad.wav"), "pad");
    EXPECT_EQ(readFile(card() / "Instruments/BASS.m8i"), "bass");
    EXPECT_EQ(readFile(card() / "Songs/LIVE.m8s"), "only in the version");
    EXPECT_EQ(readFile(card() / "Projects/LIVE/SET.m8s"), "in a folder the card lacks");

    const auto undone = undo();
    ASSERT_EQ(undone.status, 0) << undone.err;
    EXPECT_EQ(Json::parse(undone.out), Json({{"undone", true}, {"safetyVersion", safety.string()}}));
    EXPECT_EQ(treeOf(card()), treeOf(safety));
    EXPECT_EQ(readFile(card() / "Samples/pad.wav"), "pad edited on the device, not yet backed up");
    EXPECT_FALSE(fs::exists(card() / "Instruments/BASS.m8i"));
    EXPECT_FALSE(fs::exists(card() / "Songs/LIVE.m8s"));
    EXPECT_FALSE(fs::exists(card() / "Projects")) << "folders the restore made go with their files";

    const auto again = undo();
    EXPECT_EQ(again.status, 1) << again.err;
    EXPECT_EQ(again.lastErrorLine, "There is no restore to undo on this card.");
}

// The undo record survives the process: each step above and below is its own tapekeep-cli.
TEST_F(RestoreUndoCardTest, AFileChangedOnTheCardAfterTheRestoreIsKeptByTheUndo) {
    changeCardSinceTheVersion();
    ASSERT_EQ(restore().status, 0);
    test::rewriteOnCard(card() / "Instruments/BASS.m8i", "bass reworked after the restore");

    const auto undone = undo();
    ASSERT_EQ(undone.status, 0) << undone.err;
    EXPECT_EQ(readFile(card() / "Instruments/BASS.m8i"), "bass reworked after the restore");
    EXPECT_NE(undone.err.find("Kept Instruments/BASS.m8i"), std::string::npos) << undone.err;
    EXPECT_EQ(readFile(card() / "Samples/pad.wav"), "pad edited on the device, not yet backed up");
}

// The card equals its latest version, so that version is the safety version and none is made.
TEST_F(RestoreUndoCardTest, WithTheCardUpToDateNoSafetyVersionIsMadeAndTheLatestServesTheUndo) {
    test::rewriteOnCard(card() / "Samples/pad.wav", "pad of the second version");
    ASSERT_TRUE(test::setModificationTime(card() / "Samples/pad.wav", longAgo));
    const fs::path latest = backupOk();
    ASSERT_FALSE(latest.empty());
    const auto before = treeOf(card());

    const auto preview = restore({"--preview"});
    ASSERT_EQ(preview.status, 0) << preview.err;
    EXPECT_EQ(Json::parse(preview.out).at("safetyBackup"), false);
    const auto restored = restore();
    ASSERT_EQ(restored.status, 0) << restored.err;
    EXPECT_EQ(Json::parse(restored.out).at("safetyVersion"), nullptr);
    EXPECT_EQ(storeEntries("backup-").size(), 2u);
    EXPECT_EQ(readFile(card() / "Samples/pad.wav"), "pad");

    const auto undone = undo();
    ASSERT_EQ(undone.status, 0) << undone.err;
    EXPECT_EQ(Json::parse(undone.out).at("safetyVersion"), latest.string());
    EXPECT_EQ(treeOf(card()), before);
}

// The store cannot take the safety backup: its rsync fails as on a full or broken disk.
TEST_F(RestoreUndoCardTest, AFailingSafetyBackupStopsTheRestoreWithNothingWrittenToTheCard) {
    changeCardSinceTheVersion();
    const auto before = treeOf(card());
    const fs::path rsync = temp_ / "rsync-with-a-broken-store";
    writeFile(
        rsync,
        "#!/bin/sh\n"
        "case \" $* \" in *\" --delete \"*) echo 'rsync: write failed: No space left on device (28)' >&2;"
        " exit 11;; esac\n"
        "exec /usr/bin/rsync \"$@\"\n");
    fs::permissions(rsync, fs::perms::owner_all);

    const auto refused = cli({"--rsync", rsync.string(), "--json", "restore", "M8CARD",
                              version_.parent_path().filename(), version_.filename()});
    EXPECT_EQ(refused.status, 1) << refused.err;
    EXPECT_TRUE(refused.lastErrorLine.starts_with(
        "The safety backup before the restore failed, so nothing was restored: "))
        << refused.lastErrorLine;
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(treeOf(card()), before);
    EXPECT_EQ(storeEntries("backup-").size(), 1u);
    EXPECT_EQ(undo().lastErrorLine, "There is no restore to undo on this card.");
}

TEST_F(RestoreUndoCardTest, AnUndoWhoseSafetyVersionIsGoneSaysSoAndLeavesTheCardAlone) {
    changeCardSinceTheVersion();
    const auto restored = restore();
    ASSERT_EQ(restored.status, 0) << restored.err;
    const fs::path safety = Json::parse(restored.out).at("safetyVersion").get<std::string>();
    fs::remove_all(safety);
    const auto after = treeOf(card());

    const auto undone = undo();
    EXPECT_EQ(undone.status, 1) << undone.err;
    EXPECT_EQ(undone.lastErrorLine,
              "The safety version of the last restore no longer exists: " + safety.string());
    EXPECT_EQ(treeOf(card()), after);
}

// The card is pulled after the undo chose it and before it looked at the card.
TEST_F(RestoreUndoCardTest, AnUndoOfAPulledCardSaysSoAndKeepsTheRestoreUndoable) {
    changeCardSinceTheVersion();
    ASSERT_EQ(restore().status, 0);
    const fs::path marker = temp_ / "held";
    const auto run = startHeldAt("undo-checks", marker, {"--json", "restore", "M8CARD", "--undo"});
    ASSERT_TRUE(fs::exists(marker)) << run->err();
    card_->unmount();
    fs::remove(marker);
    EXPECT_EQ(run->wait(), 1) << run->err();
    EXPECT_EQ(run->lastErrorLine(), "Target volume is no longer mounted. Was the device disconnected?");

    card_->mount();
    const auto undone = undo();
    EXPECT_EQ(undone.status, 0) << undone.err;
    EXPECT_EQ(readFile(card() / "Samples/pad.wav"), "pad edited on the device, not yet backed up");
}

}  // namespace
}  // namespace tapekeep
