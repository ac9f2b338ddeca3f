// The BACKUP screen's QML over a real controller and the tile model, in a window of its own.

#include <gtest/gtest.h>

#include <QQuickItem>

#include <memory>

#include "BackupControllerFixture.h"
#include "QuickScreen.h"
#include "ui/CardListModel.h"
#include "ui/M8Theme.h"

namespace tapekeep {
namespace {
using test::processEventsUntil;

class BackupTabTest : public test::BackupControllerFixture {
protected:
    BackupTabTest() {
        screen->provide("Settings", &settings);
        screen->provide("Theme", &theme);
        screen->provide("Backup", &backup);
        screen->provide("Cards", &cards);
    }
    void TearDown() override { screen.reset(); }

    // Loads the screen, or one part of a tile given QML text; the errors of a failed load are printed.
    QQuickItem* showTab() {
        return shown(screen->load(QUrl(QStringLiteral("qrc:/qt/qml/Tapekeep/BackupTab.qml"))));
    }
    QQuickItem* showPart(const QByteArray& source) { return shown(screen->loadText(source)); }
    QQuickItem* shown(QQuickItem* root) {
        EXPECT_NE(root, nullptr) << screen->errors().toStdString();
        return root;
    }

    std::string textOf(QQuickItem* within, const char* name) const {
        QQuickItem* item = screen->find(QString::fromLatin1(name), within);
        return item == nullptr ? std::string() : item->property("text").toString().toStdString();
    }
    bool shows(QQuickItem* within, const char* name) const {
        QQuickItem* item = screen->find(QString::fromLatin1(name), within);
        return item != nullptr && item->isVisible();
    }

    M8Theme theme{settings, [] { return true; }};
    BackupViewModel backup{settings, baseDependencies()};
    CardListModel cards{backup};
    std::unique_ptr<test::QuickScreen> screen = std::make_unique<test::QuickScreen>();
};

TEST_F(BackupTabTest, TheScreenShowsWhatTheScanFoundAndEachCardsNameStateAndFreshness) {
    QQuickItem* root = showTab();
    ASSERT_NE(root, nullptr);
    EXPECT_TRUE(shows(root, "noCardPanel"));
    EXPECT_EQ(textOf(root, "noCardTitle"), "NO CARD");

    test::writeFile(temp / "volumes/PHOTOS/holiday.jpg", "not a song");  // a disk that is no M8 card
    volumes.add(temp / "volumes/PHOTOS", "76FA-7D45-0000-0F07");
    scan(backup);
    EXPECT_TRUE(processEventsUntil([&] { return shows(root, "scanSummary"); }));
    EXPECT_EQ(textOf(root, "scanSummary"), "1 volume examined, 1 excluded: no M8 card among them.");

    const SDCard card = addCard("M8CARD", "76FA-7D45-0000-00C1");
    scan(backup);
    const QString tileName = "cardTile_" + QString::fromStdString(card.diskUtilUUID);
    ASSERT_TRUE(processEventsUntil([&] { return screen->find(tileName) != nullptr; }));
    QQuickItem* tile = screen->find(tileName);
    EXPECT_FALSE(shows(root, "noCardPanel"));
    EXPECT_EQ(textOf(tile, "volumeName"), "M8CARD");
    EXPECT_EQ(textOf(tile, "shortUuid"), "000-00C1");
    EXPECT_TRUE(shows(tile, "backUpButton"));
    EXPECT_TRUE(processEventsUntil([&] { return textOf(tile, "freshnessBadge") == "NO BACKUP YET"; }))
        << textOf(tile, "freshnessBadge");

    // Nothing chosen in the options sheet: the run is refused, and the tile says why.
    backup.prepareBackup(card);
    ASSERT_TRUE(processEventsUntil([&] { return !backup.cardFolders(card.diskUtilUUID).empty(); }));
    ASSERT_TRUE(processEventsUntil([&] { return shows(tile, "optionsSheet"); }));
    for (const auto& folder : backup.cardFolders(card.diskUtilUUID))
        backup.setFolderSelected(card.diskUtilUUID, folder.name, false);
    backup.startBackup(card);
    EXPECT_TRUE(processEventsUntil([&] {
        return textOf(tile, "stateMessage") == "Nothing selected to back up.";
    })) << textOf(tile, "stateMessage");
    EXPECT_TRUE(shows(tile, "showLogButton"));
}

TEST_F(BackupTabTest, TheRunAndTheCountdownShowTheirReadingsOnTheLcdPanel) {
    QQuickItem* root = showPart(R"(
        import QtQuick
        import Tapekeep
        Column {
            width: 900
            QtObject {
                id: stand
                property string uuid: "76FA-7D45-0000-00C1"
                property var percent: 42
                property var progress: 0.42
                property var filesRemaining: 15
                property string elapsed: "1:05"
                property var recentLog: ["Samples/kick.wav", "Samples/snare.wav"]
                property bool showingLog: false
                property int secondsLeft: 7
            }
            CardRunPanel { width: 900; tile: stand }
            CardCountdownPanel { width: 900; tile: stand }
        })");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(textOf(root, "percent"), "42%");
    EXPECT_EQ(textOf(root, "filesRemaining"), "15");
    EXPECT_EQ(textOf(root, "elapsed"), "1:05");
    ASSERT_NE(screen->find(QStringLiteral("runLcd")), nullptr);
    EXPECT_TRUE(screen->find(QStringLiteral("runLcd"))->property("running").toBool());
    EXPECT_TRUE(shows(root, "scanLine"));
    EXPECT_TRUE(shows(root, "cancelRunButton"));
    EXPECT_EQ(textOf(root, "secondsLeft"), "7 s");
    EXPECT_TRUE(shows(root, "cancelCountdownButton"));
}

}  // namespace
}  // namespace tapekeep
