#include <gtest/gtest.h>

#include <QQuickItem>

#include <memory>

#include "GuiTestApplication.h"
#include "QuickScreen.h"
#include "TempDir.h"
#include "app/AppSettings.h"
#include "ui/M8Theme.h"

namespace tapekeep {
namespace {

namespace fs = std::filesystem;

// The SETTINGS screen in a window of its own, over settings in a temporary file.
class SettingsTabTest : public ::testing::Test {
protected:
    bool applicationReady = (test::ensureGuiApplication(), true);
    test::TempDir temp;
    fs::path file = temp / "config/tapekeep/settings.json";
    std::unique_ptr<SettingsStore> store;
    std::unique_ptr<AppSettings> settings;
    std::unique_ptr<M8Theme> theme;
    std::unique_ptr<test::QuickScreen> screen;

    void TearDown() override { screen.reset(); }

    void load() {
        store = std::make_unique<SettingsStore>(file);
        settings = std::make_unique<AppSettings>(*store,
                                                 [] { return std::optional<std::string>("/usr/bin/rsync"); });
        theme = std::make_unique<M8Theme>(*settings, [] { return true; });
        screen = std::make_unique<test::QuickScreen>();
        screen->provide("Settings", settings.get());
        screen->provide("Theme", theme.get());
        ASSERT_NE(screen->load(QUrl(QStringLiteral("qrc:/qt/qml/Tapekeep/SettingsTab.qml"))), nullptr)
            << screen->errors().toStdString();
    }

    QQuickItem* item(const char* name, QQuickItem* within = nullptr) {
        QQuickItem* found = screen->find(QString::fromLatin1(name), within);
        EXPECT_NE(found, nullptr) << name;
        return found;
    }
    void click(const char* name) { screen->click(item(name)); }
};

TEST_F(SettingsTabTest, TheAccentChosenWithASwatchRepaintsTheScreenAtOnce) {
    load();
    click("nav_appearance");
    ASSERT_TRUE(item("section_appearance")->isVisible());
    QQuickItem* sample = item("sampleAccent");
    EXPECT_EQ(screen->drawnColour(sample), QColor(0xFF3A82));  // pink

    click("swatch_lime");
    EXPECT_EQ(settings->m8Accent(), "lime");
    EXPECT_EQ(theme->accent(), QColor(0xB8FF3A));
    EXPECT_EQ(screen->drawnColour(sample), QColor(0xB8FF3A));
    EXPECT_EQ(screen->drawnColour(item("navMarker", item("nav_appearance"))), QColor(0xB8FF3A));

    screen->pressSpace(item("swatch_amber"));  // the swatches are reached from the keyboard too
    EXPECT_EQ(settings->m8Accent(), "amber");
    EXPECT_EQ(screen->drawnColour(sample), QColor(0xFFB23A));
}

TEST_F(SettingsTabTest, TheControlsWriteTheSettingsTheyShow) {
    load();
    click("nav_appearance");
    click("segment_light");
    EXPECT_EQ(settings->appearance(), "light");
    EXPECT_EQ(screen->drawnColour(item("appearanceSample")), QColor(0xEDE9DE));  // the light LCD surface

    click("nav_storage");
    // What the folder chooser hands back is a file URL, stored as a path and shown again as a URL.
    const QString chosen = QString::fromStdString((temp / "M8 backups #1 100%").string());
    QMetaObject::invokeMethod(screen->root(), "useBackupFolder",
                              Q_ARG(QVariant, QUrl::fromLocalFile(chosen)));
    EXPECT_EQ(settings->backupBaseDirPath(), chosen);
    QObject* folderDialog = screen->root()->findChild<QObject*>("folderDialog");
    ASSERT_NE(folderDialog, nullptr);
    EXPECT_EQ(folderDialog->property("currentFolder").toUrl(), QUrl::fromLocalFile(chosen));
    screen->click(item("increase", item("keepCount")));
    EXPECT_EQ(settings->keepCount(), 6);
    click("rotateBackups");
    EXPECT_FALSE(settings->rotateBackups());
    EXPECT_FALSE(item("rotateBackups")->property("isOn").toBool());

    click("nav_system");
    screen->pressSpace(item("askToEjectOnQuit"));
    EXPECT_FALSE(settings->askToEjectOnQuit());

    click("nav_notifications");
    screen->pressKey(item("completionSoundName"), Qt::Key_Down);  // the next sound, without opening the list
    EXPECT_EQ(settings->completionSoundName(), "Basso");
    click("nav_backup");
    screen->pressKey(item("segment_flag"), Qt::Key_Right);  // disabled while verification is off
    EXPECT_EQ(settings->verifyMismatchActionRaw(), "flag");
    click("verifyAfterBackup");
    screen->pressKey(item("segment_flag"), Qt::Key_Right);
    EXPECT_EQ(settings->verifyMismatchActionRaw(), "abort");
}

TEST_F(SettingsTabTest, ADamagedSettingsFileIsShownWithItsPathAndAChangeDoesNotOverwriteIt) {
    const std::string damaged = "{\"keepCount\": 3,";
    test::writeFile(file, damaged);
    load();
    QQuickItem* problem = item("settingsStoreProblem");
    ASSERT_TRUE(problem->isVisible());
    const QString text = item("storeProblemText")->property("text").toString();
    EXPECT_TRUE(text.contains("Settings file is damaged: " + QString::fromStdString(file.string())))
        << text.toStdString();

    click("rotateBackups");
    EXPECT_EQ(test::readFile(file), damaged);
    EXPECT_TRUE(item("rotateBackups")->property("isOn").toBool());  // the switch shows what is kept

    test::writeFile(file, "{}");  // mended outside; the screen looks again when it is shown
    screen->root()->setVisible(false);
    screen->root()->setVisible(true);
    EXPECT_FALSE(problem->isVisible());
}

}  // namespace
}  // namespace tapekeep
