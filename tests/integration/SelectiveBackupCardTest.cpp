// Selective backups end to end on a real FAT card mounted through FUSE, with the real rsync and the
// real CLI: what a selection brings into a version, and what it must never bring or lose.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <thread>

#include "CardFiles.h"
#include "CliProcess.h"
#include "FatCard.h"
#include "FuseCardTest.h"
#include "M8Files.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::inodeOf;
using test::readFile;
using test::rewriteOnCard;
using test::writeFile;

std::string lowercased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

// The names in a folder that spell `name` in any letter case: a case-sensitive backup drive holds
// one folder per spelling, the card only one.
std::vector<std::string> spellingsOf(const fs::path& folder, const std::string& name) {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(folder))
        if (lowercased(entry.path().filename().string()) == lowercased(name))
            found.push_back(entry.path().filename().string());
    return found;
}

class SelectiveBackupCardTest : public test::FuseCardTest {
protected:
    void SetUp() override {
        FuseCardTest::SetUp();
        if (IsSkipped()) return;
        const fs::path root = card_->mountPath();
        writeFile(root / "Songs/DEMO.m8s", test::songWithSamples({"/Samples/Drums/hit 0.wav"}));
        for (int i = 0; i < 4; ++i)
            writeFile(root / ("Samples/Drums/hit " + std::to_string(i) + ".wav"),
                      "hit " + std::to_string(i) + ", first take");
        writeFile(root / "Samples/pad.wav", "pad, first take");
        writeFile(root / "Instruments/BASS.m8i", "bass");
    }

    test::CliResult backup(std::vector<std::string> extra) {
        extra.insert(extra.begin(), {"--json", "backup", "M8CARD"});
        return cli(extra);
    }

    // A whole backup to select over, then a clock that has moved on to the next version's name.
    fs::path wholeBackup() {
        const fs::path version = backupOk();
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));
        return version;
    }

    std::size_t countOf(const std::string& prefix) const { return storeEntries(prefix).size(); }

    fs::path card(const std::string& relative) const { return card_->mountPath() / relative; }
};

// A selected folder below the top level: its parents are entered for it alone, so the folder is
// copied afresh while the rest of its parent stays as the previous version had it.
TEST_F(SelectiveBackupCardTest, NestedFolderIsCopiedAndItsParentKeepsTheRestOfThePreviousVersion) {
    const fs::path first = wholeBackup();
    ASSERT_FALSE(first.empty());
    rewriteOnCard(card("Samples/Drums/hit 0.wav"), "hit 0, second take");
    fs::remove(card("Samples/Drums/hit 3.wav"));
    writeFile(card("Samples/Drums/hit 4.wav"), "hit 4, new");
    rewriteOnCard(card("Samples/pad.wav"), "pad, changed but not selected");
    writeFile(card("Samples/new.wav"), "new, not selected");
    fs::remove(card("Instruments/BASS.m8i"));

    const auto result = backup({"--folders", "Samples/Drums", "--verify"});
    ASSERT_EQ(result.status, 0) << result.err;
    const fs::path second = versionOf(result);
    EXPECT_EQ(readFile(second / "Samples/Drums/hit 0.wav"), "hit 0, second take");
    EXPECT_EQ(readFile(second / "Samples/Drums/hit 4.wav"), "hit 4, new");
    EXPECT_FALSE(fs::exists(second / "Samples/Drums/hit 3.wav"));  // left the selected folder
    EXPECT_EQ(inodeOf(second / "Samples/Drums/hit 1.wav"), inodeOf(first / "Samples/Drums/hit 1.wav"));
    // Outside the selected folder, nothing is copied and nothing deleted.
    EXPECT_EQ(readFile(second / "Samples/pad.wav"), "pad, first take");
    EXPECT_EQ(inodeOf(second / "Samples/pad.wav"), inodeOf(first / "Samples/pad.wav"));
    EXPECT_FALSE(fs::exists(second / "Samples/new.wav"));
    EXPECT_EQ(readFile(second / "Instruments/BASS.m8i"), "bass");
    EXPECT_NE(result.err.find("Verification passed — selected files match."), std::string::npos)
        << result.err;

    // Named in another letter case, the folder is still the card's own: no second spelling.
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    rewriteOnCard(card("Samples/Drums/hit 1.wav"), "hit 1, second take");
    const auto again = backup({"--folders", "samples/DRUMS", "--verify"});
    ASSERT_EQ(again.status, 0) << again.err;
    const fs::path third = versionOf(again);
    EXPECT_EQ(readFile(third / "Samples/Drums/hit 1.wav"), "hit 1, second take");
    EXPECT_EQ(spellingsOf(third, "samples"), std::vector<std::string>{"Samples"});
    EXPECT_EQ(spellingsOf(third / "Samples", "drums"), std::vector<std::string>{"Drums"});
}

// A song's references mean what the usage index says they mean, and the file list names each file
// as the card spells it.
TEST_F(SelectiveBackupCardTest, SampleReferencesBringTheCardsOwnFilesInTheCardsSpelling) {
    writeFile(card("Songs/CASE.m8s"),
              test::songWithSamples({"/samples/drums/HIT 1.WAV",  // another letter case
                                     "../Samples/pad.wav",        // relative to the song's folder
                                     "/../../etc/hostname",       // leaves the card
                                     "/Samples/lost.wav"}));
    const fs::path first = wholeBackup();
    ASSERT_FALSE(first.empty());
    rewriteOnCard(card("Samples/Drums/hit 1.wav"), "hit 1, second take");
    rewriteOnCard(card("Samples/pad.wav"), "pad, second take");
    rewriteOnCard(card("Samples/Drums/hit 2.wav"), "hit 2, used by no selected song");

    const auto result = backup({"--songs", "songs/case.m8s", "--verify"});
    ASSERT_EQ(result.status, 0) << result.err;
    const fs::path second = versionOf(result);
    EXPECT_EQ(readFile(second / "Samples/Drums/hit 1.wav"), "hit 1, second take");
    EXPECT_EQ(readFile(second / "Samples/pad.wav"), "pad, second take");
    EXPECT_EQ(readFile(second / "Samples/Drums/hit 2.wav"), "hit 2, first take");
    EXPECT_EQ(spellingsOf(second, "songs"), std::vector<std::string>{"Songs"});
    EXPECT_EQ(spellingsOf(second / "Songs", "case.m8s"), std::vector<std::string>{"CASE.m8s"});
    EXPECT_EQ(spellingsOf(second, "samples"), std::vector<std::string>{"Samples"});
    EXPECT_EQ(spellingsOf(second / "Samples", "drums"), std::vector<std::string>{"Drums"});
    EXPECT_EQ(spellingsOf(second / "Samples/Drums", "hit 1.wav"), std::vector<std::string>{"hit 1.wav"});
    EXPECT_NE(result.err.find("Skipped 2 sample reference(s) that no longer exist on the card: "
                              "../../etc/hostname, Samples/lost.wav"),
              std::string::npos)
        << result.err;
    for (const auto& entry : fs::recursive_directory_iterator(second))
        EXPECT_NE(entry.path().filename(), "hostname") << entry.path();
}

// A selection that names nothing usable on the card is refused in the application's words, naming
// the path, before a staging folder exists; with or without a version to select over.
TEST_F(SelectiveBackupCardTest, SelectionThatIsNotOnTheCardIsRefusedBeforeAnythingIsWritten) {
    struct Case {
        std::string option, value, text;
    };
    const std::vector<Case> cases = {
        {"--folders", "Samples/Nope", "Selected folder is not on the card: Samples/Nope"},
        {"--folders", "Samples/Drums/hit 0.wav",
         "Selected folder is not on the card: Samples/Drums/hit 0.wav"},
        {"--folders", "../x", "Invalid relative file path in selection: ../x"},
        {"--songs", "Songs/../Songs/DEMO.m8s",
         "Invalid relative file path in selection: Songs/../Songs/DEMO.m8s"},
        {"--songs", "Songs/none.m8s", "Selected song is no longer readable: Songs/none.m8s"},
    };
    for (const bool withPrevious : {false, true}) {
        if (withPrevious) {
            ASSERT_FALSE(wholeBackup().empty());
        }
        const std::size_t versions = countOf("backup-");
        for (const auto& c : cases) {
            const auto result = backup({c.option, c.value});
            EXPECT_EQ(result.status, 1) << c.value;
            EXPECT_EQ(result.lastErrorLine, c.text) << result.err;
            EXPECT_EQ(countOf(".incomplete-"), 0u) << c.value;
            EXPECT_EQ(countOf("backup-"), versions) << c.value;
        }
    }
}

}  // namespace
}  // namespace tapekeep
