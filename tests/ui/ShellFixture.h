#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "TempDir.h"
#include "UiTesting.h"
#include "app/AppSettings.h"
#include "core/SettingsStore.h"
#include "workflows/BackupViewModel.h"

namespace tapekeep::test {

// A real backup controller over card folders in a temporary folder, which its scanner reports as
// external volumes. Backups run the real rsync; a transfer can be held until it is cancelled, and
// the eject can be made to fail.
class ShellFixture : public ::testing::Test {
protected:
    ShellFixture() {
        // Card locks of this test only: test programs run side by side with the same made-up cards.
        std::filesystem::create_directories(temp / "run");
        ::setenv("XDG_RUNTIME_DIR", (temp / "run").c_str(), 1);
        settings.setBackupBaseDirPath(QString::fromStdString((temp / "backups").string()));
    }

    SDCard addCard(const std::string& name, const std::string& uuid) {
        const std::filesystem::path root = temp / "volumes" / name;
        writeFile(root / "Songs/intro.m8s", "song one");
        writeFile(root / "Instruments/bass.m8i", "bass");
        std::lock_guard lock(mutex);
        uuids[root] = uuid;
        volumes.push_back(root);
        return SDCard{root, name, uuid};
    }

    void scan() {
        model.scanForCards();
        ASSERT_TRUE(waitFor([&] { return !model.isScanning(); }));
    }

    // Starts a backup that waits in its transfer until it is cancelled.
    void startHeldBackup(const SDCard& card) {
        holdTransfer = true;
        model.startBackup(card);
        ASSERT_TRUE(waitFor([&] { return transferEntered.load(); }));
    }

    BackupViewModel::Dependencies dependencies() {
        BackupViewModel::Dependencies result;
        result.makeScanner = [this] {
            VolumeScanner::Configuration configuration;
            configuration.volumesProvider = [this] {
                std::lock_guard lock(mutex);
                return volumes;
            };
            configuration.diskInfoProvider = [this](const std::filesystem::path& volume, std::stop_token) {
                std::lock_guard lock(mutex);
                return DiskInfo{uuids.at(volume), false};
            };
            return std::make_unique<VolumeScanner>(std::move(configuration));
        };
        result.runRsync = [this](const std::string& path, const std::vector<std::string>& arguments,
                                 const BackupOperation::LineHandler& onLine, std::stop_token token) {
            const bool transfer = arguments.empty() || arguments.front() != "-an";
            if (transfer && holdTransfer) {
                transferEntered = true;
                while (!token.stop_requested()) std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
            return BackupOperation::defaultRsyncRunner()(path, arguments, onLine, token);
        };
        result.ejectVolume = [this](const std::filesystem::path& mountPoint, std::stop_token) {
            std::lock_guard lock(mutex);
            ejected.push_back(mountPoint.filename().string());
            if (ejectFails) throw std::runtime_error("device busy");
        };
        result.ejectWaits = {std::chrono::milliseconds(0)};
        result.store = &store;
        result.watchCards = false;
        result.followMounts = false;
        result.followCardContent = false;
        return result;
    }

    std::vector<std::string> ejectedCards() {
        std::lock_guard lock(mutex);
        return ejected;
    }

    ApplicationStarted started;
    TempDir temp;
    SettingsStore store{temp / "settings.json"};
    AppSettings settings{store, [] { return std::optional<std::string>("/usr/bin/rsync"); }};

    std::mutex mutex;                                    // the providers run on other threads
    std::vector<std::filesystem::path> volumes;          // guarded by mutex
    std::map<std::filesystem::path, std::string> uuids;  // guarded by mutex
    std::vector<std::string> ejected;                    // guarded by mutex
    std::atomic<bool> holdTransfer{false}, transferEntered{false}, ejectFails{false};

    BackupViewModel model{settings, dependencies()};
};

}  // namespace tapekeep::test
