#include "workflows/RestoreViewModel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "EventLoop.h"
#include "FileContent.h"
#include "M8Files.h"
#include "RestoreViewModelFixture.h"
#include "TempDir.h"
#include "cards/OperationLock.h"
#include "core/BackupSet.h"
#include "core/Cancelled.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::readFile;
using test::startApplication;
using test::waitFor;
using test::writeFile;

const std::string uuid = test::cardUuid;

class RestoreViewModelTest : public test::RestoreWizardFixture {
protected:
    // The entries listed for a folder, by their paths in the version.
    std::vector<std::string> childPaths(const std::string& folder) const {
        std::vector<std::string> paths;
        for (const auto& child : model.folderChildren().at(folder)) paths.push_back(child.relativePath);
        return paths;
    }
};

// rsync's exit status decides the result; only a status without a fixed meaning asks whether the
// card is still there. Every end gives the card back.
TEST_F(RestoreViewModelTest, TheExitStatusDecidesTheResult) {
    struct Case {
        int status;
        bool pulledDuringRun;
        std::optional<RestoreError::Kind> result;  // none: success
    };
    const Case cases[] = {
        {0, false, std::nullopt},
        {20, false, RestoreError::Kind::cancelled},
        {143, false, RestoreError::Kind::cancelled},
        {23, false, RestoreError::Kind::partialTransfer},
        {23, true, RestoreError::Kind::partialTransfer},
        {24, false, RestoreError::Kind::sourceFilesVanished},
        {24, true, RestoreError::Kind::sourceFilesVanished},
        {12, false, RestoreError::Kind::rsyncFailed},
        {12, true, RestoreError::Kind::volumeDisconnectedMidRun},
    };
    chooseVersion();
    for (const auto& c : cases) {
        SCOPED_TRACE("status " + std::to_string(c.status) + (c.pulledDuringRun ? ", card pulled" : ""));
        {
            std::lock_guard lock(mutex);
            cardMounted = true;
        }
        standIn = [&](const BackupOperation::LineHandler& onLine, std::stop_token) {
            onLine("sending incremental file list");
            if (c.pulledDuringRun) pullCard();
            return c.status;
        };
        const RestoreStep result = restore();
        EXPECT_EQ(result.errorKind, c.result);
        EXPECT_EQ(result.isSuccess(), !c.result.has_value());
        if (c.result == RestoreError::Kind::rsyncFailed) {
            EXPECT_EQ(result.error, "rsync failed with exit code 12");
        }
        EXPECT_EQ(logged("Restore cancelled by user."), c.result == RestoreError::Kind::cancelled);
        EXPECT_EQ(model.logLines().front(), "sending incremental file list") << "flushed before the result";
        EXPECT_FALSE(cardHeld());
    }
}

// Only a file in a folder that the card has already is written: the root's time is the restore's own.
TEST_F(RestoreViewModelTest, ASuccessMarksTheCardAsWrittenNow) {
    fs::remove_all(version / "Samples");
    chooseVersion();
    const auto old = fs::file_time_type::clock::now() - std::chrono::hours(24 * 365);
    fs::last_write_time(card.mountPath, old);
    const auto before = fs::file_time_type::clock::now() - 2s;
    ASSERT_TRUE(restore().isSuccess()) << model.step().error.value_or("");
    EXPECT_GE(fs::last_write_time(card.mountPath), before);
}

TEST_F(RestoreViewModelTest, CancellingStopsRsyncAndSaysSoOnce) {
    chooseVersion();
    std::atomic<bool> entered{false};
    standIn = [&](const BackupOperation::LineHandler&, std::stop_token token) -> int {
        entered = true;
        while (!token.stop_requested()) std::this_thread::sleep_for(2ms);
        throw Cancelled();  // as the process runner ends a stopped child
    };
    model.startRestore();
    ASSERT_TRUE(waitFor([&] { return entered.load(); }));
    EXPECT_TRUE(cardHeld());
    model.cancelRestore();
    ASSERT_TRUE(waitFor([&] { return !model.isRestoring(); }));
    EXPECT_EQ(model.step().errorKind, RestoreError::Kind::cancelled);
    EXPECT_EQ(model.step().error, "Restore was cancelled.");
    EXPECT_EQ(std::count(model.logLines().begin(), model.logLines().end(), "Restore cancelled by user."), 1);
    EXPECT_FALSE(cardHeld());
}

TEST_F(RestoreViewModelTest, ACardHeldByAnotherOperationIsRefusedAndNothingRuns) {
    chooseVersion();
    const Lease backup = OperationLock::shared().acquire(VolumeUUID{uuid}, OperationKind::backup);
    const RestoreStep result = restore();
    OperationLock::shared().release(backup);
    EXPECT_EQ(result.errorKind, RestoreError::Kind::operationInProgress);
    EXPECT_EQ(result.error, "Another operation is already running for this card.");
    EXPECT_EQ(rsyncRuns, 0);
    EXPECT_EQ(readFile(card.mountPath / "Songs/LIVE.m8s"), "on the card");
}

TEST_F(RestoreViewModelTest, AVersionDeletedSinceItWasListedIsNotFound) {
    chooseVersion();
    fs::remove_all(version);
    const RestoreStep result = restore();
    EXPECT_EQ(result.error, "Backup source no longer exists on disk.");
    EXPECT_EQ(rsyncRuns, 0);
    EXPECT_FALSE(cardHeld());
}

TEST_F(RestoreViewModelTest, ACardPulledBeforeTheStartIsNoLongerMounted) {
    chooseVersion();
    pullCard();
    EXPECT_EQ(restore().error, "Target volume is no longer mounted. Was the device disconnected?");
    EXPECT_EQ(rsyncRuns, 0);
}

TEST_F(RestoreViewModelTest, AChoiceOfNothingIsRefusedBeforeTheCardIsTaken) {
    chooseVersion();
    model.setRestoreMode(RestoreMode::folders);
    for (const auto& folder : std::vector(model.availableFolders()))
        model.setFolderSelected(folder.name, false);
    EXPECT_EQ(restore().error, "Nothing selected to restore.");
    EXPECT_EQ(rsyncRuns, 0);
}

// Each sample that a chosen song uses comes along, found in the version as the card would find it;
// a sample no chosen song uses stays behind.
TEST_F(RestoreViewModelTest, SongsRestoredOneByOneBringTheirSamples) {
    writeFile(version / "Songs/SET/GIG.m8s",
              test::songWithSamples({"/samples/KICK.wav", "../Samples/pad.wav"}));
    writeFile(version / "Samples/pad.wav", "pad");
    writeFile(version / "Samples/unused.wav", "unused");
    chooseVersion();
    model.setRestoreMode(RestoreMode::folders);
    model.setSongsRestoreMode(SongsRestoreMode::individual);
    for (const auto& folder : std::vector(model.availableFolders()))
        model.setFolderSelected(folder.name, false);
    model.setSongSelected("Songs/SET/GIG.m8s", true);

    ASSERT_TRUE(restore().isSuccess()) << model.step().error.value_or("");
    EXPECT_TRUE(logged("Restoring 1 song(s) + 2 referenced sample(s)…"));
    EXPECT_EQ(readFile(card.mountPath / "Songs/SET/GIG.m8s"), readFile(version / "Songs/SET/GIG.m8s"));
    EXPECT_EQ(readFile(card.mountPath / "Samples/kick.wav"), "kick");
    EXPECT_EQ(readFile(card.mountPath / "Samples/pad.wav"), "pad");
    EXPECT_FALSE(fs::exists(card.mountPath / "Samples/unused.wav"));
    EXPECT_EQ(readFile(card.mountPath / "Songs/LIVE.m8s"), "on the card");
}

// However rsync prints, the log changes at most once a flush delay, and no line is lost or reordered:
// a burst of lines, then lines that come one by one for a while.
TEST_F(RestoreViewModelTest, OutputReachesTheLogAtMostOnceAFlushDelay) {
    chooseVersion();
    std::atomic<long long> printingMilliseconds{0};
    standIn = [&](const BackupOperation::LineHandler& onLine, std::stop_token) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < 20000; ++i) onLine("file " + std::to_string(i));
        for (int i = 20000; i < 20300; ++i) {
            onLine("file " + std::to_string(i));
            std::this_thread::sleep_for(1ms);
        }
        printingMilliseconds =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
                .count();
        return 0;
    };
    int changes = 0;
    QObject::connect(&model, &RestoreViewModel::logLinesChanged, [&changes] { ++changes; });
    ASSERT_TRUE(restore().isSuccess());
    ASSERT_EQ(model.logLines().size(), 20300u);
    EXPECT_EQ(model.logLines()[12345], "file 12345");
    EXPECT_EQ(model.logLines().back(), "file 20299");
    EXPECT_LE(changes, printingMilliseconds / 250 + 3) << "over " << printingMilliseconds << " ms";
}

TEST_F(RestoreViewModelTest, APreviewOfAnOlderChoiceIsDropped) {
    chooseVersion();
    model.loadPreview();
    model.setRestoreMode(RestoreMode::folders);  // the choice changes while the first preview runs
    for (const auto& folder : std::vector(model.availableFolders()))
        model.setFolderSelected(folder.name, folder.name == "Samples");
    int finished = 0;
    QObject::connect(&model, &RestoreViewModel::previewFinished, [&finished] { ++finished; });
    model.loadPreview();
    ASSERT_TRUE(waitFor([&] { return finished == 1 && !model.isLoadingDiff(); }));
    waitFor([] { return false; }, 300ms);  // room for the first one to arrive, were it kept
    ASSERT_TRUE(model.diffResult());
    ASSERT_EQ(model.diffResult()->size(), 1u);
    EXPECT_EQ(model.diffResult()->front().path, "Samples/kick.wav");
    EXPECT_EQ(finished, 1);
}

// One level of a folder at a time, each entry chosen as its folder is; the version's links are
// never followed, so nothing outside the version is offered.
TEST_F(RestoreViewModelTest, AFolderListsItsOwnEntriesAndNothingALinkPointsAt) {
    writeFile(version / "Samples/Drums/snare.wav", "snare");
    writeFile(temp / "elsewhere/secret.wav", "not in the version");
    fs::create_symlink(temp / "elsewhere", version / "Samples/outside");
    fs::create_symlink(temp / "elsewhere", version / "Linked");
    chooseVersion();
    std::vector<std::string> folders;
    for (const auto& folder : model.availableFolders()) folders.push_back(folder.name);
    EXPECT_EQ(folders, (std::vector<std::string>{"Samples", "Songs"}));
    model.setFolderSelected("Samples", false);
    std::vector<std::vector<std::string>> loading;
    QObject::connect(&model, &RestoreViewModel::loadingFolderChildrenChanged, [&] {
        loading.emplace_back(model.loadingFolderChildren().begin(), model.loadingFolderChildren().end());
    });

    model.loadFolderChildren("Samples");
    EXPECT_EQ(model.loadingFolderChildren(), std::set<std::string>{"Samples"});
    ASSERT_TRUE(waitFor([&] { return model.loadingFolderChildren().empty(); }));
    EXPECT_EQ(loading, (std::vector<std::vector<std::string>>{{"Samples"}, {}}));
    ASSERT_EQ(childPaths("Samples"), (std::vector<std::string>{"Samples/Drums", "Samples/kick.wav"}));
    const auto& samples = model.folderChildren().at("Samples");
    EXPECT_TRUE(samples[0].isDirectory);
    EXPECT_EQ(samples[0].size, std::nullopt);
    EXPECT_FALSE(samples[1].isDirectory);
    EXPECT_EQ(samples[1].size, 4);
    for (const auto& child : samples) EXPECT_FALSE(child.selected) << child.relativePath;

    for (const std::string path : {"Samples/outside", "Linked", "Samples/Drums/../../..", "/etc"}) {
        model.loadFolderChildren(path);
        ASSERT_TRUE(waitFor([&] { return model.loadingFolderChildren().empty(); }));
        EXPECT_EQ(childPaths(path), std::vector<std::string>{}) << path;
    }
    model.loadFolderChildren("Samples/Drums");
    ASSERT_TRUE(waitFor([&] { return model.loadingFolderChildren().empty(); }));
    ASSERT_EQ(childPaths("Samples/Drums"), std::vector<std::string>{"Samples/Drums/snare.wav"});
    EXPECT_FALSE(model.folderChildren().at("Samples/Drums").front().selected) << "as Samples/Drums is chosen";
}

// With the card backed up first, the restore can be taken back: the undo puts the card back as
// the safety version holds it, and a second undo has nothing left to undo.
TEST_F(RestoreViewModelTest, AnUndoPutsTheCardBackAsItWasBeforeTheRestore) {
    settings.setBackupBeforeRestore(true);
    fs::last_write_time(card.mountPath / "Songs/LIVE.m8s",
                        fs::file_time_type::clock::now() - std::chrono::hours(24 * 365));
    chooseVersion();
    const auto before = test::treeOf(card.mountPath);
    ASSERT_TRUE(restore().isSuccess()) << model.step().error.value_or("");
    ASSERT_TRUE(model.safetyVersion());
    const fs::path safety = *model.safetyVersion();
    EXPECT_EQ(readFile(card.mountPath / "Songs/LIVE.m8s"), "in the version");
    EXPECT_EQ(readFile(card.mountPath / "Samples/kick.wav"), "kick");

    model.undoLastRestore();
    ASSERT_TRUE(
        waitFor([&] { return model.step().kind == RestoreStep::Kind::done && !model.isRestoring(); }));
    EXPECT_TRUE(model.step().isSuccess()) << model.step().error.value_or("");
    EXPECT_EQ(test::treeOf(card.mountPath), before);
    EXPECT_EQ(model.safetyVersion(), safety);
    EXPECT_FALSE(cardHeld());

    model.undoLastRestore();
    ASSERT_TRUE(
        waitFor([&] { return model.step().kind == RestoreStep::Kind::done && !model.isRestoring(); }));
    EXPECT_EQ(model.step().error, "There is no restore to undo on this card.");
    EXPECT_EQ(test::treeOf(card.mountPath), before);
    EXPECT_FALSE(cardHeld());
}

// One try, with no lease of its own, and never while an operation holds the card.
TEST_F(RestoreViewModelTest, TheTargetIsEjectedOnlyWhenNothingHoldsIt) {
    std::vector<std::string> answers;
    QObject::connect(&model, &RestoreViewModel::ejectFinished,
                     [&answers](const QString& error) { answers.push_back(error.toStdString()); });
    model.ejectTarget();
    chooseVersion();
    const Lease backup = OperationLock::shared().acquire(VolumeUUID{uuid}, OperationKind::backup);
    model.ejectTarget();
    OperationLock::shared().release(backup);
    model.ejectTarget();
    ASSERT_TRUE(waitFor([&] { return answers.size() == 3; }));
    EXPECT_EQ(answers, (std::vector<std::string>{"No target selected.",
                                                 "Cannot eject while another operation is running.", ""}));
    EXPECT_EQ(makeScanner()->validate(uuid).kind(), ValidateResult::Kind::notFound);
}

TEST_F(RestoreViewModelTest, ANoteThatCannotBeSavedShowsWhy) {
    chooseVersion();
    const BackupVersion chosen = *model.selectedVersion();
    model.saveNote(chosen, "  before the gig ");
    EXPECT_EQ(model.versionNotes().at(chosen.folderName), "before the gig");
    EXPECT_EQ(model.noteSaveError(), std::nullopt);

    fs::remove(version / ".tapekeep-note");
    fs::create_directory(version / ".tapekeep-note");
    writeFile(version / ".tapekeep-note/keep", "not ours");
    model.saveNote(chosen, "another");
    ASSERT_TRUE(model.noteSaveError());
    EXPECT_TRUE(model.noteSaveError()->starts_with("Could not save note: ")) << *model.noteSaveError();
    EXPECT_EQ(model.versionNotes().at(chosen.folderName), "(unsaved — disk error)");
}

}  // namespace
}  // namespace tapekeep
