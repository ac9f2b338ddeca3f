#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "../workflows/FakeVolumes.h"
#include "GuiTestApplication.h"
#include "TempDir.h"
#include "app/AppSettings.h"
#include "core/SettingsStore.h"
#include "workflows/BackupViewModel.h"

namespace tapekeep::test {

// What a real backup controller needs in a test: settings and a store of the test's own, card
// locks of its own (test programs run side by side with the same made-up cards), and cards that
// are plain folders reported as external disks. Nothing follows mounts or watches the cards.
class BackupControllerFixture : public ::testing::Test {
protected:
    BackupControllerFixture() {
        std::filesystem::create_directories(temp / "run");
        std::filesystem::permissions(temp / "run", std::filesystem::perms::owner_all);
        ::setenv("XDG_RUNTIME_DIR", (temp / "run").c_str(), 1);
        ensureGuiApplication();
        settings.setBackupBaseDirPath(QString::fromStdString((temp / "backups").string()));
    }

    SDCard addCard(const std::string& name, const std::string& uuid) {
        return volumes.addCard(temp / "volumes" / name, uuid);
    }

    BackupViewModel::Dependencies baseDependencies() {
        BackupViewModel::Dependencies result;
        result.makeScanner = volumes.factory();
        result.ejectVolume = [](const std::filesystem::path&, std::stop_token) {};
        result.watchCards = false;
        result.followMounts = false;
        return result;
    }

    static void scan(BackupViewModel& backup) {
        backup.scanForCards();
        ASSERT_TRUE(processEventsUntil([&] { return !backup.isScanning(); }));
    }

    TempDir temp;
    SettingsStore store{temp / "settings.json"};
    AppSettings settings{store, [] { return std::optional<std::string>("/usr/bin/rsync"); }};
    FakeVolumes volumes;
};

}  // namespace tapekeep::test
