// Exports of versions that a real backup of a real FAT card made: the ZIP unpacks to the card as it
// was, a file that two versions share through a hard link is never written over itself, and a disk
// that fills while the archive is written keeps what it held.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "CardFiles.h"
#include "CliProcess.h"
#include "FatCard.h"
#include "FileContent.h"
#include "FileSnapshot.h"
#include "FuseCardTest.h"
#include "M8Files.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::FatCard;
using test::FileSnapshot;
using test::namesIn;
using test::pseudoRandomBytes;
using test::readFile;
using test::runShell;
using test::shellQuote;
using test::writeFile;

class ExportCardTest : public test::FuseCardTest {
protected:
    void SetUp() override {
        FuseCardTest::SetUp();
        if (IsSkipped()) return;
        writeFile(card_->mountPath() / "Songs/DEMO.m8s", test::songWithSamples({"/Samples/pad.wav"}));
        writeFile(card_->mountPath() / "Instruments/BASS.m8i", pseudoRandomBytes(400, 2));
        writeFile(card_->mountPath() / "Samples/pad.wav", pseudoRandomBytes(3'000'000, 3));
        writeFile(card_->mountPath() / "Samples/Drums/kick.wav", pseudoRandomBytes(40'000, 4));
        fs::create_directories(out_);
    }

    fs::path out_ = temp_ / "out";
};

TEST_F(ExportCardTest, TheZipOfABackedUpCardUnpacksToTheCardUnderTheVersionsName) {
    const fs::path version = backupOk();
    ASSERT_FALSE(version.empty());
    const std::string set = version.parent_path().filename().string();
    const fs::path archive = out_ / "card.zip";

    const auto result = cli({"--json", "export", set, "latest", archive.string()});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(nlohmann::json::parse(result.out), (nlohmann::json{{"archive", archive.string()}}));
    std::string listing;
    ASSERT_EQ(runShell("unzip -Z1 " + shellQuote(archive.string()), &listing), 0) << listing;
    EXPECT_TRUE(listing.starts_with(version.filename().string() + "/\n")) << listing;
    std::string tested;
    EXPECT_EQ(runShell("unzip -tqq " + shellQuote(archive.string()), &tested), 0) << tested;
    std::string unpacked;
    ASSERT_EQ(runShell("unzip -q " + shellQuote(archive.string()) + " -d " +
                           shellQuote((temp_ / "unpacked").string()),
                       &unpacked),
              0)
        << unpacked;
    std::string differences;
    EXPECT_TRUE(test::sameTree(temp_ / "unpacked" / version.filename(), card_->mountPath(), &differences))
        << differences;
    EXPECT_EQ(namesIn(out_), std::vector<std::string>{"card.zip"});
}

TEST_F(ExportCardTest, AFileTwoVersionsShareIsNeverExportedOverItself) {
    const fs::path first = backupOk();
    writeFile(card_->mountPath() / "Songs/NEW.m8s", pseudoRandomBytes(5000, 9));  // the next version differs
    const fs::path second = backupOk();
    ASSERT_FALSE(first.empty());
    ASSERT_FALSE(second.empty());
    ASSERT_NE(first, second);
    // Unchanged on the card, so the second version links the first one's file.
    ASSERT_EQ(test::inodeOf(first / "Samples/pad.wav"), test::inodeOf(second / "Samples/pad.wav"));
    const FileSnapshot before = FileSnapshot::of(first / "Samples/pad.wav");

    const auto result =
        cli({"--json", "export-file", first.parent_path().filename().string(), first.filename().string(),
             "Samples/pad.wav", (second / "Samples/pad.wav").string()});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.lastErrorLine, "Refusing to overwrite the export source.");
    EXPECT_TRUE(result.out.empty());
    EXPECT_EQ(FileSnapshot::of(first / "Samples/pad.wav"), before);
    EXPECT_EQ(FileSnapshot::of(second / "Samples/pad.wav"), before);
    EXPECT_EQ(namesIn(second / "Samples"), (std::vector<std::string>{"Drums", "pad.wav"}));
}

TEST_F(ExportCardTest, ADiskThatFillsWhileTheZipIsWrittenKeepsTheOldArchiveAndNoTemporary) {
    const fs::path version = backupOk();
    ASSERT_FALSE(version.empty());
    // A disk smaller than the archive: another FAT image, outside the volume root.
    fs::create_directories(temp_ / "disks");
    FatCard disk(temp_ / "disk.img", temp_ / "disks", "SMALLDISK", 2);
    writeFile(disk.mountPath() / "gig.zip", "the old archive");

    const auto result = cli({"export", version.parent_path().filename().string(), "latest",
                             (disk.mountPath() / "gig.zip").string()});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.lastErrorLine, "ZIP export failed (exit code 1).");
    // The archiver's own words come first (fusefat reports a full disk as EPERM, not ENOSPC).
    EXPECT_NE(result.err.find("Write error: "), std::string::npos) << result.err;
    for (const auto& name : namesIn(disk.mountPath()))
        EXPECT_EQ(name.find("-export-"), std::string::npos) << name;  // the label shows as a file here
    EXPECT_EQ(readFile(disk.mountPath() / "gig.zip"), "the old archive");
}

}  // namespace
}  // namespace tapekeep
