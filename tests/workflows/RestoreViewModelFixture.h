#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <mutex>
#include <stop_token>

#include "EventLoop.h"
#include "TempDir.h"
#include "app/AppSettings.h"
#include "backup/ZipExporter.h"
#include "cards/OperationLock.h"
#include "core/SettingsStore.h"
#include "workflows/RestoreViewModel.h"

namespace tapekeep::test {

inline const std::string cardUuid = "76FA-7D45-0000-00F1";

// A card folder that the scanner's providers report as an external disk, one version of it in a
// backup set, and the wizard walked up to the choice of content. rsync and the archiver are the
// real ones unless a test stands in for rsync or watches the archiver.
class RestoreWizardFixture : public ::testing::Test {
protected:
    using Path = std::filesystem::path;

    RestoreWizardFixture() {
        startApplication();
        std::filesystem::create_directories(temp / "run");  // card locks of this test only
        ::setenv("XDG_RUNTIME_DIR", (temp / "run").c_str(), 1);
        // These tests are about the restore's own run; the safety backup before it has tests of its own.
        settings.setBackupBeforeRestore(false);
        writeFile(card.mountPath / "Songs/LIVE.m8s", "on the card");
        writeFile(card.mountPath / "Instruments/BASS.m8i", "bass");
        writeFile(version / "Songs/LIVE.m8s", "in the version");
        writeFile(version / "Samples/kick.wav", "kick");
    }

    std::unique_ptr<VolumeScanner> makeScanner() {
        VolumeScanner::Configuration configuration;
        configuration.volumesProvider = [this] {
            std::lock_guard lock(mutex);
            return cardMounted ? std::vector{card.mountPath} : std::vector<Path>{};
        };
        configuration.diskInfoProvider = [](const Path&, std::stop_token) {
            return DiskInfo{cardUuid, false};
        };
        return std::make_unique<VolumeScanner>(std::move(configuration));
    }

    void pullCard() {
        std::lock_guard lock(mutex);
        cardMounted = false;
    }

    RestoreViewModel::Dependencies dependencies() {
        RestoreViewModel::Dependencies result;
        result.makeScanner = [this] { return makeScanner(); };
        result.runRsync = [this](const std::string& path, const std::vector<std::string>& arguments,
                                 const BackupOperation::LineHandler& onLine, std::stop_token token) {
            ++rsyncRuns;
            if (standIn) return standIn(onLine, token);
            return BackupOperation::defaultRsyncRunner()(path, arguments, onLine, token);
        };
        result.logStore = RsyncLogStore(temp / "logs");
        result.baseFolderOverride = temp / "backups";
        result.rsyncPathOverride = "/usr/bin/rsync";
        result.flushDelay = std::chrono::milliseconds(250);
        result.ejectVolume = [this](const Path& mountPoint, std::stop_token) {
            if (mountPoint != card.mountPath) throw std::runtime_error("not the chosen card");
            pullCard();
        };
        result.exportFolder = [this](const Path& source, const Path& destination,
                                     const std::stop_token& token, const ZipExporter::Handlers& handlers) {
            ZipExporter::Handlers watched = handlers;
            watched.progress = [this, &token,
                                forward = handlers.progress](const ZipExporter::Progress& progress) {
                if (watchExport) watchExport(progress, token);
                forward(progress);
            };
            return ZipExporter::exportFolder(source, destination, token, watched);
        };
        return result;
    }

    // Target, set and version chosen, the version's folders and songs loaded.
    void chooseVersion() {
        model.loadTargets();
        ASSERT_TRUE(waitFor([&] { return !model.isLoadingTargets() && !model.isLoadingSets(); }));
        ASSERT_EQ(model.availableTargets(), std::vector{card});
        ASSERT_EQ(model.availableSets().size(), 1u);
        model.selectTarget(card);
        model.selectSet(model.availableSets().front());
        ASSERT_TRUE(waitFor([&] { return !model.isLoadingVersionSizes(); }));
        ASSERT_EQ(model.selectedSet()->versions.size(), 1u);
        model.selectVersion(model.selectedSet()->versions.front());
        ASSERT_TRUE(waitFor([&] { return !model.isLoadingSongs(); }));
    }

    RestoreStep restore() {
        model.startRestore();
        EXPECT_TRUE(
            waitFor([&] { return model.step().kind == RestoreStep::Kind::done && !model.isRestoring(); }));
        return model.step();
    }

    bool logged(const std::string& line) const {
        return std::find(model.logLines().begin(), model.logLines().end(), line) != model.logLines().end();
    }

    bool cardHeld() const { return OperationLock::shared().isActive(VolumeUUID{cardUuid}); }

    test::TempDir temp;
    SDCard card{temp / "volumes/CARD", "CARD", cardUuid};
    Path version = temp / "backups/CARD_00000F1/backup-2026-01-01-100000";
    SettingsStore store{temp / "settings.json"};
    AppSettings settings{store, [] { return std::optional<std::string>("/usr/bin/rsync"); }};
    std::mutex mutex;
    bool cardMounted = true;  // guarded by mutex
    std::atomic<int> rsyncRuns{0};
    // Stands in for rsync when set: what it prints and the status it ends with.
    std::function<int(const BackupOperation::LineHandler& onLine, std::stop_token token)> standIn;
    // Sees each progress report of an export on its thread, before the controller does.
    std::function<void(const ZipExporter::Progress& progress, const std::stop_token& token)> watchExport;
    RestoreViewModel model{settings, dependencies()};
};

}  // namespace tapekeep::test
