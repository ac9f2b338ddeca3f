// The store on disk, end to end on real FAT cards mounted through FUSE, with the real rsync and the
// real CLI: which folders are versions, which card a set belongs to, and a backup disk that fills.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "CliProcess.h"
#include "FatCard.h"
#include "FileContent.h"
#include "FuseCardTest.h"
#include "M8Files.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::FatCard;
using test::readFile;
using test::runCli;
using test::treeOf;
using test::writeFile;
using Names = std::vector<std::string>;

// Each test makes the cards it needs.
class BackupStoreCardTest : public test::FuseCardTest {
protected:
    void SetUp() override { prepareVolumes(); }

    // A card named M8CARD; volumeId as mkfs.vfat takes it ("4C3C645B"), or empty for any.
    std::unique_ptr<FatCard> makeCard(const std::string& image, const std::string& volumeId,
                                      const std::string& song) {
        auto card = std::make_unique<FatCard>(temp_ / image, volumes_, "M8CARD", 64, volumeId);
        writeFile(card->mountPath() / "Songs/SONG.m8s", song);
        writeFile(card->mountPath() / "Instruments/BASS.m8i", "bass of " + song);
        return card;
    }

    Names listedVersions(const std::string& set) {
        const auto result = cli({"--json", "versions", set});
        EXPECT_EQ(result.status, 0) << result.err;
        Names names;
        if (result.status != 0) return names;
        const auto listed = nlohmann::json::parse(result.out);
        for (const auto& version : listed.at("versions")) names.push_back(version.at("folderName"));
        return names;
    }
};

// ---- only dated folders are versions --------------------------------------------------------

TEST_F(BackupStoreCardTest, FoldersTapekeepDidNotNameAreNeitherListedNorRotatedNorDateTheNextVersion) {
    auto card = makeCard("card.img", "1234ABCD", "first");
    const fs::path first = backupOk({"--keep", "1"});
    ASSERT_FALSE(first.empty());
    const fs::path set = first.parent_path();
    ASSERT_EQ(set, base_ / "M8CARD_1234ABCD");
    // What a user might leave in a set: a copy, a version set aside under a name of their own, and
    // a name whose inner part is a date far ahead.
    fs::copy(first, set / "backup-copy", fs::copy_options::recursive);
    fs::rename(first, set / (first.filename().string() + "-KEEP"));
    writeFile(set / "backup-backup-2099-01-01-000000/Songs/SONG.m8s", "from the future");
    const Names foreign = {"backup-copy", first.filename().string() + "-KEEP",
                           "backup-backup-2099-01-01-000000"};
    std::map<std::string, std::map<std::string, std::string>> before;
    for (const auto& name : foreign) before[name] = treeOf(set / name);

    fs::path newest;
    for (const char* song : {"second", "third"}) {
        fs::remove(card->mountPath() / "Songs/SONG.m8s");
        writeFile(card->mountPath() / "Songs/SONG.m8s", song);
        newest = backupOk({"--keep", "1"});
        ASSERT_FALSE(newest.empty());
    }

    EXPECT_EQ(listedVersions(set.filename().string()), Names{newest.filename().string()});
    EXPECT_LT(newest.filename().string(), "backup-2099");  // named by the clock, not by the stray folder
    EXPECT_EQ(fs::read_symlink(set / "latest"), newest.filename());
    EXPECT_EQ(readFile(newest / "Songs/SONG.m8s"), "third");
    for (const auto& name : foreign) EXPECT_EQ(treeOf(set / name), before[name]) << name;
}

// ---- a set belongs to one card --------------------------------------------------------------

TEST_F(BackupStoreCardTest, CardsThatDifferOnlyInTheFirstHexDigitKeepSetsOfTheirOwn) {
    auto first = makeCard("first.img", "3C3C645B", "song of the first card");
    ASSERT_EQ(first->uuid(), "3C3C-645B");
    const fs::path firstVersion = backupOk({"--keep", "1"});
    ASSERT_FALSE(firstVersion.empty());
    first->unmount();

    // The other card, put in the same slot under the same name.
    auto second = makeCard("second.img", "4C3C645B", "song of the second card");
    ASSERT_EQ(second->uuid(), "4C3C-645B");
    fs::path secondVersion;
    for (int i = 0; i < 2; ++i) {
        secondVersion = backupOk({"--keep", "1"});
        ASSERT_FALSE(secondVersion.empty());
    }

    EXPECT_EQ(firstVersion.parent_path(), base_ / "M8CARD_3C3C645B");
    EXPECT_EQ(secondVersion.parent_path(), base_ / "M8CARD_4C3C645B");
    // The second card's rotation left the first card's history alone.
    EXPECT_EQ(listedVersions("M8CARD_3C3C645B"), Names{firstVersion.filename().string()});
    EXPECT_EQ(readFile(firstVersion / "Songs/SONG.m8s"), "song of the first card");
    EXPECT_EQ(listedVersions("M8CARD_4C3C645B"), Names{secondVersion.filename().string()});
    EXPECT_EQ(readFile(secondVersion / "Songs/SONG.m8s"), "song of the second card");
    // Each set names its card; the card file is no version and no set.
    EXPECT_EQ(nlohmann::json::parse(readFile(base_ / "M8CARD_3C3C645B/.tapekeep-card.json")),
              (nlohmann::json{{"uuid", "3C3C-645B"}, {"volumeName", "M8CARD"}}));
    EXPECT_EQ(nlohmann::json::parse(readFile(base_ / "M8CARD_4C3C645B/.tapekeep-card.json")),
              (nlohmann::json{{"uuid", "4C3C-645B"}, {"volumeName", "M8CARD"}}));
    const auto sets = cli({"--json", "sets"});
    ASSERT_EQ(sets.status, 0) << sets.err;
    const auto listed = nlohmann::json::parse(sets.out);
    Names setNames;
    for (const auto& set : listed.at("sets")) setNames.push_back(set.at("folderName"));
    EXPECT_EQ(setNames, (Names{"M8CARD_3C3C645B", "M8CARD_4C3C645B"}));
}

TEST_F(BackupStoreCardTest, SetWhoseCardFileNamesAnotherCardOrIsDamagedIsRefusedWithNothingWritten) {
    auto card = makeCard("card.img", "4C3C645B", "song");
    const fs::path set = base_ / "M8CARD_4C3C645B";
    const fs::path cardFile = set / ".tapekeep-card.json";
    struct Case {
        std::string content;
        std::string refusal;
    };
    const std::vector<Case> cases = {
        {R"({"uuid":"3C3C-645B","volumeName":"M8CARD"})",
         "This backup set belongs to another card (3C3C-645B)."},
        {R"({"uuid": "4C3C-6)", "The card file of this backup set is damaged: " + cardFile.string() +
                                    ": not a JSON object. Fix or remove it."},
        {R"({"volumeName":"M8CARD"})", "The card file of this backup set is damaged: " + cardFile.string() +
                                           ": it names no card UUID. Fix or remove it."},
    };
    for (const auto& [content, refusal] : cases) {
        SCOPED_TRACE(content);
        fs::remove_all(set);
        // The other card's history, with the remains of its dead runs that a backup clears first.
        writeFile(set / "backup-2025-01-01-120000/Songs/SONG.m8s", "the other card's song");
        fs::create_symlink("backup-2025-01-01-120000", set / "latest");
        writeFile(set / ".deleting-1/Songs/old.m8s", "on its way out");
        writeFile(set / ".incomplete-1/failure.txt", "Incomplete backup. Not a restore source.\nold\n");
        writeFile(cardFile, content);
        const auto before = treeOf(set);

        const auto result = cli({"backup", "M8CARD", "--keep", "1"});
        EXPECT_EQ(result.status, 1) << result.err;
        EXPECT_EQ(result.lastErrorLine, refusal);
        // Nor is the other card's latest version this card's baseline.
        const auto changes = cli({"changes", "M8CARD"});
        EXPECT_EQ(changes.status, 1) << changes.out;
        EXPECT_EQ(changes.lastErrorLine, refusal);
        EXPECT_EQ(treeOf(set), before);
    }
}

// ---- a full backup disk ---------------------------------------------------------------------

// A small file system of its own (tmpfs), mounted for one test and unmounted after it.
class ScratchDisk {
public:
    static std::optional<ScratchDisk> mount(const fs::path& at, int sizeMiB) {
        fs::create_directories(at);
        std::string output;
        if (test::runShell("mount -t tmpfs -o size=" + std::to_string(sizeMiB) + "M tmpfs " +
                               test::shellQuote(at.string()),
                           &output) != 0)
            return std::nullopt;
        return ScratchDisk(at);
    }
    ScratchDisk(ScratchDisk&& other) noexcept : at_(std::exchange(other.at_, {})) {}
    ScratchDisk& operator=(ScratchDisk&&) = delete;
    ~ScratchDisk() {
        if (!at_.empty()) test::runShell("umount " + test::shellQuote(at_.string()));
    }

private:
    explicit ScratchDisk(fs::path at) : at_(std::move(at)) {}
    fs::path at_;
};

TEST_F(BackupStoreCardTest, DiskThatFillsDuringTheTransferIsReportedAsFull) {
    auto card = makeCard("card.img", "", "song");
    writeFile(card->mountPath() / "Samples/take.wav", std::string(2'000'000, 'w'));
    const fs::path disk = temp_ / "disk";
    // Room for the estimate and the run's headroom of 100 MiB, so the check before the copy passes.
    auto scratch = ScratchDisk::mount(disk, 160);
    if (!scratch) GTEST_SKIP() << "cannot mount a tmpfs here";
    const fs::path base = disk / "backups";
    // Something else fills the disk just as the copy begins.
    const fs::path rsync = temp_ / "rsync-on-a-filling-disk";
    writeFile(rsync,
              "#!/bin/sh\n"
              "case \" $* \" in *\" -avh \"*) dd if=/dev/zero of=" +
                  test::shellQuote((disk / "filler").string()) +
                  " bs=1M >/dev/null 2>&1;; esac\n"
                  "exec /usr/bin/rsync \"$@\"\n");
    fs::permissions(rsync, fs::perms::owner_all);

    const auto result = runCli(home(), cliArguments({"--rsync", rsync.string(), "backup", "M8CARD"}, base));
    EXPECT_EQ(result.status, 1) << result.err;
    EXPECT_EQ(result.lastErrorLine, "The backup disk is full. The backup was not published.") << result.err;
    EXPECT_NE(result.err.find("No space left on device"), std::string::npos) << result.err;
    std::string id = card->uuid();
    std::erase(id, '-');
    const fs::path set = base / ("M8CARD_" + id);
    for (const auto& entry : fs::directory_iterator(set))
        EXPECT_FALSE(entry.path().filename().string().starts_with("backup-")) << entry.path();
    EXPECT_FALSE(fs::exists(fs::symlink_status(set / "latest")));
}

}  // namespace
}  // namespace tapekeep
