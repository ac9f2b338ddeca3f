// A file or folder of a version put back on a real FAT card by `tapekeep-cli copy`, with the real
// rsync, under the card's lease, and read back.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

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

class CopyCardTest : public test::FuseCardTest {
protected:
    void SetUp() override {
        FuseCardTest::SetUp();
        if (IsSkipped()) return;
        writeFile(card_->mountPath() / "Songs/GIG.m8s", test::songWithSamples({"/Samples/Drums/kick.wav"}));
        writeFile(card_->mountPath() / "Instruments/BASS.m8i", "bass");
        writeFile(card_->mountPath() / "Samples/Drums/kick.wav", "kick");
        writeFile(card_->mountPath() / "Samples/Drums/snare.wav", "snare");
        version_ = backupOk();
        ASSERT_FALSE(version_.empty());
    }

    test::CliResult copy(const std::string& path, const std::vector<std::string>& before = {}) const {
        std::vector<std::string> arguments = before;
        arguments.insert(arguments.end(),
                         {"--json", "copy", "M8CARD", version_.parent_path().filename().string(),
                          version_.filename().string(), path});
        return cli(arguments);
    }

    fs::path version_;
};

TEST_F(CopyCardTest, AFileGoesBackToItsPlaceWithTheFoldersThatWereDeletedSince) {
    fs::remove_all(card_->mountPath() / "Samples");
    const auto result = copy("Samples/Drums/kick.wav");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Json::parse(result.out),
              Json({{"copied", (card_->mountPath() / "Samples/Drums/kick.wav").string()}}));
    EXPECT_EQ(readFile(card_->mountPath() / "Samples/Drums/kick.wav"), "kick");
    EXPECT_FALSE(fs::exists(card_->mountPath() / "Samples/Drums/snare.wav"));

    const auto folder = copy("Samples");
    ASSERT_EQ(folder.status, 0) << folder.err;
    EXPECT_EQ(readFile(card_->mountPath() / "Samples/Drums/snare.wav"), "snare");
}

TEST_F(CopyCardTest, ACopyWhileABackupHoldsTheCardIsRefusedInTheLeasesWordsAndWritesNothing) {
    fs::remove_all(card_->mountPath() / "Samples");
    expectRefusedWhileABackupHoldsTheCard([&] { return copy("Samples/Drums/kick.wav"); },
                                          "Busy — backup in progress on this SD card");
}

// An rsync that reports success but leaves other bytes on the card: the read-back must notice.
TEST_F(CopyCardTest, TheReadBackCatchesACopyThatDiffersFromTheVersion) {
    const fs::path liar = temp_ / "lying-rsync";
    writeFile(liar, "#!/bin/sh\nfor last; do :; done\nprintf 'not the kick' > \"$last\"\n");
    fs::permissions(liar, fs::perms::owner_all);
    const auto result = copy("Samples/Drums/kick.wav", {"--rsync", liar.string()});
    EXPECT_EQ(result.status, 1) << result.err;
    EXPECT_TRUE(result.lastErrorLine.starts_with("Copy failed: ")) << result.lastErrorLine;
    EXPECT_NE(result.lastErrorLine.find("kick.wav"), std::string::npos) << result.lastErrorLine;
}

TEST_F(CopyCardTest, PathsThatLeaveTheVersionAreRefusedBeforeTheCardIsTouched) {
    const auto before = treeOf(card_->mountPath());
    for (const auto* escape : {"../latest", "/etc/passwd", "Samples/../../.."}) {
        const auto result = copy(escape);
        EXPECT_NE(result.status, 0) << escape;
        EXPECT_EQ(result.out, "") << escape;
    }
    EXPECT_EQ(treeOf(card_->mountPath()), before);
}

}  // namespace
}  // namespace tapekeep
