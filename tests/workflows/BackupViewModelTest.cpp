#include "workflows/BackupViewModel.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <atomic>
#include <cstdlib>
#include <ostream>
#include <thread>

#include "TempDir.h"
#include "app/AppSettings.h"
#include "backup/BackupRepository.h"
#include "cards/OperationLock.h"
#include "core/BackupSet.h"
#include "core/SettingsStore.h"

namespace tapekeep {

// Found by argument-dependent lookup, so that failures print the card.
void PrintTo(const SDCard& card, std::ostream* out) {
    *out << card.volumeName << " " << card.diskUtilUUID;
}

namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::TempDir;
using test::writeFile;

void startApplication() {
    static int argc = 1;
    static char name[] = "tests_workflows";
    static char* argv[] = {name, nullptr};
    static QCoreApplication application(argc, argv);
}

// Runs the event loop until done() holds; false when it still doesn't after the limit.
bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds limit = 30s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        QCoreApplication::processEvents();
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

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
        configuration.diskInfoProvider = [this](const fs::path& volume, std::stop_token) {
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

    BackupViewModel::Dependencies dependencies() {
        BackupViewModel::Dependencies result;
        result.makeScanner = [this] { return makeScanner(); };
        result.runRsync = [this](const std::string& path, const std::vector<std::string>& arguments,
                                 const BackupOperation::LineHandler& onLine,
                                 std::stop_token token) { return runRsync(path, arguments, onLine, token); };
        result.ejectVolume = [this](const fs::path&, std::stop_token) {
            ++ejectCalls;
            if (ejectFails) throw std::runtime_error("device busy");
        };
        result.feedback = &feedback;
        result.watchCards = false;
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

}  // namespace
}  // namespace tapekeep
