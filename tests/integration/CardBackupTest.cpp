// End to end on a real FAT card mounted through FUSE, with the real rsync and the real CLI.

#include <gtest/gtest.h>

#include <csignal>
#include <nlohmann/json.hpp>
#include <thread>

#include "CardFiles.h"
#include "CliProcess.h"
#include "FatCard.h"
#include "FileContent.h"
#include "FuseCardTest.h"
#include "LiveProcesses.h"
#include "M8Files.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::inodeOf;
using test::pseudoRandomBytes;
using test::readFile;
using test::rewriteOnCard;
using test::writeFile;

void populateCard(const fs::path& root) {
    writeFile(
        root / "Songs/DEMO.m8s",
        test::songWithSamples({"/Samples/Drums/hit 0.wav", "/Samples/Drums/hit 1.wav", "/Samples/lost.wav"}));
    writeFile(root / "Songs/Live/SET 2.m8s", pseudoRandomBytes(12000, 2));
    writeFile(root / "Instruments/BASS.m8i", pseudoRandomBytes(400, 3));
    for (int i = 0; i < 6; ++i)
        writeFile(root / ("Samples/Drums/hit " + std::to_string(i) + ".wav"),
                  pseudoRandomBytes(30000, 10 + i));
    writeFile(root / "Samples/pad.wav", pseudoRandomBytes(200000, 99));
}

class CardBackupTest : public test::FuseCardTest {
protected:
    void SetUp() override {
        FuseCardTest::SetUp();
        if (IsSkipped()) return;
        populateCard(card_->mountPath());
    }

    // A FAT UUID "4C3C-645B" names the set "M8CARD_4C3C645B".
    fs::path setRoot() const {
        std::string id = card_->uuid();
        std::erase(id, '-');
        return base_ / ("M8CARD_" + id);
    }

    std::vector<std::string> setEntries() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(setRoot()))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
};

TEST_F(CardBackupTest, CardIsFoundByItsVolumeUuid) {
    const auto result = cli({"--json", "cards"});
    ASSERT_EQ(result.status, 0) << result.err;
    const auto cards = nlohmann::json::parse(result.out).at("cards");
    ASSERT_EQ(cards.size(), 1u) << result.out;
    EXPECT_EQ(cards[0].at("uuid"), card_->uuid());
    EXPECT_EQ(cards[0].at("volumeName"), "M8CARD");
    EXPECT_EQ(cards[0].at("mountPath"), card_->mountPath().string());
}

TEST_F(CardBackupTest, FirstBackupPublishesAVersionEqualToTheCard) {
    const fs::path version = backupOk();
    ASSERT_FALSE(version.empty());
    EXPECT_EQ(version.parent_path(), setRoot());
    EXPECT_TRUE(version.filename().string().starts_with("backup-"));
    EXPECT_EQ(fs::read_symlink(setRoot() / "latest"), version.filename());  // relative
    for (const auto& name : setEntries()) EXPECT_FALSE(name.starts_with(".incomplete-")) << name;
    std::string differences;
    EXPECT_TRUE(test::sameTree(card_->mountPath(), version, &differences)) << differences;
}

TEST_F(CardBackupTest, SecondBackupHardLinksUnchangedFilesToTheFirst) {
    const fs::path first = backupOk();
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    rewriteOnCard(card_->mountPath() / "Songs/DEMO.m8s", test::songWithSamples({"/Samples/pad.wav"}));
    const fs::path second = backupOk();
    ASSERT_FALSE(first.empty());
    ASSERT_FALSE(second.empty());
    ASSERT_NE(first, second);
    for (const auto& entry : fs::recursive_directory_iterator(second)) {
        if (!entry.is_regular_file()) continue;
        const auto relative = fs::relative(entry.path(), second);
        if (relative == "Songs/DEMO.m8s")
            EXPECT_NE(inodeOf(entry.path()), inodeOf(first / relative));
        else
            EXPECT_EQ(inodeOf(entry.path()), inodeOf(first / relative)) << relative;
    }
    EXPECT_EQ(readFile(second / "Songs/DEMO.m8s"), test::songWithSamples({"/Samples/pad.wav"}));
}

TEST_F(CardBackupTest, ThreeBackupsWithKeepTwoLeaveTheTwoNewest) {
    std::vector<fs::path> published;
    for (int i = 0; i < 3; ++i) {
        published.push_back(backupOk({"--keep", "2"}));
        ASSERT_FALSE(published.back().empty());
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    }
    const auto result = cli({"--json", "versions", setRoot().filename().string()});
    ASSERT_EQ(result.status, 0) << result.err;
    const auto versions = nlohmann::json::parse(result.out).at("versions");
    ASSERT_EQ(versions.size(), 2u);
    EXPECT_EQ(versions[0].at("folderName"), published[2].filename().string());
    EXPECT_EQ(versions[1].at("folderName"), published[1].filename().string());
    EXPECT_TRUE(versions[0].at("isLatest").get<bool>());
    EXPECT_FALSE(fs::exists(published[0]));
    EXPECT_TRUE(fs::is_directory(published[1]) && fs::is_directory(published[2]));
}

TEST_F(CardBackupTest, CardUnmountedBetweenPassesFailsWithTheIdentityMessage) {
    // An rsync that unplugs the card right after the dry run.
    const fs::path wrapper = temp_ / "unplugging-rsync";
    writeFile(wrapper,
              "#!/bin/sh\n"
              "case \" $* \" in *\" -an \"*) /usr/bin/rsync \"$@\"; status=$?; fusermount -u " +
                  test::shellQuote(card_->mountPath().string()) +
                  "; exit $status;; esac\n"
                  "exec /usr/bin/rsync \"$@\"\n");
    fs::permissions(wrapper, fs::perms::owner_all);
    const auto result = cli({"--rsync", wrapper.string(), "backup", "M8CARD"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.lastErrorLine,
              "Volume identity or mount path changed. Reconnect the card and select it again.");
    std::vector<std::string> staging;
    for (const auto& name : setEntries())
        if (name.starts_with(".incomplete-")) staging.push_back(name);
    ASSERT_EQ(staging.size(), 1u);
    EXPECT_EQ(
        readFile(setRoot() / staging[0] / "failure.txt"),
        "Incomplete backup. Not a restore source.\nVolume identity or mount path changed. Reconnect the card "
        "and select it again.\n");
    EXPECT_FALSE(fs::exists(fs::symlink_status(setRoot() / "latest")));
}

TEST_F(CardBackupTest, SigtermMidTransferDiscardsTheStagingFolder) {
    writeFile(card_->mountPath() / "Samples/long take.wav", pseudoRandomBytes(3'000'000, 7));
    const fs::path slowRsync = temp_ / "slow-rsync";
    writeFile(slowRsync, "#!/bin/sh\nexec /usr/bin/rsync --bwlimit=200 \"$@\"\n");
    fs::permissions(slowRsync, fs::perms::owner_all);
    const auto process = startCli({"--rsync", slowRsync.string(), "backup", "M8CARD"});
    // Wait until the transfer has begun writing into staging.
    const bool copying = test::waitUntil([&] {
        const auto staging = storeEntries(".incomplete-");
        return std::any_of(staging.begin(), staging.end(),
                           [](const fs::path& folder) { return fs::exists(folder / "Instruments"); });
    });
    ASSERT_TRUE(copying) << process->err();
    process->signal(SIGTERM);
    EXPECT_EQ(process->wait(), 130) << process->err();
    EXPECT_EQ(process->lastErrorLine(), "Backup was cancelled.");
    const auto entries = setEntries();
    EXPECT_TRUE(std::none_of(entries.begin(), entries.end(), [](const std::string& name) {
        return name.starts_with(".incomplete-") || name.starts_with("backup-");
    })) << testing::PrintToString(entries);
}

TEST_F(CardBackupTest, SongsOnlyCopiesTheSongAndExactlyItsSamplesOverTheWholeCard) {
    const fs::path first = backupOk();
    const fs::path card = card_->mountPath();
    rewriteOnCard(card / "Samples/Drums/hit 0.wav", "re-recorded, used by the song");
    rewriteOnCard(card / "Samples/Drums/hit 5.wav", "re-recorded, used by no song");
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    const auto result = cli({"--json", "backup", "M8CARD", "--songs", "Songs/DEMO.m8s"});
    ASSERT_EQ(result.status, 0) << result.err;
    const fs::path second = nlohmann::json::parse(result.out).at("version").get<std::string>();
    EXPECT_EQ(readFile(second / "Samples/Drums/hit 0.wav"), "re-recorded, used by the song");
    EXPECT_EQ(readFile(second / "Samples/Drums/hit 5.wav"), pseudoRandomBytes(30000, 15));
    for (const char* unchanged : {"Samples/pad.wav", "Samples/Drums/hit 5.wav", "Instruments/BASS.m8i"})
        EXPECT_EQ(inodeOf(second / unchanged), inodeOf(first / unchanged)) << unchanged;
    EXPECT_NE(
        result.err.find("Skipped 1 sample reference(s) that no longer exist on the card: Samples/lost.wav"),
        std::string::npos)
        << result.err;
}

TEST_F(CardBackupTest, VerificationCatchesACardChangedBehindRsyncsBackAndRetriesOnce) {
    // The first transfer pass is followed by a write to the card, as if the M8 saved just then.
    const std::string marker = test::shellQuote((temp_ / "changed-once").string());
    const std::string instrument = test::shellQuote((card_->mountPath() / "Instruments/BASS.m8i").string());
    const fs::path wrapper = temp_ / "meddling-rsync";
    writeFile(wrapper,
              "#!/bin/sh\n/usr/bin/rsync \"$@\"; status=$?\n"
              "case \" $* \" in *\" -avh \"*) if [ ! -e " +
                  marker + " ]; then touch " + marker + "; rm " + instrument + "; printf changed > " +
                  instrument + "; fi;; esac\nexit $status\n");
    fs::permissions(wrapper, fs::perms::owner_all);
    const auto result =
        cli({"--json", "--rsync", wrapper.string(), "backup", "M8CARD", "--verify", "--mismatch", "retry"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.err.find("Retrying backup and verification once…"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("Verification passed — selected files match."), std::string::npos);
    const fs::path version = nlohmann::json::parse(result.out).at("version").get<std::string>();
    EXPECT_EQ(readFile(version / "Instruments/BASS.m8i"), "changed");
}

TEST_F(CardBackupTest, RotationGuardKeepsOldVersionsWhenTheCardLostMostFiles) {
    ASSERT_FALSE(backupOk({"--keep", "1"}).empty());
    fs::remove_all(card_->mountPath() / "Samples");
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    const auto result = cli({"--json", "backup", "M8CARD", "--keep", "1"});
    ASSERT_EQ(result.status, 0) << result.err;
    // fusefat shows the volume label as an empty file at the root, so the card holds one more file.
    EXPECT_EQ(
        nlohmann::json::parse(result.out).at("warning"),
        "Backup saved, but it holds far fewer files than the previous one (4 vs 11). Older backups were kept "
        "— check the card.");
    const auto names = setEntries();
    EXPECT_EQ(std::count_if(names.begin(), names.end(),
                            [](const std::string& name) { return name.starts_with("backup-"); }),
              2);
}

}  // namespace
}  // namespace tapekeep
