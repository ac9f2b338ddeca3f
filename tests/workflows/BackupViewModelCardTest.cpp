// The backup controller on a real FAT card mounted through FUSE, with the system's own scanner
// below a volume root of the test's.

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <thread>

#include "EventLoop.h"
#include "FatCard.h"
#include "TempDir.h"
#include "app/AppSettings.h"
#include "backup/BackupRepository.h"
#include "cards/VolumeScanner.h"
#include "core/BackupSet.h"
#include "core/SettingsStore.h"
#include "workflows/BackupViewModel.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::FatCard;
using test::startApplication;
using test::TempDir;
using test::waitFor;
using test::writeFile;

class BackupViewModelCardTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (auto reason = FatCard::unavailableReason()) GTEST_SKIP() << "no FUSE card here: " << *reason;
        startApplication();
        fs::create_directories(temp / "run");
        ::setenv("XDG_RUNTIME_DIR", (temp / "run").c_str(), 1);
        settings.setBackupBaseDirPath(QString::fromStdString(store().string()));
        fs::create_directories(volumes());
        card = std::make_unique<FatCard>(temp / "card.img", volumes(), "M8CARD");
        writeFile(card->mountPath() / "Songs/DEMO.m8s", "song");
        writeFile(card->mountPath() / "Instruments/BASS.m8i", "bass");
    }

    fs::path volumes() const { return temp / "volumes"; }
    fs::path store() const { return temp / "backups"; }

    // A controller whose scanner is the system's, below the test's volume root.
    std::unique_ptr<BackupViewModel> makeModel() {
        BackupViewModel::Dependencies dependencies;
        dependencies.volumeRoots = {volumes()};
        dependencies.watchCards = false;
        dependencies.ejectVolume = [](const fs::path&, std::stop_token) {};
        return std::make_unique<BackupViewModel>(settings, std::move(dependencies));
    }

    SDCard scanned(BackupViewModel& model) {
        model.scanForCards();
        EXPECT_TRUE(waitFor([&] { return !model.isScanning(); }));
        EXPECT_EQ(model.detectedCards().size(), 1u);
        return model.detectedCards().empty() ? SDCard{} : model.detectedCards().front();
    }

    static std::size_t versionsIn(const fs::path& base, const SDCard& card) {
        return BackupRepository(base)
            .listVersions(base / backupSetFolderName(card.volumeName, card.diskUtilUUID))
            .size();
    }

    TempDir temp;
    SettingsStore settingsStore{temp / "settings.json"};
    AppSettings settings{settingsStore, [] { return std::optional<std::string>("/usr/bin/rsync"); }};
    std::unique_ptr<FatCard> card;
};

TEST_F(BackupViewModelCardTest, AnAutomaticBackupAfterAOneShotDestinationGoesToTheStore) {
    settings.setAutoBackupOnConnect(true);
    settings.setAutoBackupDelaySeconds(0);
    auto model = makeModel();
    model->startObserving();
    const SDCard found = scanned(*model);
    ASSERT_EQ(found.diskUtilUUID, card->uuid());
    int finished = 0;
    QObject::connect(model.get(), &BackupViewModel::backupFinished, [&] { ++finished; });

    const fs::path oneShot = temp / "thumb-drive";
    model->prepareBackup(found, oneShot);
    model->startBackup(found);
    ASSERT_TRUE(waitFor([&] { return finished == 1; }));
    ASSERT_EQ(model->cardState(found.diskUtilUUID).kind, CardState::Kind::success)
        << model->cardState(found.diskUtilUUID).message;
    ASSERT_EQ(versionsIn(oneShot, found), 1u);

    card->unmount();
    ASSERT_TRUE(waitFor([&] { return model->detectedCards().empty(); }));
    card->mount();  // the same card again: newly present, so its countdown arms and runs
    ASSERT_TRUE(waitFor([&] { return finished == 2; }));
    EXPECT_EQ(model->cardState(found.diskUtilUUID).kind, CardState::Kind::success)
        << model->cardState(found.diskUtilUUID).message;
    EXPECT_EQ(versionsIn(store(), found), 1u);
    EXPECT_EQ(versionsIn(oneShot, found), 1u);
}

// A mount that happens while the first scan is still under way (the watcher has just started) must
// not make the cards of that first scan "newly connected": they were there from the start.
TEST_F(BackupViewModelCardTest, AMountDuringTheFirstScanArmsNoCountdownForTheCardsAlreadyThere) {
    settings.setAutoBackupOnConnect(true);
    settings.setAutoBackupDelaySeconds(86'400);  // a countdown, if one starts, stays visible
    std::atomic<int> listings{0};
    std::atomic<bool> firstMayEnd{false};
    auto dependencies = BackupViewModel::Dependencies{};
    dependencies.watchCards = false;
    dependencies.ejectVolume = [](const fs::path&, std::stop_token) {};
    dependencies.makeScanner = [&, mountPath = card->mountPath()] {
        VolumeScanner::Configuration configuration;
        configuration.volumesProvider = [&, mountPath] {
            if (listings.fetch_add(1) == 0)
                while (!firstMayEnd) std::this_thread::sleep_for(1ms);
            return std::vector<fs::path>{mountPath};
        };
        return std::make_unique<VolumeScanner>(configuration);
    };
    auto model = std::make_unique<BackupViewModel>(settings, std::move(dependencies));
    model->startObserving();
    model->scanForCards();
    ASSERT_TRUE(waitFor([&] { return listings >= 1; }));

    fs::create_directories(temp / "elsewhere");
    FatCard other(temp / "other.img", temp / "elsewhere", "OTHER");  // the mount, mid-scan
    const bool rescanned = waitFor([&] { return listings >= 2 && !model->isScanning(); });
    firstMayEnd = true;
    ASSERT_TRUE(rescanned);
    ASSERT_EQ(model->detectedCards().size(), 1u);
    EXPECT_EQ(model->cardState(card->uuid()).kind, CardState::Kind::idle)
        << CardState::rawValue(model->cardState(card->uuid()).kind);
}

TEST_F(BackupViewModelCardTest, TheDefaultScannerLeavesOutTheVolumesThatTheSettingExcludes) {
    const std::vector<std::pair<std::string, std::size_t>> cases = {
        {"", 1}, {"Other, M8CARD", 0}, {"m8card", 1}};
    auto model = makeModel();
    for (const auto& [excluded, expected] : cases) {
        SCOPED_TRACE("excludedVolumes=" + excluded);
        settings.setExcludedVolumes(QString::fromStdString(excluded));
        model->scanForCards();
        ASSERT_TRUE(waitFor([&] { return !model->isScanning(); }));
        EXPECT_EQ(model->detectedCards().size(), expected);
    }
}

// A check that the loading is not done on the GUI thread, not a speed goal: the card is made slow
// to read (200 real songs through FUSE), so that loading on the GUI thread would stall its event
// loop for far longer than the 50 ms allowed between two turns. Time the thread spent waiting for a
// CPU is left out of each gap: on a loaded machine that is the machine's stall, not the loader's.
TEST_F(BackupViewModelCardTest, TwoHundredSongsLoadWhileTheEventLoopKeepsTurning) {
    const std::string song = [] {
        std::ifstream in(fs::path(TAPEKEEP_FIXTURES_DIR) / "DEFAULT.m8s", std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }();
    ASSERT_GT(song.size(), 100'000u);
    for (int index = 0; index < 200; ++index)
        writeFile(card->mountPath() / "Songs" / ("SONG" + std::to_string(index) + ".M8S"), song);
    auto model = makeModel();
    const SDCard found = scanned(*model);

    QElapsedTimer sinceLastTurn;
    auto waitedAtLastTurn = test::timeWaitedForACpu();
    qint64 longestGap = 0;
    QTimer ticker;
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        const auto waited = test::timeWaitedForACpu();
        longestGap = std::max(longestGap, sinceLastTurn.restart() - (waited - waitedAtLastTurn).count());
        waitedAtLastTurn = waited;
    });
    QElapsedTimer loading;
    loading.start();
    sinceLastTurn.start();
    ticker.start(5);
    model->prepareBackup(found);
    ASSERT_TRUE(waitFor([&] { return model->folderSizesLoaded(found.diskUtilUUID); }));
    ticker.stop();

    EXPECT_EQ(model->cardSongs(found.diskUtilUUID).size(), 201u);
    EXPECT_LT(longestGap, 50) << "loading took " << loading.elapsed() << " ms";
    std::cout << "[ INFO     ] loading took " << loading.elapsed() << " ms; longest gap " << longestGap
              << " ms\n";
}

}  // namespace
}  // namespace tapekeep
