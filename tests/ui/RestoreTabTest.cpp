// The RESTORE screen's QML over a real restore controller, with a card folder reported as an
// external disk, backup sets on disk and the real rsync, in a window of its own.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QQuickItem>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>

#include "../workflows/FakeVolumes.h"
#include "GuiTestApplication.h"
#include "M8Files.h"
#include "QuickScreen.h"
#include "TempDir.h"
#include "app/AppSettings.h"
#include "backup/BackupRepository.h"
#include "cards/OperationLock.h"
#include "core/SettingsStore.h"
#include "ui/M8Theme.h"
#include "ui/VersionComparisonSheet.h"
#include "workflows/RestoreViewModel.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::processEventsUntil;
using test::writeFile;

const std::string cardUuid = "76FA-7D45-0000-00E1";

// An old modification time: the version's copy of such a file is newer, so a restore replaces it.
void makeOld(const fs::path& file) {
    struct timespec times[2] = {{1'600'000'000, 0}, {1'600'000'000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
}

class RestoreTabTest : public ::testing::Test {
protected:
    RestoreTabTest() {
        fs::create_directories(temp / "run");  // card locks of this test only
        fs::permissions(temp / "run", fs::perms::owner_all);
        ::setenv("XDG_RUNTIME_DIR", (temp / "run").c_str(), 1);
        settings.setBackupBeforeRestore(false);  // the safety backup has tests of its own

        writeFile(card.mountPath / "Songs/LIVE.m8s", "on the card");
        makeOld(card.mountPath / "Songs/LIVE.m8s");
        writeFile(card.mountPath / "Instruments/BASS.m8i", "bass");
        volumes.add(card.mountPath, cardUuid);

        addVersion(set / "backup-2026-01-01-100000", "january");
        addVersion(set / "backup-2026-02-01-100000", "february");
        addVersion(set / "backup-2026-03-01-100000", "march");
        writeFile(set / "backup-2026-03-01-100000/Samples/kick.wav", "kick");
        fs::create_directory_symlink("backup-2026-03-01-100000", set / "latest");
        BackupRepository::saveSizes(set, {{"backup-2026-03-01-100000", 2'500'000}});
        writeFile(set / "backup-2026-01-01-100000/.tapekeep-note", "first take");
        addVersion(other / "backup-2025-12-01-100000", "other card");

        screen->provide("Settings", &settings);
        screen->provide("Theme", &theme);
        screen->provide("Restore", &restore);
        screen->provide("Comparison", &comparisons);
    }
    void TearDown() override { screen.reset(); }

    static void addVersion(const fs::path& version, const std::string& song) {
        writeFile(version / "Songs/LIVE.m8s", song);
        writeFile(version / "Instruments/BASS.m8i", "bass");
    }

    RestoreViewModel::Dependencies dependencies() {
        RestoreViewModel::Dependencies result;
        result.makeScanner = volumes.factory();
        result.runRsync = [this](const std::string& path, const std::vector<std::string>& arguments,
                                 const BackupOperation::LineHandler& onLine, std::stop_token token) {
            if (standIn && arguments.back() == card.mountPath.string() + "/" && !isPreview(arguments))
                return standIn(onLine, token);
            return BackupOperation::defaultRsyncRunner()(path, arguments, onLine, token);
        };
        result.logStore = RsyncLogStore(temp / "logs");
        result.baseFolderOverride = temp / "backups";
        result.rsyncPathOverride = "/usr/bin/rsync";
        result.flushDelay = std::chrono::milliseconds(20);
        result.ejectVolume = [this](const fs::path& mountPoint, std::stop_token) {
            if (mountPoint != card.mountPath) throw std::runtime_error("not the chosen card");
            volumes.remove(card.mountPath);
        };
        return result;
    }
    static bool isPreview(const std::vector<std::string>& arguments) {
        return std::find(arguments.begin(), arguments.end(), "-aniuc") != arguments.end();
    }

    QQuickItem* showTab() {
        QQuickItem* root = screen->load(QUrl(QStringLiteral("qrc:/qt/qml/Tapekeep/RestoreTab.qml")));
        EXPECT_NE(root, nullptr) << screen->errors().toStdString();
        return root;
    }

    QQuickItem* item(const QString& name, QQuickItem* within = nullptr) const {
        return screen->find(name, within);
    }
    std::string textOf(const QString& name, QQuickItem* within = nullptr) const {
        QQuickItem* found = item(name, within);
        return found == nullptr ? std::string() : found->property("text").toString().toStdString();
    }
    bool shows(const QString& name, QQuickItem* within = nullptr) const {
        QQuickItem* found = item(name, within);
        return found != nullptr && found->isVisible();
    }
    bool enabled(const char* button) const {
        QQuickItem* found = item(QString::fromLatin1(button));
        return found != nullptr && found->isEnabled();
    }
    bool isCurrent(const char* step) const {
        QQuickItem* marker = item(QStringLiteral("wizardStep_") + QString::fromLatin1(step));
        return marker != nullptr && marker->property("current").toBool();
    }
    // The step the controller is at, once the screen's marker shows it too.
    bool reaches(const char* step) const {
        return processEventsUntil([&] {
            return RestoreStep::rawValue(restore.step().kind) == std::string(step) && isCurrent(step);
        });
    }
    void click(const QString& name) { screen->click(item(name)); }

    // From the first page to the versions of the card's set, by the screen's buttons.
    void walkToVersions() {
        ASSERT_TRUE(processEventsUntil([&] { return enabled("nextButton"); }));
        click("nextButton");
        ASSERT_TRUE(reaches("selectSet"));
        ASSERT_TRUE(processEventsUntil([&] { return item("set_0") != nullptr; }));
        screen->pressSpace(item("set_0"));  // keys reach it before the Flow has placed it
        click("nextButton");
        ASSERT_TRUE(reaches("selectVersion"));
        ASSERT_TRUE(processEventsUntil([&] { return !restore.isLoadingVersionSizes(); }));
        ASSERT_TRUE(processEventsUntil([&] { return item("version_2") != nullptr; }));
    }
    // On from the versions with the latest one, the whole version, up to the preview's rows.
    void walkToPreview() {
        walkToVersions();
        click("nextButton");
        ASSERT_TRUE(reaches("selectFolders"));
        ASSERT_TRUE(processEventsUntil([&] { return enabled("nextButton"); }));
        click("nextButton");
        ASSERT_TRUE(reaches("confirm"));
        click("nextButton");
        ASSERT_TRUE(reaches("previewDiff"));
        ASSERT_TRUE(processEventsUntil([&] { return shows("previewRows"); })) << textOf("previewError");
    }

    test::TempDir temp;
    SDCard card{temp / "volumes/CARD", "CARD", cardUuid};
    fs::path set = temp / "backups/CARD_000000E1";
    fs::path other = temp / "backups/SPARE_000000E2";
    SettingsStore store{temp / "settings.json"};
    AppSettings settings{store, [] { return std::optional<std::string>("/usr/bin/rsync"); }};
    bool applicationReady = (test::ensureGuiApplication(), true);
    M8Theme theme{settings, [] { return true; }};
    test::FakeVolumes volumes;
    // Stands in for rsync's run of the restore itself when set; previews stay real.
    std::function<int(const BackupOperation::LineHandler& onLine, std::stop_token token)> standIn;
    RestoreViewModel restore{settings, dependencies()};
    VersionComparisonSheet comparisons{restore, [this] {
                                           ComparisonViewModel::Dependencies result;
                                           result.rsyncPath = "/usr/bin/rsync";
                                           result.logStore = RsyncLogStore(temp / "logs");
                                           return result;
                                       }};
    std::unique_ptr<test::QuickScreen> screen = std::make_unique<test::QuickScreen>();
};

TEST_F(RestoreTabTest, TheStepsGoOnAndBackWithTheButtonsEachStepAllows) {
    ASSERT_NE(showTab(), nullptr);
    ASSERT_TRUE(reaches("selectTarget"));
    ASSERT_TRUE(processEventsUntil([&] { return shows("target_0"); }));
    EXPECT_EQ(textOf("stepLabel", item("wizardStep_selectTarget")), "TARGET");
    EXPECT_EQ(textOf("stepLabel", item("wizardStep_done")), "DONE");
    EXPECT_FALSE(enabled("backButton"));
    EXPECT_TRUE(enabled("nextButton")) << "the only card is marked";

    click("nextButton");
    ASSERT_TRUE(reaches("selectSet"));
    EXPECT_EQ(restore.selectedTarget(), card);
    EXPECT_TRUE(item("wizardStep_selectTarget")->property("passed").toBool());
    EXPECT_TRUE(enabled("backButton"));
    ASSERT_TRUE(processEventsUntil([&] { return shows("set_1"); }));
    EXPECT_FALSE(enabled("nextButton")) << "two sets, none marked yet";
    screen->pressSpace(item("set_0"));
    EXPECT_TRUE(enabled("nextButton"));

    click("nextButton");
    ASSERT_TRUE(reaches("selectVersion"));
    EXPECT_EQ(restore.selectedSet()->rootURL, set);
    click("backButton");
    ASSERT_TRUE(reaches("selectSet"));
    EXPECT_TRUE(item("set_0")->property("selected").toBool()) << "the chosen set stays marked";
    click("nextButton");
    ASSERT_TRUE(reaches("selectVersion"));
    ASSERT_TRUE(processEventsUntil([&] { return enabled("nextButton"); }));

    screen->pressKey(screen->root(), Qt::Key_Return);  // Return does what the main button does
    ASSERT_TRUE(reaches("selectFolders"));
    EXPECT_EQ(restore.selectedVersion()->folderName, "backup-2026-03-01-100000") << "the newest is marked";
    click("backButton");
    ASSERT_TRUE(reaches("selectVersion"));
}

TEST_F(RestoreTabTest, TheVersionsShowNewestFirstWithTheirDateSizeNoteAndTheLatestMark) {
    ASSERT_NE(showTab(), nullptr);
    walkToVersions();
    const char* expectedDays[] = {"2026-03-01", "2026-02-01", "2026-01-01"};
    for (int index = 0; index < 3; ++index) {
        QQuickItem* row = item(QStringLiteral("version_%1").arg(index));
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(item("versionCard", row)->property("title").toString().left(10).toStdString(),
                  expectedDays[index]);
        EXPECT_EQ(shows("latestBadge", row), index == 0) << index;
    }
    EXPECT_EQ(item("versionCard", item("version_0"))->property("detail").toString().toStdString(), "2.5 MB");
    EXPECT_EQ(item("noteField", item("version_2"))->property("note").toString().toStdString(), "first take");
    EXPECT_TRUE(item("versionCard", item("version_0"))->property("selected").toBool());
}

TEST_F(RestoreTabTest, ANoteIsSavedInPlaceAndAFailureShowsWhyUnderIt) {
    ASSERT_NE(showTab(), nullptr);
    walkToVersions();
    const fs::path february = set / "backup-2026-02-01-100000";

    screen->pressKey(item("noteInput", item("version_1")), Qt::Key_End);
    screen->typeText("gig");
    screen->pressKey(item("noteInput", item("version_1")), Qt::Key_Return);
    EXPECT_EQ(BackupRepository::readNote(february), "gig");
    EXPECT_FALSE(shows("noteError", item("version_1")));

    fs::remove(february / ".tapekeep-note");  // a folder where the note goes cannot be replaced
    writeFile(february / ".tapekeep-note/keep", "not ours");
    screen->typeText(" two");
    screen->pressKey(item("noteInput", item("version_1")), Qt::Key_Return);
    ASSERT_TRUE(shows("noteError", item("version_1")));
    EXPECT_TRUE(textOf("noteError", item("version_1")).starts_with("Could not save note: "))
        << textOf("noteError", item("version_1"));
    EXPECT_FALSE(shows("noteError", item("version_0"))) << "the failure shows under its own version";
}

TEST_F(RestoreTabTest, ARestoreGoesThroughThePreviewsRowsAndEndsInTheControllersWords) {
    ASSERT_NE(showTab(), nullptr);
    writeFile(card.mountPath / "Samples/mine.wav", "only on the card");
    walkToPreview();
    QQuickItem* rows = item("previewRows");
    EXPECT_EQ(textOf("diffCount_added", rows), "ADDED (1)");        // Samples/kick.wav
    EXPECT_EQ(textOf("diffCount_modified", rows), "MODIFIED (1)");  // Songs/LIVE.m8s
    EXPECT_EQ(item("diffCount_deleted", rows), nullptr) << "a restore deletes nothing";
    EXPECT_TRUE(processEventsUntil([&] { return textOf("diffGroup_added", rows) == "ADDED (1)"; }))
        << "the rows stand under their group";

    click("nextButton");
    ASSERT_TRUE(reaches("done"));
    EXPECT_EQ(textOf("resultBadge"), "DONE");
    EXPECT_EQ(textOf("resultText"), "Restore complete.");
    EXPECT_EQ(test::readFile(card.mountPath / "Songs/LIVE.m8s"), "march");
    EXPECT_EQ(test::readFile(card.mountPath / "Samples/mine.wav"), "only on the card");
    EXPECT_FALSE(shows("wizardButtons"));

    click("ejectButton");
    EXPECT_TRUE(processEventsUntil([&] { return textOf("ejectAnswer") == "Ejected."; }))
        << textOf("ejectAnswer");
    click("startOverButton");
    EXPECT_TRUE(reaches("selectTarget"));
}

TEST_F(RestoreTabTest, SongsChosenOneByOneShowTheSamplesTheyBringAndOnlyThoseGoBack) {
    const fs::path march = set / "backup-2026-03-01-100000";
    writeFile(march / "Songs/GIG.m8s", test::songWithSamples({"/Samples/kick.wav"}));
    writeFile(march / "Samples/pad.wav", "pad");
    ASSERT_NE(showTab(), nullptr);
    walkToVersions();
    click("nextButton");
    ASSERT_TRUE(reaches("selectFolders"));
    ASSERT_TRUE(processEventsUntil([&] { return !restore.isLoadingSongs(); }));

    screen->pressSpace(item("segment_folders"));
    ASSERT_TRUE(processEventsUntil([&] { return shows("folder_Samples"); }));
    screen->pressSpace(item("segment_individual"));
    ASSERT_TRUE(processEventsUntil([&] { return shows("song_Songs/GIG.m8s"); }));
    EXPECT_EQ(textOf("songSamples"), "+ /Samples/kick.wav");
    screen->pressSpace(item("folder_Instruments"));
    screen->pressSpace(item("folder_Samples"));
    screen->pressSpace(item("song_Songs/GIG.m8s"));
    EXPECT_TRUE(item("song_Songs/GIG.m8s")->property("checked").toBool());

    click("nextButton");
    ASSERT_TRUE(reaches("confirm"));
    click("nextButton");
    ASSERT_TRUE(reaches("previewDiff"));
    ASSERT_TRUE(processEventsUntil([&] { return shows("previewRows"); })) << textOf("previewError");
    EXPECT_EQ(textOf("diffCount_added", item("previewRows")), "ADDED (2)");  // the song and its sample
    click("nextButton");
    ASSERT_TRUE(reaches("done"));
    EXPECT_EQ(textOf("resultText"), "Restore complete.");
    EXPECT_TRUE(fs::exists(card.mountPath / "Songs/GIG.m8s"));
    EXPECT_EQ(test::readFile(card.mountPath / "Samples/kick.wav"), "kick");
    EXPECT_FALSE(fs::exists(card.mountPath / "Samples/pad.wav"));
    EXPECT_EQ(test::readFile(card.mountPath / "Songs/LIVE.m8s"), "on the card");
}

TEST_F(RestoreTabTest, AVersionGoneSinceItWasChosenEndsInItsOwnWords) {
    ASSERT_NE(showTab(), nullptr);
    walkToPreview();
    fs::remove_all(set / "backup-2026-03-01-100000");
    click("nextButton");
    ASSERT_TRUE(reaches("done"));
    EXPECT_EQ(textOf("resultText"), "Backup source no longer exists on disk.");
    EXPECT_EQ(textOf("resultBadge"), "FAILED");
}

TEST_F(RestoreTabTest, TheRunShowsItsProgressOnTheLcdPanelAndCanBeCancelled) {
    std::atomic<bool> printed = false;
    standIn = [&printed](const BackupOperation::LineHandler& onLine, std::stop_token token) {
        onLine("Songs/LIVE.m8s");
        onLine("         11 100%    0.00kB/s    0:00:00 (xfr#1, to-chk=3/4)");
        printed = true;
        std::mutex mutex;
        std::unique_lock lock(mutex);
        std::condition_variable_any().wait(lock, token, [] { return false; });  // until cancelled
        return 20;  // rsync's own status when it is stopped
    };
    ASSERT_NE(showTab(), nullptr);
    walkToPreview();
    click("nextButton");
    ASSERT_TRUE(reaches("running"));
    ASSERT_TRUE(processEventsUntil([&] { return printed && textOf("percent") == "25%"; }))
        << textOf("percent");
    EXPECT_EQ(textOf("filesRemaining"), "3");
    EXPECT_TRUE(item("runLcd")->property("running").toBool());
    EXPECT_TRUE(processEventsUntil([&] { return !restore.logLines().empty(); }));

    click("cancelRestoreButton");
    ASSERT_TRUE(reaches("done"));
    EXPECT_EQ(textOf("resultText"), "Restore was cancelled.");
    EXPECT_EQ(restore.logLines().back(), "Restore cancelled by user.");
}

TEST_F(RestoreTabTest, TheComparisonSheetComparesTwoVersionsAndSaysWhatIsMissing) {
    ASSERT_NE(showTab(), nullptr);
    walkToVersions();
    click("compareButton");
    ASSERT_TRUE(processEventsUntil([&] { return shows("comparisonSheet"); }));
    ComparisonViewModel& comparison = *comparisons.comparison();
    EXPECT_EQ(comparison.versionAIndex(), 0) << "the marked version over the one before it";
    EXPECT_EQ(comparison.versionBIndex(), 1);

    bool finished = false;
    QObject::connect(&comparison, &ComparisonViewModel::comparisonFinished, [&finished] { finished = true; });
    click("compareVersionsButton");
    ASSERT_TRUE(processEventsUntil([&] { return finished; }));
    ASSERT_TRUE(processEventsUntil([&] { return shows("comparisonRows"); })) << textOf("comparisonMessage");
    EXPECT_EQ(textOf("diffCount_added"), "ADDED (1)");
    EXPECT_EQ(textOf("diffCount_modified"), "MODIFIED (1)");
    EXPECT_EQ(textOf("diffCount_deleted"), "DELETED (0)");

    comparison.chooseVersionA(-1);
    click("compareVersionsButton");
    EXPECT_EQ(textOf("comparisonMessage"), "Select two versions to compare.");
    EXPECT_TRUE(shows("comparisonRows")) << "the earlier result stays beside the message";
    comparison.chooseVersionA(1);
    screen->pressKey(item("comparisonSheet"), Qt::Key_Return);
    EXPECT_EQ(textOf("comparisonMessage"), "Select two different versions.");

    screen->pressKey(item("comparisonSheet"), Qt::Key_Escape);
    EXPECT_EQ(comparisons.comparison(), nullptr);
    EXPECT_FALSE(shows("comparisonSheet"));
}

}  // namespace
}  // namespace tapekeep
