// The BACKUP screen's QML over a real controller and the tile model, in an offscreen window.

#include <gtest/gtest.h>

#include <QFile>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>

#include "BackupControllerFixture.h"
#include "ui/CardListModel.h"
#include "ui/M8Theme.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using test::waitFor;

class BackupTabTest : public test::BackupControllerFixture {
protected:
    BackupTabTest() {
        qmlRegisterSingletonInstance("Tapekeep.Controllers", 1, 0, "Theme", &theme);
        qmlRegisterSingletonInstance("Tapekeep.Controllers", 1, 0, "Settings", &settings);
        qmlRegisterSingletonInstance("Tapekeep.Controllers", 1, 0, "Backup", &backup);
        qmlRegisterSingletonInstance("Tapekeep.Controllers", 1, 0, "Cards", &cards);
    }

    // Loads the screen; the errors of a failed load are printed.
    bool showTab() { return show(QUrl(QStringLiteral("qrc:/qt/qml/Tapekeep/BackupTab.qml"))); }

    // Loads one part of a tile, given a stand-in for the tile's values.
    bool showPart(const QByteArray& source) {
        QFile file(QString::fromStdString((temp / "Part.qml").string()));
        if (!file.open(QIODevice::WriteOnly) || file.write(source) != source.size()) return false;
        file.close();
        return show(QUrl::fromLocalFile(file.fileName()));
    }

    bool show(const QUrl& source) {
        view.engine()->addImportPath(QStringLiteral("qrc:/qt/qml"));
        view.setResizeMode(QQuickView::SizeRootObjectToView);
        view.resize(1100, 700);
        view.setSource(source);
        for (const auto& error : view.errors()) ADD_FAILURE() << error.toString().toStdString();
        if (view.status() != QQuickView::Ready) return false;
        view.show();
        return true;
    }

    // Delegates of views are items without an object parent, so the search goes by visual children.
    static QQuickItem* find(QQuickItem* within, const QString& name) {
        if (within == nullptr) return nullptr;
        for (QQuickItem* child : within->childItems()) {
            if (child->objectName() == name) return child;
            if (QQuickItem* found = find(child, name)) return found;
        }
        return nullptr;
    }
    static std::string textOf(QQuickItem* within, const QString& name) {
        QQuickItem* item = find(within, name);
        return item == nullptr ? std::string() : item->property("text").toString().toStdString();
    }
    static bool shows(QQuickItem* within, const QString& name) {
        auto* item = find(within, name);
        return item != nullptr && item->isVisible();
    }

    M8Theme theme{settings, [] { return true; }};
    BackupViewModel backup{settings, baseDependencies()};
    CardListModel cards{backup};
    QQuickView view;
};

TEST_F(BackupTabTest, TheScreenShowsWhatTheScanFoundAndEachCardsNameStateAndFreshness) {
    ASSERT_TRUE(showTab());
    QQuickItem* root = view.rootObject();
    EXPECT_TRUE(shows(root, "noCardPanel"));
    EXPECT_EQ(textOf(root, "noCardTitle"), "NO CARD");

    test::writeFile(temp / "volumes/PHOTOS/holiday.jpg", "not a song");  // a disk that is no M8 card
    volumes.add(temp / "volumes/PHOTOS", "76FA-7D45-0000-0F07");
    scan(backup);
    EXPECT_TRUE(waitFor([&] { return shows(root, "scanSummary"); }));
    EXPECT_EQ(textOf(root, "scanSummary"), "1 volume examined, 1 excluded: no M8 card among them.");

    const SDCard card = addCard("M8CARD", "76FA-7D45-0000-00C1");
    scan(backup);
    const QString tileName = "cardTile_" + QString::fromStdString(card.diskUtilUUID);
    ASSERT_TRUE(waitFor([&] { return find(root, tileName) != nullptr; }));
    QQuickItem* tile = find(root, tileName);
    EXPECT_FALSE(shows(root, "noCardPanel"));
    EXPECT_EQ(textOf(tile, "volumeName"), "M8CARD");
    EXPECT_EQ(textOf(tile, "shortUuid"), "000-00C1");
    EXPECT_TRUE(shows(tile, "backUpButton"));
    EXPECT_TRUE(waitFor([&] { return textOf(tile, "freshnessBadge") == "NO BACKUP YET"; }))
        << textOf(tile, "freshnessBadge");

    // Nothing chosen in the options sheet: the run is refused, and the tile says why.
    backup.prepareBackup(card);
    ASSERT_TRUE(waitFor([&] { return !backup.cardFolders(card.diskUtilUUID).empty(); }));
    ASSERT_TRUE(waitFor([&] { return shows(tile, "optionsSheet"); }));
    for (const auto& folder : backup.cardFolders(card.diskUtilUUID))
        backup.setFolderSelected(card.diskUtilUUID, folder.name, false);
    backup.startBackup(card);
    EXPECT_TRUE(waitFor([&] { return textOf(tile, "stateMessage") == "Nothing selected to back up."; }))
        << textOf(tile, "stateMessage");
    EXPECT_TRUE(shows(tile, "showLogButton"));
}

TEST_F(BackupTabTest, TheRunAndTheCountdownShowTheirReadingsOnTheLcdPanel) {
    ASSERT_TRUE(showPart(R"(
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
        })"));
    QQuickItem* root = view.rootObject();
    EXPECT_EQ(textOf(root, "percent"), "42%");
    EXPECT_EQ(textOf(root, "filesRemaining"), "15");
    EXPECT_EQ(textOf(root, "elapsed"), "1:05");
    ASSERT_NE(find(root, "runLcd"), nullptr);
    EXPECT_TRUE(find(root, "runLcd")->property("running").toBool());
    EXPECT_TRUE(shows(root, "scanLine"));
    EXPECT_TRUE(shows(root, "cancelRunButton"));
    EXPECT_EQ(textOf(root, "secondsLeft"), "7 s");
    EXPECT_TRUE(shows(root, "cancelCountdownButton"));
}

}  // namespace
}  // namespace tapekeep
