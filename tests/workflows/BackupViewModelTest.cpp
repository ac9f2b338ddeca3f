#include "workflows/BackupViewModel.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <atomic>
#include <cstdlib>
#include <ostream>
#include <thread>

#include "EventLoop.h"
#include "Printers.h"
#include "TempDir.h"
#include "app/AppSettings.h"
#include "backup/BackupRepository.h"
#include "cards/OperationLock.h"
#include "content/M8ContentScanner.h"
#include "core/BackupSet.h"
#include "core/SettingsStore.h"

namespace tapekeep {

namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::startApplication;
using test::TempDir;
using test::waitFor;
using test::writeFile;

// Runs the event loop for a while, for results that must not arrive.
void settle(std::chrono::milliseconds time) {
    waitFor([] { return false; }, time);
}

struct RecordingFeedback : CompletionFeedback {
    void notify(const std::string& title, const std::string&) override { titles.push_back(title); }
    void playSound(const std::string&) override { ++sounds; }
    std::vector<std::string> titles;
    int sounds = 0;
};

class BackupViewModelTest : public ::testing::Test {
protected:
    BackupViewModelTest() {
        startApplication();
        // Card locks of this test only: test programs run side by side with the same made-up cards.
        fs::create_directories(temp / "run");
        ::setenv("XDG_RUNTIME_DIR", (temp / "run").c_str(), 1);
        settings.setBackupBaseDirPath(QString::fromStdString((temp / "backups").string()));
    }

    // A card folder that the scanner's providers report as an external disk with this UUID.
    SDCard addCard(const std::string& name, const std::string& uuid) {
        const fs::path root = temp / "volumes" / name;
        writeFile(root / "Songs/intro.m8s", "song one");
        writeFile(root / "Instruments/bass.m8i", "bass");
        writeFile(root / "Samples/kick.wav", std::string(4096, 'k'));
        std::lock_guard lock(mutex);
        uuids[root] = uuid;
        volumes.push_back(root);
        return SDCard{root, name, uuid};
    }

    SDCard scannedCard() {
        const SDCard card = addCard("CARD", "76FA-7D45-0000-0001");
        scan();
        EXPECT_EQ(model.detectedCards(), std::vector{card});
        return card;
    }

    void setListing(std::function<std::vector<fs::path>()> replacement) {
        std::lock_guard lock(mutex);
        listing = std::move(replacement);
    }

    void scan() {
        model.scanForCards();
        ASSERT_TRUE(waitFor([&] { return !model.isScanning(); }));
    }

    void backUp(const SDCard& card) {
        model.startBackup(card);
        ASSERT_TRUE(waitFor([&] { return !model.isRunning(card.diskUtilUUID); }));
    }

    // Waits in the transfer pass until the run is cancelled or released.
    void holdNextTransfer(const SDCard& card) {
        holdTransfer = true;
        model.startBackup(card);
        ASSERT_TRUE(waitFor([&] { return transferEntered.load(); }));
    }

    fs::path setRoot(const SDCard& card) const {
        return temp / "backups" / backupSetFolderName(card.volumeName, card.diskUtilUUID);
    }
    std::size_t versionCount(const SDCard& card) const {
        return BackupRepository(temp / "backups").listVersions(setRoot(card)).size();
    }
    bool logged(const SDCard& card, const std::string& line) const {
        const auto log = model.cardLog(card.diskUtilUUID);
        return std::find(log.begin(), log.end(), line) != log.end();
    }
    std::string freshness(const SDCard& card) const {
        const auto value = model.cardFreshness(card.diskUtilUUID);
        return value ? value->label() : "";
    }

    template <typename Signal>
    std::shared_ptr<int> countEmissions(Signal signal) {
        auto count = std::make_shared<int>(0);
        QObject::connect(&model, signal, [count] { ++*count; });
        return count;
    }

    std::unique_ptr<VolumeScanner> makeScanner() {
        VolumeScanner::Configuration configuration;
        configuration.volumesProvider = [this] {
            std::function<std::vector<fs::path>()> list;
            std::vector<fs::path> all;
            {
                std::lock_guard lock(mutex);
                list = listing;
                all = volumes;
            }
            return list ? list() : all;
        };
        configuration.diskInfoProvider = [this](const fs::path& volume, std::stop_token token) {
            if (holdProbes) {
                probeEntered = true;
                while (holdProbes && !token.stop_requested()) std::this_thread::sleep_for(2ms);
            }
            if (failProbes) throw std::runtime_error("no answer from the disk");
            std::lock_guard lock(mutex);
            return DiskInfo{uuids.at(volume), false};
        };
        return std::make_unique<VolumeScanner>(std::move(configuration));
    }

    int runRsync(const std::string& path, const std::vector<std::string>& arguments,
                 const BackupOperation::LineHandler& onLine, std::stop_token token) {
        const bool transfer = arguments.empty() || arguments.front() != "-an";
        if (transfer && failTransfer) return 23;
        if (transfer && holdTransfer) {
            transferEntered = true;
            while (holdTransfer && !token.stop_requested()) std::this_thread::sleep_for(2ms);
        }
        return BackupOperation::defaultRsyncRunner()(path, arguments, onLine, token);
    }

    // As an eject leaves a card: gone from the volumes, an empty folder where it was mounted.
    void unmount(const fs::path& mountPoint) {
        {
            std::lock_guard lock(mutex);
            std::erase(volumes, mountPoint);
        }
        for (const auto& entry : fs::directory_iterator(mountPoint)) fs::remove_all(entry.path());
    }

    BackupViewModel::Dependencies dependencies() {
        BackupViewModel::Dependencies result;
        result.makeScanner = [this] { return makeScanner(); };
        result.runRsync = [this](const std::string& path, const std::vector<std::string>& arguments,
                                 const BackupOperation::LineHandler& onLine,
                                 std::stop_token token) { return runRsync(path, arguments, onLine, token); };
        result.ejectVolume = [this](const fs::path& mountPoint, std::stop_token) {
            ++ejectCalls;
            if (ejectFails) throw std::runtime_error("device busy");
            if (ejectUnmounts) unmount(mountPoint);
        };
        result.feedback = &feedback;
        result.store = &store;
        result.watchCards = false;
        result.followMounts = false;  // other programs' mounts must not rescan the test's volumes
        return result;
    }

    TempDir temp;
    SettingsStore store{temp / "settings.json"};
    AppSettings settings{store, [] { return std::optional<std::string>("/usr/bin/rsync"); }};
    RecordingFeedback feedback;

    std::mutex mutex;                                // the providers run on probe threads
    std::vector<fs::path> volumes;                   // guarded by mutex
    std::map<fs::path, std::string> uuids;           // guarded by mutex
    std::function<std::vector<fs::path>()> listing;  // guarded by mutex; replaces volumes
    std::atomic<bool> holdTransfer{false}, transferEntered{false}, failTransfer{false}, ejectFails{false};
    std::atomic<bool> ejectUnmounts{false}, holdProbes{false}, probeEntered{false}, failProbes{false};
    std::atomic<int> ejectCalls{0};

    BackupViewModel model{settings, dependencies()};
};

TEST_F(BackupViewModelTest, OnlyTheLatestOfTwoOverlappingScansChangesTheCardList) {
    const SDCard alpha = addCard("ALPHA", "76FA-7D45-0000-000A");
    const SDCard bravo = addCard("BRAVO", "76FA-7D45-0000-000B");
    std::atomic<bool> entered{false}, released{false}, returned{false};
    setListing([&] {
        entered = true;
        while (!released) std::this_thread::sleep_for(2ms);
        returned = true;
        return std::vector{alpha.mountPath, bravo.mountPath};
    });
    const auto listChanges = countEmissions(&BackupViewModel::detectedCardsChanged);
    model.scanForCards();
    ASSERT_TRUE(waitFor([&] { return entered.load(); }));
    setListing([&] { return std::vector{alpha.mountPath}; });
    scan();
    released = true;
    ASSERT_TRUE(waitFor([&] { return returned.load(); }));
    settle(500ms);  // time for the first scan's result to arrive and be dropped

    EXPECT_EQ(model.detectedCards(), std::vector{alpha});
    EXPECT_EQ(*listChanges, 1);
    EXPECT_FALSE(model.isScanning());
}

TEST_F(BackupViewModelTest, AFailedScanKeepsTheListAndShowsTheError) {
    const SDCard card = scannedCard();
    setListing([]() -> std::vector<fs::path> { throw std::runtime_error("mount table unreadable"); });
    scan();
    EXPECT_EQ(model.detectedCards(), std::vector{card});
    EXPECT_EQ(model.scanError(), "mount table unreadable");
}

TEST_F(BackupViewModelTest, ACardHeldByARestoreIsNotBackedUpAndKeepsItsLog) {
    const SDCard card = scannedCard();
    model.appendOutput(card.diskUtilUUID, "earlier run");
    ASSERT_TRUE(waitFor([&] { return logged(card, "earlier run"); }));
    const Lease restore =
        OperationLock::shared().acquire(VolumeUUID{card.diskUtilUUID}, OperationKind::restore);
    const auto logChanges = countEmissions(&BackupViewModel::cardLogsChanged);

    model.startBackup(card);
    settle(200ms);
    EXPECT_FALSE(model.isRunning(card.diskUtilUUID));
    EXPECT_EQ(model.cardState(card.diskUtilUUID).kind, CardState::Kind::idle);
    EXPECT_EQ(*logChanges, 0);
    EXPECT_EQ(model.cardLog(card.diskUtilUUID), std::vector<std::string>{"earlier run"});
    EXPECT_EQ(OperationLock::shared().owner(VolumeUUID{card.diskUtilUUID}), OperationKind::restore);
    OperationLock::shared().release(restore);
    EXPECT_EQ(versionCount(card), 0u);
}

TEST_F(BackupViewModelTest, ASecondStartWhileTheFirstRunsPublishesOneVersion) {
    const SDCard card = scannedCard();
    holdNextTransfer(card);
    model.startBackup(card);
    holdTransfer = false;
    ASSERT_TRUE(waitFor([&] { return !model.isRunning(card.diskUtilUUID); }));
    EXPECT_EQ(model.cardState(card.diskUtilUUID).kind, CardState::Kind::success);
    EXPECT_EQ(versionCount(card), 1u);
}

TEST_F(BackupViewModelTest, AWarningOutcomeIsASuccessWithTheWarningAsItsMessage) {
    const SDCard card = scannedCard();
    writeFile(setRoot(card) / "latest/keep.txt", "a real folder where the link goes");
    backUp(card);
    const CardState state = model.cardState(card.diskUtilUUID);
    EXPECT_EQ(state.kind, CardState::Kind::success);
    EXPECT_TRUE(state.message.starts_with("Backup saved, but the \"latest\" link could not be updated: "))
        << state.message;
    EXPECT_EQ(feedback.sounds, 1);
    EXPECT_EQ(feedback.titles, std::vector<std::string>{"Backup Complete"});
}

TEST_F(BackupViewModelTest, CancellingDuringTheTransferPublishesNothingAndReleasesTheCard) {
    const SDCard card = scannedCard();
    holdNextTransfer(card);
    model.cancelRun(card);
    ASSERT_TRUE(waitFor([&] { return !model.isRunning(card.diskUtilUUID); }));
    EXPECT_EQ(model.cardState(card.diskUtilUUID), CardState::failed("Backup was cancelled."));
    EXPECT_TRUE(logged(card, "Backup cancelled. No incomplete version was published."));
    EXPECT_EQ(versionCount(card), 0u);
    EXPECT_FALSE(OperationLock::shared().isActive(VolumeUUID{card.diskUtilUUID}));
    EXPECT_TRUE(feedback.titles.empty());
}

TEST_F(BackupViewModelTest, AutoEjectFollowsOnlyASuccessfulRun) {
    settings.setAutoEjectOnCompletion(true);
    const SDCard card = scannedCard();
    failTransfer = true;
    backUp(card);
    EXPECT_EQ(model.cardState(card.diskUtilUUID).kind, CardState::Kind::failed);
    EXPECT_EQ(ejectCalls, 0);

    failTransfer = false;
    backUp(card);
    EXPECT_EQ(model.cardState(card.diskUtilUUID).kind, CardState::Kind::success);
    EXPECT_EQ(ejectCalls, 1);
}

TEST_F(BackupViewModelTest, ThreeFailedEjectAttemptsWaitBetweenThemAndReportTheLastError) {
    const SDCard card = scannedCard();
    ejectFails = true;
    std::optional<QString> failure;
    QObject::connect(&model, &BackupViewModel::ejectFinished,
                     [&](const QString&, const QString& error) { failure = error; });
    const auto start = std::chrono::steady_clock::now();
    model.ejectCard(card);
    ASSERT_TRUE(waitFor([&] { return failure.has_value(); }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 1500ms);
    EXPECT_EQ(failure->toStdString(), "Failed to eject: device busy");
    EXPECT_EQ(ejectCalls, 3);
    EXPECT_FALSE(OperationLock::shared().isActive(VolumeUUID{card.diskUtilUUID}));
}

TEST_F(BackupViewModelTest, ProgressLinesNeverReachTheLog) {
    const SDCard card = scannedCard();
    const std::vector<std::pair<std::string, bool>> lines = {
        {"sending incremental file list", true},
        {"      1,234,567  45%   10.00MB/s    0:00:01 (xfr#5, to-chk=100/200)", false},
        {"Songs/intro.m8s", true},
        {"          0   0%    0.00kB/s    0:00:00 (xfr#0, ir-chk=1000/1004)", false},
        {"    32.77K 100%   31.25MB/s    0:00:00 (xfer#1, to-check=0/1)", false},
        {"  1,234 101%   10.00MB/s    0:00:00", false},
        {"Samples/100% kick.wav", true},
        {"sent 1.23K bytes  received 35 bytes  2.56K bytes/sec", true},
    };
    std::vector<std::string> expected;
    for (const auto& [line, kept] : lines) {
        model.appendOutput(card.diskUtilUUID, line);
        if (kept) expected.push_back(line);
    }
    ASSERT_TRUE(waitFor([&] { return logged(card, expected.back()); }));
    EXPECT_EQ(model.cardLog(card.diskUtilUUID), expected);
}

// A rate bound that follows from one flush per quarter second, not a speed goal.
TEST_F(BackupViewModelTest, AFloodOfOutputChangesEachPropertyAtMostFourTimesASecond) {
    const SDCard card = scannedCard();
    holdNextTransfer(card);
    const std::shared_ptr<int> counts[] = {countEmissions(&BackupViewModel::cardLogsChanged),
                                           countEmissions(&BackupViewModel::cardProgressChanged),
                                           countEmissions(&BackupViewModel::cardFilesRemainingChanged)};
    const auto start = std::chrono::steady_clock::now();
    for (std::int64_t line = 1; std::chrono::steady_clock::now() - start < 1500ms; ++line) {
        model.appendOutput(card.diskUtilUUID, "Samples/take " + std::to_string(line) + ".wav");
        model.appendOutput(card.diskUtilUUID, "  " + std::to_string(line) + " 50%  1.00MB/s  0:00:01 (xfr#" +
                                                  std::to_string(line) + ", to-chk=9/99999)");
        if (line % 100 == 0) QCoreApplication::processEvents();
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    model.cancelRun(card);
    ASSERT_TRUE(waitFor([&] { return !model.isRunning(card.diskUtilUUID); }));
    EXPECT_GE(*counts[0], 1);  // the flood did reach the log
    for (const auto& count : counts) EXPECT_LE(*count, 4 * seconds + 2);
}

TEST_F(BackupViewModelTest, AChangedFileAfterABackupShowsAsOneChange) {
    const SDCard card = scannedCard();
    model.startObserving();
    backUp(card);
    EXPECT_TRUE(waitFor([&] { return freshness(card) == "UP TO DATE"; })) << freshness(card);

    writeFile(card.mountPath / "Songs/intro.m8s", "song one, longer now");
    NotificationCenter::defaultCenter().post(Notifications::cardContentMayHaveChanged, card.diskUtilUUID);
    EXPECT_TRUE(waitFor([&] { return freshness(card) == "1 CHANGE"; })) << freshness(card);
}

TEST_F(BackupViewModelTest, AnEjectedCardIsNotTakenForAnEmptyOne) {
    const SDCard card = scannedCard();
    model.startObserving();
    backUp(card);
    ASSERT_TRUE(waitFor([&] { return freshness(card) == "UP TO DATE"; })) << freshness(card);
    ASSERT_TRUE(
        waitFor([&] { return M8ContentScanner::cachedSummary(card.diskUtilUUID, store).has_value(); }));
    const auto summary = M8ContentScanner::cachedSummary(card.diskUtilUUID, store);
    ASSERT_FALSE(summary->empty());
    ejectUnmounts = true;
    bool ejected = false;
    QObject::connect(&model, &BackupViewModel::ejectFinished, [&](const QString&, const QString& error) {
        ejected = true;
        EXPECT_TRUE(error.isEmpty()) << error.toStdString();
    });

    model.ejectCard(card);  // its browse lease's release says the card's content may have changed
    ASSERT_TRUE(waitFor([&] { return ejected; }));
    settle(1500ms);  // time for a scan and a comparison of the empty folder to come back

    EXPECT_EQ(M8ContentScanner::cachedSummary(card.diskUtilUUID, store), summary);
    EXPECT_EQ(freshness(card), "UP TO DATE");
    EXPECT_FALSE(model.cardContentSummary(card.diskUtilUUID).has_value());
}

TEST_F(BackupViewModelTest, ACardThatCannotBeLookedUpStopsTheRunWithoutBeingCalledChanged) {
    const std::vector<std::pair<std::string, std::function<void()>>> failures = {
        {"the volume listing fails",
         [&] {
             setListing(
                 []() -> std::vector<fs::path> { throw std::runtime_error("mount table unreadable"); });
         }},
        {"every disk probe fails", [&] { failProbes = true; }},
    };
    const SDCard card = scannedCard();
    for (const auto& [name, inject] : failures) {
        SCOPED_TRACE(name);
        inject();
        backUp(card);
        EXPECT_EQ(model.cardState(card.diskUtilUUID),
                  CardState::failed("Could not confirm the card's identity. Try again."));
        EXPECT_EQ(versionCount(card), 0u);
        setListing({});
        failProbes = false;
    }
}

TEST_F(BackupViewModelTest, AStoreThatCannotTakeTheSizesCacheStillShowsItsVersionsAndNote) {
    const SDCard card = scannedCard();
    backUp(card);
    const auto versions = BackupRepository(temp / "backups").listVersions(setRoot(card));
    ASSERT_EQ(versions.size(), 1u);
    ASSERT_FALSE(BackupRepository::saveNote(versions.front().url, "kick take 3").has_value());
    // Where the cache file goes, a folder: no write of the cache can succeed (even as root).
    fs::remove(setRoot(card) / ".tapekeep-sizes.json");
    fs::create_directory(setRoot(card) / ".tapekeep-sizes.json");

    BackupViewModel other{settings, dependencies()};
    other.scanForCards();
    ASSERT_TRUE(waitFor([&] { return other.cardBackupInfo(card.diskUtilUUID).has_value(); }, 10s));
    EXPECT_EQ(other.cardBackupInfo(card.diskUtilUUID)->versions, 1);
    EXPECT_GT(other.cardBackupInfo(card.diskUtilUUID)->totalSize.value_or(0), 0);
    EXPECT_EQ(other.latestNote(card.diskUtilUUID), "kick take 3");
}

TEST_F(BackupViewModelTest, ANewCardShowsNoVersionsAndGetsNoSetFolder) {
    const SDCard card = addCard("CARD", "76FA-7D45-0000-0001");
    model.scanForCards();
    ASSERT_TRUE(waitFor([&] { return model.cardBackupInfo(card.diskUtilUUID).has_value(); }, 10s));
    EXPECT_EQ(*model.cardBackupInfo(card.diskUtilUUID), (BackupInfo{0, std::nullopt}));
    EXPECT_FALSE(fs::exists(setRoot(card)));
}

TEST_F(BackupViewModelTest, AfterAOneShotRunTheCardShowsWhatItsDestinationHolds) {
    const SDCard card = scannedCard();
    backUp(card);
    backUp(card);
    ASSERT_TRUE(waitFor(
        [&] { return model.cardBackupInfo(card.diskUtilUUID).value_or(BackupInfo{}).versions == 2; }));
    const fs::path oneShot = temp / "elsewhere";

    model.prepareBackup(card, oneShot);
    backUp(card);
    ASSERT_EQ(model.cardState(card.diskUtilUUID).kind, CardState::Kind::success);
    ASSERT_EQ(BackupRepository(oneShot).listVersions(oneShot / setRoot(card).filename()).size(), 1u);
    EXPECT_TRUE(waitFor(
        [&] { return model.cardBackupInfo(card.diskUtilUUID).value_or(BackupInfo{}).versions == 1; }, 10s));
    EXPECT_TRUE(model.destinationOverrideVariant().isEmpty());  // spent by that one run
}

TEST_F(BackupViewModelTest, ChoosingADestinationInTheOpenSheetKeepsTheFoldersChosenThere) {
    const SDCard card = scannedCard();
    model.prepareBackup(card);
    ASSERT_TRUE(waitFor([&] { return model.folderSizesLoaded(card.diskUtilUUID); }));
    const auto folders = model.cardFolders(card.diskUtilUUID);
    ASSERT_FALSE(folders.empty());
    model.setFolderSelected(card.diskUtilUUID, folders.front().name, false);

    const fs::path oneShot = temp / "elsewhere";
    model.chooseDestination(card, oneShot);
    EXPECT_EQ(model.cardState(card.diskUtilUUID).kind, CardState::Kind::confirming);
    const auto after = model.cardFolders(card.diskUtilUUID);
    ASSERT_EQ(after.size(), folders.size()) << "the sheet was not loaded afresh";
    EXPECT_FALSE(after.front().selected) << "the choice made before stays";
    EXPECT_FALSE(model.destinationOverrideVariant().isEmpty());

    model.cancelConfirmation(card);
    model.chooseDestination(card, oneShot);  // no open sheet: nothing to choose for
    EXPECT_TRUE(model.destinationOverrideVariant().isEmpty());
}

TEST_F(BackupViewModelTest, AutoEjectIsReadWhenTheRunEnds) {
    const SDCard card = scannedCard();
    holdNextTransfer(card);
    settings.setAutoEjectOnCompletion(true);
    holdTransfer = false;
    ASSERT_TRUE(waitFor([&] { return !model.isRunning(card.diskUtilUUID); }));
    EXPECT_EQ(model.cardState(card.diskUtilUUID).kind, CardState::Kind::success);
    EXPECT_EQ(ejectCalls, 1);
}

TEST_F(BackupViewModelTest, ACancelDuringTheCheckBeforeAutoEjectIsNotASkippedEject) {
    settings.setAutoEjectOnCompletion(true);
    const SDCard card = scannedCard();
    // Once the run has succeeded, the next look-up of the card (the check before the eject) hangs.
    QObject::connect(&model, &BackupViewModel::cardStatesChanged, [&] {
        if (model.cardState(card.diskUtilUUID).kind == CardState::Kind::success) holdProbes = true;
    });
    model.startBackup(card);
    ASSERT_TRUE(waitFor([&] { return probeEntered.load(); }));
    model.cancelRun(card);
    ASSERT_TRUE(waitFor([&] { return !model.isRunning(card.diskUtilUUID); }));
    holdProbes = false;

    for (const auto& line : model.cardLog(card.diskUtilUUID))
        EXPECT_FALSE(line.starts_with("Backup saved; automatic eject skipped")) << line;
    EXPECT_EQ(ejectCalls, 0);
    EXPECT_EQ(model.cardState(card.diskUtilUUID).kind, CardState::Kind::success);
    EXPECT_FALSE(OperationLock::shared().isActive(VolumeUUID{card.diskUtilUUID}));
}

TEST_F(BackupViewModelTest, ARunStartsWithNoFilesRemainingFromTheLastOne) {
    const SDCard card = scannedCard();
    backUp(card);
    ASSERT_TRUE(model.cardFilesRemaining(card.diskUtilUUID).has_value());
    model.startBackup(card);
    EXPECT_FALSE(model.cardFilesRemaining(card.diskUtilUUID).has_value());
    ASSERT_TRUE(waitFor([&] { return !model.isRunning(card.diskUtilUUID); }));
}

TEST_F(BackupViewModelTest, AKeepCountBelowOneIsRefusedWhenRotating) {
    const SDCard card = scannedCard();
    store.setValue("keepCount", 0);  // as a hand-edited file may hold it; the setter refuses it
    backUp(card);
    EXPECT_EQ(model.cardState(card.diskUtilUUID),
              CardState::failed("The setting keepCount is 0, but at least 1 version must be kept. Choose a "
                                "number of versions to keep in Settings."));
    EXPECT_EQ(versionCount(card), 0u);
    EXPECT_FALSE(OperationLock::shared().isActive(VolumeUUID{card.diskUtilUUID}));

    settings.setRotateBackups(false);  // nothing is deleted, so nothing needs keeping
    backUp(card);
    EXPECT_EQ(model.cardState(card.diskUtilUUID).kind, CardState::Kind::success);
    EXPECT_EQ(versionCount(card), 1u);
}

TEST_F(BackupViewModelTest, EveryChangedSettingReachesTheControllersObservers) {
    const auto changes = countEmissions(&BackupViewModel::settingsChanged);
    const std::vector<std::function<void()>> edits = {
        [&] { settings.setKeepCount(9); },
        [&] { settings.setExcludedVolumes("Other"); },
        [&] { settings.setAutoEjectOnCompletion(true); },
        [&] { settings.setM8Accent("lime"); },
    };
    for (std::size_t index = 0; index < edits.size(); ++index) {
        edits[index]();
        EXPECT_EQ(*changes, static_cast<int>(index + 1));
    }
}

TEST_F(BackupViewModelTest, TheContentLabelSaysScanningThenNoM8FilesOnlyForAnEmptyCard) {
    const SDCard full = addCard("FULL", "76FA-7D45-0000-000F");
    const SDCard empty{temp / "volumes/EMPTY", "EMPTY", "76FA-7D45-0000-000E"};
    fs::create_directories(empty.mountPath / "Songs");
    fs::create_directories(empty.mountPath / "Instruments");
    {
        std::lock_guard lock(mutex);
        uuids[empty.mountPath] = empty.diskUtilUUID;
        volumes.push_back(empty.mountPath);
    }
    std::map<std::string, std::set<std::string>> seen;
    QObject::connect(&model, &BackupViewModel::cardContentLabelChanged, [&] {
        for (const SDCard* card : {&full, &empty})
            if (auto label = model.cardContentLabel(card->diskUtilUUID))
                seen[card->diskUtilUUID].insert(*label);
    });
    scan();
    ASSERT_TRUE(waitFor([&] {
        return model.cardContentSummary(full.diskUtilUUID).has_value() &&
               model.cardContentSummary(empty.diskUtilUUID).has_value() &&
               !model.cardContentLabel(full.diskUtilUUID).has_value();
    }));
    ASSERT_TRUE(waitFor([&] { return model.cardContentLabel(empty.diskUtilUUID) == "No M8 files"; }));
    EXPECT_EQ(seen[empty.diskUtilUUID], (std::set<std::string>{"Scanning", "No M8 files"}));
    EXPECT_EQ(seen[full.diskUtilUUID], std::set<std::string>{"Scanning"});
}

TEST_F(BackupViewModelTest, TheOptionsSheetListsSongsInAnyLetterCaseAndSkipsHiddenFiles) {
    const SDCard card = addCard("CARD", "76FA-7D45-0000-0001");
    for (const char* name : {"Songs/LOUD.M8S", "Songs/sub/Deep.M8s", "Songs/._intro.m8s",
                             "Songs/.trash/old.m8s", "Songs/notes.txt", "Songs/intro.m8s.bak"})
        writeFile(card.mountPath / name, "song");
    scan();
    model.prepareBackup(card);
    EXPECT_EQ(model.cardState(card.diskUtilUUID).kind, CardState::Kind::confirming);
    ASSERT_TRUE(waitFor([&] { return model.folderSizesLoaded(card.diskUtilUUID); }));

    std::vector<std::string> songs;
    for (const auto& song : model.cardSongs(card.diskUtilUUID)) songs.push_back(song.relativePath);
    EXPECT_EQ(songs, (std::vector<std::string>{"Songs/LOUD.M8S", "Songs/intro.m8s", "Songs/sub/Deep.M8s"}));
    std::map<std::string, std::int64_t> sizes;
    for (const auto& folder : model.cardFolders(card.diskUtilUUID))
        sizes[folder.name] = folder.size.value_or(-1);
    EXPECT_EQ(sizes["Samples"], 4096);
    EXPECT_EQ(sizes["Instruments"], 4);
}

}  // namespace
}  // namespace tapekeep
