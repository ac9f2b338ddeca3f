#include "backup/BackupOperation.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>

#include "M8Files.h"
#include "TempDir.h"
#include "backup/BackupOperationError.h"
#include "backup/BackupRepository.h"
#include "backup/RotationGuard.h"
#include "backup/SelectiveBackup.h"
#include "core/Cancelled.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::readFile;
using test::TempDir;
using test::writeFile;

constexpr const char* rsyncPath = "/usr/bin/rsync";

class BackupOperationTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(card_);
        writeFile(card_ / "Songs/intro.m8s", "song one");
        writeFile(card_ / "Songs/verse.m8s", "song two");
        writeFile(card_ / "Samples/kick.wav", std::string(4096, 'k'));
        writeFile(card_ / "Instruments/bass.m8i", "bass");
        request_.card = SDCard{card_, "CARD", "76FA-7D45-AAAA-BBBB"};
        request_.baseURL = base_;
        request_.rsyncPath = rsyncPath;
        request_.keepCount = 5;
    }

    BackupOutcome run(const BackupOperation::RsyncRunner& runner = BackupOperation::defaultRsyncRunner(),
                      std::stop_token token = {}) {
        return BackupOperation::run(
            request_, [this](const std::string& line) { log_.push_back(line); },
            [this](const TransferEvent& event) { events_.push_back(event); }, runner, validator_, token,
            environment_);
    }

    fs::path setRoot() const { return base_ / "CARD_AAAABBBB"; }

    // The text of the error that ends the run, or "" when it succeeds.
    std::string failureOf(
        const BackupOperation::RsyncRunner& runner = BackupOperation::defaultRsyncRunner()) {
        try {
            run(runner);
        } catch (const std::exception& error) {
            return error.what();
        }
        return "";
    }

    std::vector<fs::path> stagingFolders() const {
        std::vector<fs::path> found;
        if (fs::exists(setRoot()))
            for (const auto& entry : fs::directory_iterator(setRoot()))
                if (entry.path().filename().string().starts_with(".incomplete-"))
                    found.push_back(entry.path());
        std::sort(found.begin(), found.end());
        return found;
    }

    bool published() const { return !BackupRepository(base_).listVersions(setRoot()).empty(); }

    bool logged(const std::string& text) const {
        return std::find(log_.begin(), log_.end(), text) != log_.end();
    }

    TempDir temp_;
    fs::path card_ = temp_ / "volumes/CARD";
    fs::path base_ = temp_ / "backups";
    BackupRequest request_;
    std::vector<std::string> log_;
    std::vector<TransferEvent> events_;
    BackupOperation::VolumeValidator validator_ = [](const BackupRequest&, std::stop_token) {};
    BackupOperation::Environment environment_ = BackupOperation::Environment::system();
};

ino_t inode(const fs::path& file) {
    struct stat status {};
    EXPECT_EQ(::stat(file.c_str(), &status), 0) << file;
    return status.st_ino;
}

// A runner that lets real rsync do the work but reports a chosen status for the transfer pass.
BackupOperation::RsyncRunner failingTransfer(int status) {
    return [status](const std::string& path, const std::vector<std::string>& arguments,
                    const BackupOperation::LineHandler& onLine, std::stop_token token) {
        const int real = BackupOperation::defaultRsyncRunner()(path, arguments, onLine, token);
        const bool dryRun = std::find(arguments.begin(), arguments.end(), "-an") != arguments.end();
        return dryRun ? real : status;
    };
}

TEST_F(BackupOperationTest, FirstBackupPublishesAVersionEqualToTheCardAndALatestLink) {
    const auto outcome = run();
    EXPECT_FALSE(outcome.warning.has_value());
    EXPECT_EQ(outcome.versionURL.parent_path(), setRoot());
    EXPECT_TRUE(outcome.versionURL.filename().string().starts_with("backup-"));
    EXPECT_EQ(readFile(outcome.versionURL / "Samples/kick.wav"), std::string(4096, 'k'));
    EXPECT_EQ(fs::read_symlink(setRoot() / "latest"), outcome.versionURL.filename());
    EXPECT_EQ(readFile(setRoot() / ".tapekeep-card.json"),
              R"({"uuid":"76FA-7D45-AAAA-BBBB","volumeName":"CARD"})");
    EXPECT_TRUE(stagingFolders().empty());
    EXPECT_TRUE(logged("Checking disk space…"));
    ASSERT_GE(events_.size(), 3u);
    EXPECT_EQ(events_[0].kind, TransferEvent::Kind::expectedBytes);
    EXPECT_EQ(events_[0].value, 4096 + 8 + 8 + 4);
    EXPECT_EQ(events_.back(), TransferEvent::transferFinished());
}

TEST_F(BackupOperationTest, SecondBackupHardLinksEveryUnchangedFile) {
    const auto first = run();
    environment_.now = [] { return Clock::now() + std::chrono::seconds(5); };
    writeFile(card_ / "Songs/verse.m8s", "song two, changed");
    const auto second = run();
    ASSERT_NE(first.versionURL, second.versionURL);
    for (const char* file :
         {"Songs/intro.m8s", "Samples/kick.wav", "Instruments/bass.m8i", "Songs/verse.m8s"})
        EXPECT_EQ(inode(first.versionURL / file) == inode(second.versionURL / file),
                  std::string(file) != "Songs/verse.m8s")
            << file;
    EXPECT_EQ(readFile(second.versionURL / "Songs/verse.m8s"), "song two, changed");
    EXPECT_EQ(fs::read_symlink(setRoot() / "latest"), second.versionURL.filename());
}

TEST_F(BackupOperationTest, NonZeroRsyncExitsFailWithTheirOwnWordsAndPublishNothing) {
    struct Case {
        int status;
        std::string text;
    };
    const std::vector<Case> cases = {
        {24, "Source files disappeared during backup. The backup is incomplete and was not published."},
        {23, "Backup transfer failed (rsync exit 23). The backup was not published."},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(failureOf(failingTransfer(c.status)), c.text);
        EXPECT_FALSE(published());
        EXPECT_FALSE(fs::exists(fs::symlink_status(setRoot() / "latest")));
    }
    // Each failed staging folder stays for diagnosis until a later run clears it, marked as no
    // restore source with the error's own words.
    std::vector<std::string> failures;
    for (const auto& staging : stagingFolders()) failures.push_back(readFile(staging / "failure.txt"));
    std::sort(failures.begin(), failures.end());
    ASSERT_EQ(failures.size(), 2u);
    EXPECT_EQ(failures[0], "Incomplete backup. Not a restore source.\n" + cases[1].text + "\n");
    EXPECT_EQ(failures[1], "Incomplete backup. Not a restore source.\n" + cases[0].text + "\n");
}

// A runner that lets real rsync do the work, then adds lines and a status of its own to the transfer.
BackupOperation::RsyncRunner transferSaying(std::vector<std::string> lines, int status) {
    return [lines, status](const std::string& path, const std::vector<std::string>& arguments,
                           const BackupOperation::LineHandler& onLine, std::stop_token token) {
        const int real = BackupOperation::defaultRsyncRunner()(path, arguments, onLine, token);
        const bool dryRun = std::find(arguments.begin(), arguments.end(), "-an") != arguments.end();
        if (dryRun) return real;
        for (const auto& line : lines) onLine(line);
        return status;
    };
}

TEST_F(BackupOperationTest, TransferThatRanOutOfSpaceSaysTheDiskIsFull) {
    const std::string enospc = "rsync: [receiver] write failed on \"" +
                               (setRoot() / ".incomplete-x/Samples/kick.wav").string() +
                               "\": No space left on device (28)";
    const std::string full = "The backup disk is full. The backup was not published.";
    struct Case {
        std::vector<std::string> lines;
        int status;
        std::string failure;
    };
    const std::vector<Case> cases = {
        {{enospc, "rsync error: error in file IO (code 11) at receiver.c(381) [receiver=3.5.0]"}, 11, full},
        {{enospc}, 23, full},
        {{enospc}, 24, full},
        // A file may be named anything: only rsync's own lines speak of the disk.
        {{"Samples/No space left on device (28).wav"},
         23,
         "Backup transfer failed (rsync exit 23). The backup was not published."},
        {{enospc}, 0, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.status);
        EXPECT_EQ(failureOf(transferSaying(c.lines, c.status)), c.failure);
        EXPECT_EQ(published(), c.failure.empty());
        if (c.failure.empty()) continue;
        // The retained staging folder says why, in the same words.
        std::vector<std::string> failures;
        for (const auto& staging : stagingFolders())
            if (fs::exists(staging / "failure.txt")) failures.push_back(readFile(staging / "failure.txt"));
        EXPECT_NE(std::find(failures.begin(), failures.end(),
                            "Incomplete backup. Not a restore source.\n" + c.failure + "\n"),
                  failures.end());
    }
}

TEST_F(BackupOperationTest, SetOfAnotherCardOrWithADamagedCardFileIsRefusedBeforeAnythingIsWritten) {
    const fs::path cardFile = setRoot() / ".tapekeep-card.json";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {R"({"uuid":"76FA-7D45-AAAA-CCCC","volumeName":"CARD"})",
         "This backup set belongs to another card (76FA-7D45-AAAA-CCCC)."},
        {"{\"uuid\":", "The card file of this backup set is damaged: " + cardFile.string() +
                           ": not a JSON object. Fix or remove it."},
    };
    for (const auto& [content, text] : cases) {
        fs::remove_all(base_);
        writeFile(cardFile, content);
        // Remains that a run would otherwise clear first.
        writeFile(setRoot() / ".deleting-1/Songs/old.m8s", "x");
        writeFile(setRoot() / ".incomplete-1/failure.txt", "Incomplete backup. Not a restore source.\nold\n");
        environment_.now = [] { return Clock::now() + std::chrono::hours(48); };  // both are due
        std::vector<std::string> before;
        for (const auto& entry : fs::recursive_directory_iterator(setRoot())) before.push_back(entry.path());
        std::sort(before.begin(), before.end());

        EXPECT_EQ(failureOf(), text);
        std::vector<std::string> after;
        for (const auto& entry : fs::recursive_directory_iterator(setRoot())) after.push_back(entry.path());
        std::sort(after.begin(), after.end());
        EXPECT_EQ(after, before);
        EXPECT_EQ(readFile(cardFile), content);
    }
}

TEST_F(BackupOperationTest, DiskSpaceOfEstimatePlusHeadroomIsExactlyEnough) {
    std::int64_t available = 0;
    environment_.availableBytes = [&available](const fs::path&) { return available; };
    const std::int64_t estimate = 4096 + 8 + 8 + 4;

    available = estimate + BackupOperation::requiredHeadroomBytes - 1;
    request_.mismatchAction = "flag";
    EXPECT_EQ(failureOf(), "Not enough disk space for this backup.");
    ASSERT_EQ(stagingFolders().size(), 1u);
    EXPECT_TRUE(fs::exists(stagingFolders()[0] / "failure.txt"));

    available = estimate + BackupOperation::requiredHeadroomBytes;
    EXPECT_NO_THROW(run());
    EXPECT_TRUE(logged("Estimated transfer: 4 KB, available: 104.9 MB."));
}

TEST_F(BackupOperationTest, AbortDiscardsTheStagingFolderOfAnyFailure) {
    environment_.availableBytes = [](const fs::path&) { return std::int64_t{0}; };
    request_.mismatchAction = "abort";
    EXPECT_EQ(failureOf(), "Not enough disk space for this backup.");
    EXPECT_TRUE(stagingFolders().empty());
}

TEST_F(BackupOperationTest, UnknownFreeSpaceSkipsTheCheck) {
    environment_.availableBytes = [](const fs::path&) { return std::optional<std::int64_t>(); };
    EXPECT_EQ(failureOf(), "");
}

TEST_F(BackupOperationTest, CardPulledBetweenPassesFailsWithTheIdentityMessageAndKeepsTheDiagnosis) {
    int calls = 0;
    validator_ = [&calls](const BackupRequest&, std::stop_token) {
        // The run checks before the dry run and again before the transfer: the card goes in between.
        if (++calls > 3)
            throw BackupOperationError::message(
                "Volume identity or mount path changed. Reconnect the card and select it again.");
    };
    const std::string text = "Volume identity or mount path changed. Reconnect the card and select it again.";
    EXPECT_EQ(failureOf(), text);
    ASSERT_EQ(stagingFolders().size(), 1u);
    EXPECT_EQ(readFile(stagingFolders()[0] / "failure.txt"),
              "Incomplete backup. Not a restore source.\n" + text + "\n");
    EXPECT_FALSE(published());
}

TEST_F(BackupOperationTest, CancellationDuringTheTransferRemovesStagingAndPublishesNothing) {
    std::stop_source stop;
    auto cancellingRunner = [&stop](const std::string& path, const std::vector<std::string>& arguments,
                                    const BackupOperation::LineHandler& onLine, std::stop_token token) {
        const bool dryRun = std::find(arguments.begin(), arguments.end(), "-an") != arguments.end();
        if (!dryRun) stop.request_stop();
        return BackupOperation::defaultRsyncRunner()(path, arguments, onLine, token);
    };
    EXPECT_THROW(run(cancellingRunner, stop.get_token()), Cancelled);
    EXPECT_TRUE(stagingFolders().empty());
    EXPECT_FALSE(published());
}

TEST_F(BackupOperationTest, RefusalsBeforeStagingLeaveNothingBehind) {
    struct Case {
        std::string name;
        std::function<void(BackupRequest&, const TempDir&)> arrange;
        std::string text;
    };
    const std::vector<Case> cases = {
        {"base inside the card",
         [](BackupRequest& r, const TempDir&) { r.baseURL = r.card.mountPath / "backups"; },
         "Source and destination must not overlap."},
        {"card inside the set",
         [](BackupRequest& r, const TempDir&) { r.card.mountPath = r.baseURL / "CARD_AAAABBBB"; },
         "Source and destination must not overlap."},
        {"unsupported rsync",
         [](BackupRequest& r, const TempDir& temp) {
             writeFile(temp / "old-rsync", "#!/bin/sh\necho 'rsync  version 3.0.9  protocol version 30'\n");
             fs::permissions(temp / "old-rsync", fs::perms::owner_all);
             r.rsyncPath = (temp / "old-rsync").string();
         },
         "Unsupported rsync version. Select a supported rsync in Settings."},
        {"missing rsync",
         [](BackupRequest& r, const TempDir& temp) { r.rsyncPath = (temp / "none").string(); },
         "rsync is not executable at " + (temp_ / "none").string()},
    };
    for (const auto& c : cases) {
        BackupRequest saved = request_;
        c.arrange(request_, temp_);
        EXPECT_EQ(failureOf(), c.text) << c.name;
        EXPECT_TRUE(stagingFolders().empty()) << c.name;
        request_ = saved;
    }
}

TEST_F(BackupOperationTest, LatestLinkThatCannotBeReplacedLeavesTheVersionWithAWarning) {
    // A real folder named "latest" cannot be replaced by a link: the version stands anyway.
    writeFile(setRoot() / "latest/keep.txt", "in the way");
    const auto outcome = run();
    ASSERT_TRUE(outcome.warning.has_value());
    EXPECT_TRUE(outcome.warning->starts_with("Backup saved, but the \"latest\" link could not be updated: "))
        << *outcome.warning;
    EXPECT_EQ(BackupRepository(base_).listVersions(setRoot()).size(), 1u);
    EXPECT_TRUE(logged(*outcome.warning));
}

TEST_F(BackupOperationTest, RotationKeepsTheNewestKeepCount) {
    request_.keepCount = 2;
    for (int i = 0; i < 3; ++i) {
        environment_.now = [i] { return Clock::now() + std::chrono::seconds(10 * i); };
        run();
    }
    const auto versions = BackupRepository(base_).listVersions(setRoot());
    ASSERT_EQ(versions.size(), 2u);
    EXPECT_TRUE(versions.front().isLatest);
}

TEST_F(BackupOperationTest, RotationGuardKeepsOldVersionsWhenTheCardLostMostFiles) {
    for (int i = 0; i < 12; ++i) writeFile(card_ / ("Samples/s" + std::to_string(i) + ".wav"), "x");
    request_.keepCount = 1;
    run();
    for (int i = 0; i < 12; ++i) fs::remove(card_ / ("Samples/s" + std::to_string(i) + ".wav"));
    fs::remove(card_ / "Samples/kick.wav");
    environment_.now = [] { return Clock::now() + std::chrono::seconds(5); };
    const auto outcome = run();
    ASSERT_TRUE(outcome.warning.has_value());
    EXPECT_EQ(
        *outcome.warning,
        "Backup saved, but it holds far fewer files than the previous one (3 vs 16). Older backups were kept "
        "— check the card.");
    EXPECT_EQ(BackupRepository(base_).listVersions(setRoot()).size(), 2u);
}

// A card whose songs use samples: selective runs copy a song with exactly the samples it uses.
class SelectiveBackupTest : public BackupOperationTest {
protected:
    void SetUp() override {
        BackupOperationTest::SetUp();
        writeFile(card_ / "Songs/intro.m8s",
                  test::songWithSamples({"/Samples/kick.wav", "/Samples/snare.wav"}));
        writeFile(card_ / "Samples/snare.wav", "snare");
        writeFile(card_ / "Samples/unused.wav", "unused");
        previous_ = run().versionURL;
        events_.clear();
        environment_.now = [] { return Clock::now() + std::chrono::seconds(5); };
        request_.selective = true;
    }

    fs::path previous_;
};

TEST_F(SelectiveBackupTest, SongsOnlyCopiesTheSongsWithTheirSamplesOverTheWholePreviousVersion) {
    writeFile(card_ / "Songs/intro.m8s",
              test::songWithSamples({"/Samples/kick.wav", "/Samples/snare.wav", "/Samples/gone.wav"}));
    writeFile(card_ / "Samples/snare.wav", "snare, re-recorded");
    writeFile(card_ / "Samples/unused.wav", "changed, but not selected");
    request_.selectedSongs = {"Songs/intro.m8s"};
    request_.verify = true;
    const auto version = run().versionURL;

    EXPECT_EQ(readFile(version / "Samples/snare.wav"), "snare, re-recorded");
    EXPECT_EQ(readFile(version / "Samples/unused.wav"), "unused");  // from the snapshot, not the card
    EXPECT_EQ(readFile(version / "Songs/verse.m8s"), "song two");
    EXPECT_EQ(inode(previous_ / "Samples/unused.wav"), inode(version / "Samples/unused.wav"));
    EXPECT_TRUE(logged("Skipped 1 sample reference(s) that no longer exist on the card: Samples/gone.wav"));
    EXPECT_TRUE(logged("Verification passed — selected files match."));
    for (const auto& event : events_) {
        if (event.kind == TransferEvent::Kind::transferFinished) continue;
        EXPECT_FALSE(event.value.has_value());
    }
}

TEST_F(SelectiveBackupTest, SongsFolderWithoutSamplesCopiesTheFolderAndOnlyReferencedSamples) {
    fs::remove(card_ / "Songs/verse.m8s");
    writeFile(card_ / "Samples/snare.wav", "snare, re-recorded");
    writeFile(card_ / "Samples/unused.wav", "changed, but not selected");
    request_.selectedFolders = {"Songs"};
    const auto version = run().versionURL;
    EXPECT_FALSE(fs::exists(version / "Songs/verse.m8s"));  // left the card, so leaves the folder
    EXPECT_EQ(readFile(version / "Samples/snare.wav"), "snare, re-recorded");
    EXPECT_EQ(readFile(version / "Samples/unused.wav"), "unused");
}

TEST_F(SelectiveBackupTest, UnreadableSongFailsUnlessTheSamplesComeWithTheirFolder) {
    writeFile(card_ / "Songs/broken.m8s", "not a song");
    request_.selectedFolders = {"Songs"};
    try {
        run();
        ADD_FAILURE() << "a song whose references are unknown was backed up without its samples";
    } catch (const BackupOperationError& error) {
        EXPECT_EQ(
            error.description(),
            "Cannot resolve sample references in Songs/broken.m8s. Use a full backup or include the Samples "
            "folder.");
    }
    request_.selectedFolders = {"Songs", "Samples"};
    EXPECT_NO_THROW(run());
}

TEST_F(SelectiveBackupTest, SelectedFolderBehindASymbolicLinkInTheSnapshotFailsBeforeDeletingAnything) {
    // The previous version's Samples is a link to a folder outside the store.
    const fs::path outside = temp_ / "outside";
    writeFile(outside / "Drums/keep.wav", "must survive");
    fs::remove_all(previous_ / "Samples");
    fs::create_directory_symlink(outside, previous_ / "Samples");
    writeFile(card_ / "Samples/Drums/new.wav", "new");
    request_.selectedFolders = {"Samples/Drums"};
    try {
        run();
        ADD_FAILURE() << "the pass went through a symbolic link";
    } catch (const BackupOperationError& error) {
        EXPECT_EQ(error.description(), "A selected path traverses a symbolic link: Samples/Drums");
    }
    EXPECT_EQ(readFile(outside / "Drums/keep.wav"), "must survive");
    EXPECT_FALSE(fs::exists(outside / "Drums/new.wav"));
}

// Nothing outside the card is ever read into a version: a reference that leaves the card is
// missing, one that runs through a symbolic link on the card is set aside, and a selected path
// reached through a link is refused before staging exists.
TEST_F(SelectiveBackupTest, NothingOutsideTheCardIsReadThroughSymbolicLinks) {
    const fs::path outside = temp_ / "outside";
    writeFile(outside / "secret.wav", "from outside the card");
    writeFile(outside / "song.m8s", test::songWithSamples({"/Samples/kick.wav"}));
    fs::create_directory_symlink(outside, card_ / "Samples/sys");
    fs::create_symlink(outside / "secret.wav", card_ / "Samples/leak.wav");
    writeFile(card_ / "Samples/Real/hit.wav", "reached only through a link");
    fs::create_directory_symlink("Real", card_ / "Samples/alias");
    fs::create_symlink(outside / "song.m8s", card_ / "Songs/linked.m8s");
    writeFile(
        card_ / "Songs/intro.m8s",
        test::songWithSamples({"/Samples/sys/secret.wav", "/Samples/leak.wav", "/samples/SYS/secret.wav",
                               "/Samples/alias/hit.wav", "/Samples/snare.wav"}));
    writeFile(card_ / "Samples/snare.wav", "snare, re-recorded");
    request_.selectedSongs = {"Songs/intro.m8s"};
    request_.verify = true;
    const auto version = run().versionURL;

    EXPECT_EQ(readFile(version / "Samples/snare.wav"), "snare, re-recorded");
    for (const auto& entry : fs::recursive_directory_iterator(version)) {
        EXPECT_FALSE(entry.is_symlink()) << entry.path();
        if (entry.is_regular_file()) {
            EXPECT_NE(readFile(entry.path()), "from outside the card") << entry.path();
        }
    }
    EXPECT_FALSE(fs::exists(version / "Samples/Real"));
    EXPECT_TRUE(
        logged("Skipped 2 sample reference(s) that no longer exist on the card: Samples/leak.wav, "
               "Samples/sys/secret.wav"));
    EXPECT_TRUE(
        logged("Skipped 2 sample reference(s) that pass through a symbolic link: Samples/alias/hit.wav, "
               "samples/SYS/secret.wav"));

    struct Refusal {
        std::vector<std::string> folders, songs;
        std::string text;
    };
    for (const auto& refusal : std::vector<Refusal>{
             {{"Samples/sys"}, {}, "A selected path traverses a symbolic link: Samples/sys"},
             {{"Samples/alias"}, {}, "A selected path traverses a symbolic link: Samples/alias"},
             {{}, {"Songs/linked.m8s"}, "A selected path traverses a symbolic link: Songs/linked.m8s"},
         }) {
        request_.selectedFolders = refusal.folders;
        request_.selectedSongs = refusal.songs;
        EXPECT_EQ(failureOf(), refusal.text);
        EXPECT_TRUE(stagingFolders().empty()) << refusal.text;
    }
}

// A version is never published without a folder that was selected, whatever rsync did: here an
// rsync that drops the parent's include, so the filter never reaches the nested folder.
TEST_F(SelectiveBackupTest, SelectedFolderThatDidNotArriveFailsTheRunAndPublishesNothing) {
    writeFile(card_ / "Samples/Drums/hit.wav", "hit");
    environment_.now = [] { return Clock::now() + std::chrono::seconds(5); };
    const auto versionsBefore = BackupRepository(base_).listVersions(setRoot()).size();
    auto forgetfulRunner = [](const std::string& path, std::vector<std::string> arguments,
                              const BackupOperation::LineHandler& onLine, std::stop_token token) {
        std::erase(arguments, std::string("--include=/Samples/"));
        return BackupOperation::defaultRsyncRunner()(path, arguments, onLine, token);
    };
    request_.selectedFolders = {"Samples/Drums"};
    EXPECT_EQ(failureOf(forgetfulRunner), "Selected folder is missing from the new backup: Samples/Drums");
    EXPECT_EQ(BackupRepository(base_).listVersions(setRoot()).size(), versionsBefore);
    ASSERT_EQ(stagingFolders().size(), 1u);
    EXPECT_TRUE(fs::exists(stagingFolders()[0] / "failure.txt"));

    EXPECT_EQ(readFile(run().versionURL / "Samples/Drums/hit.wav"), "hit");
}

// An rsync that damages the copy right after the first transfer pass, as a flaky card reader would.
BackupOperation::RsyncRunner damagingFirstTransfer(const fs::path& victim, int& transfers) {
    return [&transfers, victim](const std::string& path, const std::vector<std::string>& arguments,
                                const BackupOperation::LineHandler& onLine, std::stop_token token) {
        const int status = BackupOperation::defaultRsyncRunner()(path, arguments, onLine, token);
        const bool transfer = arguments.front() == "-avh";
        if (transfer && ++transfers == 1) {
            for (const auto& staging : fs::directory_iterator(victim))
                if (staging.path().filename().string().starts_with(".incomplete-"))
                    writeFile(staging.path() / "Samples/kick.wav", "damaged");
        }
        return status;
    };
}

TEST_F(BackupOperationTest, VerificationRetriesOnceUnderRetryAndKeepsTheDiagnosisUnderFlag) {
    request_.verify = true;
    int transfers = 0;
    request_.mismatchAction = "retry";
    const auto outcome = run(damagingFirstTransfer(setRoot(), transfers));
    EXPECT_EQ(transfers, 2);
    EXPECT_TRUE(logged("Retrying backup and verification once…"));
    EXPECT_EQ(readFile(outcome.versionURL / "Samples/kick.wav"), std::string(4096, 'k'));

    transfers = 0;
    request_.mismatchAction = "flag";
    environment_.now = [] { return Clock::now() + std::chrono::seconds(5); };
    try {
        run(damagingFirstTransfer(setRoot(), transfers));
        ADD_FAILURE() << "a damaged copy was published";
    } catch (const BackupOperationError& error) {
        EXPECT_EQ(error.description(),
                  "Backup verification failed: Backup verification failed: 1 file or folder difference(s)");
    }
    EXPECT_EQ(transfers, 1);
    ASSERT_EQ(stagingFolders().size(), 1u);
    EXPECT_TRUE(fs::exists(stagingFolders()[0] / "failure.txt"));
}

// An rsync that damages every copy right after its transfer pass, counting the transfers.
BackupOperation::RsyncRunner damagingEveryTransfer(const fs::path& victim, int& transfers) {
    return [&transfers, victim](const std::string& path, const std::vector<std::string>& arguments,
                                const BackupOperation::LineHandler& onLine, std::stop_token token) {
        const int status = BackupOperation::defaultRsyncRunner()(path, arguments, onLine, token);
        if (arguments.front() == "-avh") {
            ++transfers;
            for (const auto& staging : fs::directory_iterator(victim))
                if (staging.path().filename().string().starts_with(".incomplete-"))
                    writeFile(staging.path() / "Samples/kick.wav", "damaged");
        }
        return status;
    };
}

// The checksum pass reads rsync's exit status: a failing pass is no clean pass, even with no
// itemized line to show for it.
BackupOperation::RsyncRunner checksumPassExiting(int status, int& transfers) {
    return [status, &transfers](const std::string& path, const std::vector<std::string>& arguments,
                                const BackupOperation::LineHandler& onLine, std::stop_token token) {
        if (arguments.front() == "-anic") return status;
        if (arguments.front() == "-avh") ++transfers;
        return BackupOperation::defaultRsyncRunner()(path, arguments, onLine, token);
    };
}

TEST_F(BackupOperationTest, VerificationThatKeepsFailingEndsTheRunAfterAtMostOneRetry) {
    struct Case {
        std::string name, mismatchAction;
        std::function<BackupOperation::RsyncRunner(int&)> runner;
        int transfers;
        std::string text;
    };
    const fs::path set = setRoot();
    const std::vector<Case> cases = {
        {"every copy damaged, retry", "retry", [&set](int& n) { return damagingEveryTransfer(set, n); }, 2,
         "Backup verification failed: Backup verification failed: 1 file or folder difference(s)"},
        {"checksum pass exits 23, retry", "retry", [](int& n) { return checksumPassExiting(23, n); }, 2,
         "Backup verification failed: Backup verification failed: rsync exit 23"},
        {"checksum pass exits 23, flag", "flag", [](int& n) { return checksumPassExiting(23, n); }, 1,
         "Backup verification failed: Backup verification failed: rsync exit 23"},
    };
    request_.verify = true;
    for (const auto& c : cases) {
        request_.mismatchAction = c.mismatchAction;
        int transfers = 0;
        EXPECT_EQ(failureOf(c.runner(transfers)), c.text) << c.name;
        EXPECT_EQ(transfers, c.transfers) << c.name;
        EXPECT_FALSE(published()) << c.name;
        EXPECT_EQ(logged("Retrying backup and verification once…"), c.transfers == 2) << c.name;
        log_.clear();
    }
}

TEST(SelectiveBackupPathsTest, RelativePathsMustStayInsideTheCard) {
    const std::vector<std::string> bad = {
        "", "/Songs/a.m8s", "../etc/passwd", "Songs/../../x", "Songs/./a", std::string("a\0b", 3)};
    for (const auto& path : bad)
        EXPECT_THROW(SelectiveBackup::validateRelativePath(path), BackupOperationError) << path;
    for (const std::string good : {"Songs/a.m8s", "Songs//a.m8s", "Samples/..wav", "a"})
        EXPECT_NO_THROW(SelectiveBackup::validateRelativePath(good)) << good;
}

TEST(SelectiveBackupPathsTest, MissingSamplesNameAtMostFive) {
    std::vector<std::string> missing = {"a", "b", "c", "d", "e"};
    EXPECT_EQ(SelectiveBackup::missingSamplesMessage(missing),
              "Skipped 5 sample reference(s) that no longer exist on the card: a, b, c, d, e");
    missing.insert(missing.end(), {"f", "g"});
    EXPECT_EQ(SelectiveBackup::missingSamplesMessage(missing),
              "Skipped 7 sample reference(s) that no longer exist on the card: a, b, c, d, e…");
}

TEST(RotationGuardTest, WarnsOnlyBelowHalfOfAtLeastTenFiles) {
    struct Case {
        int previous, current;
        bool warns;
    };
    for (const auto& c : std::vector<Case>{{9, 0, false}, {10, 4, true}, {10, 5, false}}) {
        TempDir temp;
        for (int i = 0; i < c.previous; ++i) writeFile(temp / ("old/f" + std::to_string(i)), "x");
        for (int i = 0; i < c.current; ++i) writeFile(temp / ("new/f" + std::to_string(i)), "x");
        fs::create_directories(temp / "new");
        writeFile(temp / "new/.tapekeep-note", "not a file of the card");
        EXPECT_EQ(RotationGuard::compareWithPrevious(temp / "new", temp / "old", {}).has_value(), c.warns)
            << c.previous << " vs " << c.current;
    }
}

}  // namespace
}  // namespace tapekeep
