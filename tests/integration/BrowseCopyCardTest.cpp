// A song folder of a version made by a real backup of a real FAT card, copied back onto that card by
// BrowseCopyOperation's standard set: the card found by the real volume scanner, the real rsync, the
// card's browse lease, and the read-back.

#include <gtest/gtest.h>

#include "FileContent.h"
#include "FuseCardTest.h"
#include "M8Files.h"
#include "TempDir.h"
#include "cards/OperationLock.h"
#include "cards/VolumeScanner.h"
#include "workflows/BrowseCopyOperation.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;

using BrowseCopyCardTest = test::FuseCardTest;

TEST_F(BrowseCopyCardTest, ASongFolderComesBackToTheCardAndReadsBackAlike) {
    const fs::path card = card_->mountPath();
    const std::string gig = test::songWithSamples({"/Samples/kick.wav"});
    const std::string jam = test::pseudoRandomBytes(BrowseCopyOperation::blockSize + 4096, 7);
    test::writeFile(card / "Songs/Live/GIG.m8s", gig);
    test::writeFile(card / "Songs/Live/Old/JAM.m8s", jam);
    test::writeFile(card / "Instruments/BASS.m8i", "bass");
    test::writeFile(card / "Samples/kick.wav", "kick");
    const fs::path version = backupOk();
    ASSERT_FALSE(version.empty());
    fs::remove_all(card / "Songs/Live");
    test::writeFile(card / "Songs/NEW.m8s", "made on the card since");

    const VolumeScanner scanner({volumes_}, nullptr);
    const BrowseCopyOperation operation(
        BrowseCopyOperation::standardDependencies([&scanner](const std::string& uuid, std::stop_token token) {
            return scanner.validate(uuid, token);
        }));
    const SDCard sdCard{card, "M8CARD", card_->uuid()};
    std::vector<std::string> lines;
    fs::path copied;
    try {
        copied = operation.copy({card, version / "Songs/Live", version, sdCard, "/usr/bin/rsync"},
                                [&lines](const std::string& line) { lines.push_back(line); }, {});
    } catch (const std::exception& error) {
        std::string said;
        for (const auto& line : lines) said += line + "\n";
        FAIL() << error.what() << "\nrsync said:\n" << said;
    }

    EXPECT_EQ(copied, card / "Songs/Live");
    EXPECT_EQ(test::readFile(card / "Songs/Live/GIG.m8s"), gig);
    EXPECT_EQ(test::readFile(card / "Songs/Live/Old/JAM.m8s"), jam);
    EXPECT_EQ(test::readFile(card / "Songs/NEW.m8s"), "made on the card since");
    EXPECT_EQ(test::readFile(card / "Samples/kick.wav"), "kick");
    EXPECT_FALSE(lines.empty());
    EXPECT_FALSE(OperationLock::shared().isActive(VolumeUUID{card_->uuid()}));
}

}  // namespace
}  // namespace tapekeep
