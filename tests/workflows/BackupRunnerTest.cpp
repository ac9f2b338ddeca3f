#include "workflows/BackupRunner.h"

#include <gtest/gtest.h>

#include <atomic>

#include "CardLocks.h"
#include "EventLoop.h"
#include "Printers.h"
#include "TempDir.h"
#include "app/AppSettings.h"
#include "backup/BackupRepository.h"
#include "cards/OperationLock.h"
#include "core/BackupSet.h"
#include "core/SettingsStore.h"
#include "workflows/BackupRequestFactory.h"
#include "workflows/CardEjector.h"
#include "workflows/CardStateTable.h"
#include "workflows/RunOutputCoalescer.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;

class BackupRunnerTest : public ::testing::Test {
protected:
    BackupRunnerTest() {
        test::startApplication();
        test::keepCardLocksIn(temp / "run");
        test::writeFile(card.mountPath / "Songs/intro.m8s", "song one");
        test::writeFile(card.mountPath / "Instruments/bass.m8i", "bass");
        QObject::connect(&runner, &BackupRunner::published,
                         [this](const SDCard&, const fs::path& destination) {
                             events.push_back("published " + destination.string());
                         });
        QObject::connect(&runner, &BackupRunner::ejectStarting,
                         [this] { events.push_back("ejectStarting"); });
        QObject::connect(&runner, &BackupRunner::cardReleased, [this] { events.push_back("cardReleased"); });
        QObject::connect(&runner, &BackupRunner::backupFinished,
                         [this] { events.push_back("backupFinished"); });
    }

    BackupRunner::Plan plan(std::optional<std::string> refusal = {}) {
        return {makeBackupRequest(card, settings, {}, store()), std::move(refusal)};
    }
    fs::path store() const { return temp / "backups"; }
    std::size_t versionCount() const {
        return BackupRepository(store())
            .listVersions(store() / backupSetFolderName(card.volumeName, card.diskUtilUUID))
            .size();
    }
    bool finished() const {
        return std::find(events.begin(), events.end(), "backupFinished") != events.end();
    }

    CardEjector::Dependencies ejectorDependencies() {
        return {[](const BackupRequest&, std::stop_token) {},
                [this](const fs::path&, std::stop_token) {
                    holderDuringEject = OperationLock::shared().owner(VolumeUUID{card.diskUtilUUID});
                    if (ejectFails) throw std::runtime_error("device busy");
                },
                {0ms}};
    }

    test::TempDir temp;
    const SDCard card{temp / "volumes/CARD", "CARD", "76FA-7D45-0000-0001"};
    SettingsStore settingsStore{temp / "settings.json"};
    AppSettings settings{settingsStore, [] { return std::optional<std::string>("/usr/bin/rsync"); }};
    CardStateTable states{[] {}};
    RunOutputCoalescer output{10ms};
    CardEjector ejector{ejectorDependencies()};
    BackupRunner runner{settings,
                        states,
                        output,
                        ejector,
                        {BackupOperation::defaultRsyncRunner(), BackupOperation::Environment::system(),
                         [](const BackupRequest&, std::stop_token) {}, nullptr}};
    std::vector<std::string> events;
    std::atomic<bool> ejectFails{false};
    std::optional<OperationKind> holderDuringEject;
};

TEST_F(BackupRunnerTest, ARefusedPlanReleasesTheCardAndSaysWhy) {
    output.appendLog(card.diskUtilUUID, "earlier run");
    EXPECT_FALSE(runner.start(card, plan("Nothing selected to back up.")));
    EXPECT_EQ(states.state(card.diskUtilUUID), CardState::failed("Nothing selected to back up."));
    EXPECT_FALSE(runner.isRunning(card.diskUtilUUID));
    EXPECT_FALSE(OperationLock::shared().isActive(VolumeUUID{card.diskUtilUUID}));
    EXPECT_EQ(output.log(card.diskUtilUUID), std::vector<std::string>{"earlier run"});
}

TEST_F(BackupRunnerTest, ACardHeldByAnotherOperationIsRefusedInTheUsersWords) {
    const Lease restore =
        OperationLock::shared().acquire(VolumeUUID{card.diskUtilUUID}, OperationKind::restore);
    const bool started = runner.start(card, plan());
    EXPECT_EQ(OperationLock::shared().owner(VolumeUUID{card.diskUtilUUID}), OperationKind::restore);
    OperationLock::shared().release(restore);

    EXPECT_FALSE(started);
    EXPECT_EQ(states.state(card.diskUtilUUID),
              CardState::failed("Cannot start backup — restore in progress on this card."));
}

TEST_F(BackupRunnerTest, AfterASuccessTheCardIsEjectedUnderTheRunsLease) {
    settings.setAutoEjectOnCompletion(true);
    ASSERT_TRUE(runner.start(card, plan()));
    EXPECT_EQ(states.state(card.diskUtilUUID).kind, CardState::Kind::running);
    ASSERT_TRUE(test::waitFor([&] { return finished(); }));

    EXPECT_TRUE(states.state(card.diskUtilUUID).message.starts_with("Backup successful (0:0"))
        << states.state(card.diskUtilUUID).message;
    EXPECT_EQ(events,
              (std::vector<std::string>{"published " + store().string(), "ejectStarting", "backupFinished"}));
    EXPECT_EQ(holderDuringEject, OperationKind::backup);
    EXPECT_FALSE(OperationLock::shared().isActive(VolumeUUID{card.diskUtilUUID}));
    EXPECT_EQ(versionCount(), 1u);
}

TEST_F(BackupRunnerTest, AFailedEjectAfterARunKeepsTheSuccessAndSaysWhy) {
    settings.setAutoEjectOnCompletion(true);
    ejectFails = true;
    ASSERT_TRUE(runner.start(card, plan()));
    ASSERT_TRUE(test::waitFor([&] { return finished(); }));

    EXPECT_EQ(states.state(card.diskUtilUUID),
              CardState::success("Backup saved. Failed to eject: device busy"));
    EXPECT_EQ(output.log(card.diskUtilUUID).back(), "Failed to eject: device busy");
    EXPECT_FALSE(OperationLock::shared().isActive(VolumeUUID{card.diskUtilUUID}));
}

TEST_F(BackupRunnerTest, WithoutAnEjectTheCardIsReleasedBeforeTheRunFinishes) {
    ASSERT_TRUE(runner.start(card, plan()));
    ASSERT_TRUE(test::waitFor([&] { return finished(); }));
    EXPECT_EQ(events,
              (std::vector<std::string>{"published " + store().string(), "cardReleased", "backupFinished"}));
    EXPECT_FALSE(holderDuringEject.has_value());
    EXPECT_EQ(runner.lastOutcome(card.diskUtilUUID)
                  .value_or(BackupOutcome{})
                  .versionURL.parent_path()
                  .parent_path(),
              store());
}

}  // namespace
}  // namespace tapekeep
