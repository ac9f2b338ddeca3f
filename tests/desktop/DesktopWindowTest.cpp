#include <gtest/gtest.h>

#include <QMetaProperty>
#include <QQuickItem>
#include <QQuickWindow>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "CliProcess.h"
#include "DesktopSession.h"
#include "FrameClock.h"
#include "RsyncScripts.h"
#include "TempDir.h"
#include "app/AppSettings.h"
#include "ui/DesktopApplication.h"
#include "ui/EditSheets.h"
#include "ui/M8Palette.h"
#include "ui/M8Theme.h"
#include "workflows/BackupViewModel.h"
#include "workflows/BrowseSessionViewModel.h"
#include "workflows/EditQueueViewModel.h"
#include "workflows/RestoreViewModel.h"
#include "workflows/StageSheetViewModel.h"

namespace tapekeep::test {
namespace {
namespace fs = std::filesystem;

class DesktopWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (auto why = DesktopSession::unavailable()) GTEST_SKIP() << "no virtual display: " << *why;
    }

    static CardState stateOf(DesktopSession& session, const SDCard& card) {
        return session.app().backup().cardState(card.diskUtilUUID);
    }
};

// The name of the palette's colour that equals `colour`, or null.
const char* paletteFieldOf(const QColor& colour, const M8Palette& palette) {
    const QMetaObject& meta = M8Palette::staticMetaObject;
    for (int index = meta.propertyOffset(); index < meta.propertyCount(); ++index)
        if (meta.property(index).readOnGadget(&palette).value<QColor>() == colour)
            return meta.property(index).name();
    return nullptr;
}

QColor paletteColour(const M8Palette& palette, const char* field) {
    const QMetaObject& meta = M8Palette::staticMetaObject;
    return meta.property(meta.indexOfProperty(field)).readOnGadget(&palette).value<QColor>();
}

// The accent's colour where the current tab's underline is drawn.
QColor underlineColour(DesktopSession& session) {
    QQuickItem* tab = session.item("tab_settings");
    if (tab == nullptr) return {};
    const QPointF point = tab->mapToScene(QPointF(tab->width() / 2, tab->height() - 1));
    const qreal ratio = session.window().devicePixelRatio();
    return session.grab().pixelColor(static_cast<int>(point.x() * ratio),
                                     static_cast<int>(point.y() * ratio));
}

// How wide the word mark is drawn: the columns of the header that hold the accent colour.
int wordMarkWidth(DesktopSession& session) {
    QQuickItem* mark = session.item("wordMark");
    if (mark == nullptr) return 0;
    const QImage image = session.grab();
    const QColor accent = session.app().theme().accent();
    const QRectF area = mark->mapRectToScene(QRectF(0, 0, mark->width(), mark->height()));
    int first = -1, last = -1;
    for (int x = 0; x < image.width() && x < 600; ++x)
        for (int y = static_cast<int>(area.top()); y < static_cast<int>(area.bottom()) && y < image.height();
             ++y)
            if (image.pixelColor(x, y) == accent) {
                if (first < 0) first = x;
                last = x;
                break;
            }
    return first < 0 ? 0 : last - first + 1;
}

TEST_F(DesktopWindowTest, ShowsTheDemoCardIdleInOptionsRunningAndAfterSuccess) {
    TempDir tools;
    DesktopSession session(gatedRsync(tools.path()));
    const SDCard card = session.demoCard();
    BackupViewModel& backup = session.app().backup();

    ASSERT_TRUE(session.waitFor([&] { return backup.cardFreshness(card.diskUtilUUID).has_value(); }));
    ASSERT_TRUE(session.waitFor([&] { return session.shows("NO BACKUP YET"); }));
    session.settle();
    session.screenshot("backup-idle");
    EXPECT_TRUE(session.shows("M8DEMO"));
    EXPECT_TRUE(session.shows("BACK UP"));
    EXPECT_TRUE(session.shows("CONNECTED \u2022 READY"));

    backup.prepareBackup(card);
    ASSERT_TRUE(session.waitFor([&] { return backup.folderSizesLoaded(card.diskUtilUUID); }));
    ASSERT_TRUE(session.waitFor([&] { return session.shows("START"); }));
    session.settle();
    session.screenshot("backup-options");
    EXPECT_TRUE(session.shows("Songs"));

    backup.startBackup(card);
    ASSERT_TRUE(session.waitFor([&] { return fs::exists(tools / "started"); }));
    ASSERT_TRUE(session.waitFor([&] { return session.shows("CANCEL"); }));
    session.settle();
    session.screenshot("backup-running");
    EXPECT_EQ(stateOf(session, card).kind, CardState::Kind::running);

    writeFile(tools / "gate", "");
    ASSERT_TRUE(session.waitFor([&] { return stateOf(session, card).kind == CardState::Kind::success; }));
    ASSERT_TRUE(session.waitFor([&] { return session.shows("UP TO DATE"); }));
    session.settle();
    session.screenshot("backup-success");
    EXPECT_TRUE(session.shows(QString::fromStdString(stateOf(session, card).message)));
    EXPECT_TRUE(session.shows("SHOW LOG"));
}

TEST_F(DesktopWindowTest, SettingsRepaintTheRenderedWindowWithoutARestart) {
    DesktopSession session;
    AppSettings& settings = session.app().settings();
    settings.setMainTab("settings");
    settings.setAppearance("dark");
    session.settle();
    session.screenshot("settings-dark");
    const QColor darkCorner = session.grab().pixelColor(2, session.grab().height() - 2);
    const char* field = paletteFieldOf(darkCorner, M8Palette::dark());
    ASSERT_NE(field, nullptr) << "the window is drawn in the dark palette";

    settings.setAppearance("light");
    session.settle();
    session.screenshot("settings-light");
    EXPECT_EQ(session.grab().pixelColor(2, session.grab().height() - 2),
              paletteColour(M8Palette::light(), field))
        << "the same surface in the light palette (" << field << ")";

    settings.setM8Accent("pink");
    session.settle();
    EXPECT_EQ(underlineColour(session), QColor(0xFF3A82));
    settings.setM8Accent("lime");
    session.settle();
    EXPECT_EQ(underlineColour(session), QColor(0xB8FF3A));

    settings.setM8TypeScale("md");
    session.settle();
    const int regular = wordMarkWidth(session);
    settings.setM8TypeScale("xl");
    session.settle();
    const int large = wordMarkWidth(session);
    EXPECT_GT(regular, 0);
    EXPECT_GT(large, regular * 11 / 10)
        << "the word mark grows with the type scale (" << regular << " to " << large << " pixels)";
}

TEST_F(DesktopWindowTest, OneBackupOfACardAtATimeAcrossTheWindowAndTheCommandLine) {
    TempDir tools;
    DesktopSession session(gatedRsync(tools.path()));
    const SDCard card = session.demoCard();
    BackupViewModel& backup = session.app().backup();

    // The window holds the card: the command line is refused and leaves the run alone.
    backup.startBackup(card);
    ASSERT_TRUE(session.waitFor([&] { return fs::exists(tools / "started"); }));
    const CliResult refused = runCli(session.home(), {"--demo", "backup", "M8DEMO"});
    EXPECT_NE(refused.status, 0);
    EXPECT_NE(refused.err.find("backup in progress on this card"), std::string::npos) << refused.err;
    writeFile(tools / "gate", "");
    ASSERT_TRUE(session.waitFor([&] { return stateOf(session, card).kind == CardState::Kind::success; }));

    // The command line holds the card: the window is refused with the same words.
    fs::remove(tools / "gate");
    fs::remove(tools / "started");
    CliProcess cli(session.home(),
                   {"--demo", "--rsync", (tools / "rsync-gated").string(), "backup", "M8DEMO"});
    ASSERT_TRUE(session.waitFor([&] { return fs::exists(tools / "started"); }));
    backup.startBackup(card);
    ASSERT_TRUE(session.waitFor([&] { return stateOf(session, card).kind == CardState::Kind::failed; }));
    EXPECT_EQ(stateOf(session, card).message, "Cannot start backup — backup in progress on this card.");
    ASSERT_TRUE(session.waitFor([&] { return session.shows("backup in progress on this card"); }));
    session.screenshot("backup-refused");
    writeFile(tools / "gate", "");
    EXPECT_EQ(cli.waitAtMost(std::chrono::seconds(60)), 0) << cli.err();
}

// The RESTORE screen over the demo card's first backup: its versions, the preview of a restore to
// a card that has changed since, and the result.
TEST_F(DesktopWindowTest, ShowsTheRestoreWizardFromTheVersionsToTheResult) {
    DesktopSession session;
    const SDCard card = session.demoCard();
    BackupViewModel& backup = session.app().backup();
    RestoreViewModel& restore = session.app().restore();
    backup.startBackup(card);
    ASSERT_TRUE(session.waitFor([&] { return stateOf(session, card).kind == CardState::Kind::success; }))
        << stateOf(session, card).message;
    fs::remove_all(card.mountPath / "Samples");  // what the restore will bring back

    session.app().settings().setMainTab("restore");
    ASSERT_TRUE(
        session.waitFor([&] { return !restore.availableSets().empty() && !restore.isLoadingTargets(); }));
    ASSERT_TRUE(session.waitFor([&] { return session.shows("M8DEMO"); }));
    session.settle();
    session.screenshot("restore-target");
    restore.selectTarget(0);
    restore.selectSet(0);
    ASSERT_TRUE(session.waitFor([&] { return !restore.isLoadingVersionSizes(); }));
    ASSERT_TRUE(session.waitFor([&] { return session.shows("LATEST"); }));
    session.settle();
    session.screenshot("restore-version");

    restore.selectVersion(0);
    ASSERT_TRUE(session.waitFor([&] { return !restore.isLoadingSongs(); }));
    restore.confirmSelection();
    restore.loadPreview();
    ASSERT_TRUE(session.waitFor([&] { return restore.diffResult().has_value(); })) << *restore.previewError();
    ASSERT_TRUE(session.waitFor([&] { return session.shows("RESTORE"); }));
    session.settle();
    session.screenshot("restore-preview");
    EXPECT_FALSE(restore.diffResult()->empty());

    restore.startRestore();
    ASSERT_TRUE(session.waitFor([&] { return restore.step().kind == RestoreStep::Kind::done; }));
    ASSERT_TRUE(session.waitFor([&] { return session.shows("START OVER"); }));
    session.settle();
    session.screenshot("restore-done");
    EXPECT_TRUE(session.shows("Restore complete.")) << restore.step().error.value_or("");
    EXPECT_TRUE(fs::exists(card.mountPath / "Samples"));
}

// The BROWSE screen, open before there is any backup, lists the version a backup publishes, and
// shows a song of it with its instruments, which it copies back to the card, and a sample it names.
TEST_F(DesktopWindowTest, BrowseListsTheVersionABackupPublishedAndPreviewsASongOfIt) {
    DesktopSession session;
    const SDCard card = session.demoCard();
    BrowseSessionViewModel& browse = session.app().browse();
    session.app().settings().setMainTab("browse");
    ASSERT_TRUE(session.waitFor([&] { return session.shows("No backups yet."); }));

    session.app().backup().startBackup(card);
    ASSERT_TRUE(session.waitFor([&] { return browse.availableSets().size() == 1; }));
    const BackupSet set = browse.availableSets()[0];
    ASSERT_EQ(set.versions.size(), 1u);
    browse.toggleSet(QString::fromStdString(set.folderName));
    browse.selectVersion(QString::fromStdString(set.folderName),
                         QString::fromStdString(set.versions[0].folderName));
    ASSERT_TRUE(session.waitFor([&] { return browse.browser()->isTreeLoaded(); }));
    browse.activateEntry("Songs");
    browse.activateEntry("NIGHTDRIVE.m8s");
    ASSERT_TRUE(session.waitFor([&] { return session.shows("98.5 BPM"); }));
    session.settle();
    session.screenshot("browse-song");
    EXPECT_TRUE(session.shows("LATEST"));
    EXPECT_TRUE(session.shows("/Samples/Synth/pad c3.wav"));
    EXPECT_TRUE(session.shows("COPY TO CARD"));

    // The song goes back to the card it came from, checked by the card's UUID on the way.
    browse.copyToCard();
    EXPECT_TRUE(session.waitFor([&] { return session.shows("Copied NIGHTDRIVE.m8s successfully!"); }));

    // A sample the song names shows what the file is, read from the backup.
    browse.previewSample("/Samples/Synth/pad c3.wav");
    ASSERT_TRUE(session.waitFor([&] { return session.shows("44.1 kHz"); }));
    EXPECT_TRUE(session.shows("Mono"));
    EXPECT_TRUE(session.shows("16-bit"));
    EXPECT_TRUE(session.shows("SAVE TRIMMED\u2026"));
    session.settle();
    session.screenshot("browse-sample");
}

// The BROWSE screen's edit sheets over a backup of the demo card: the pending edits sheet of a set
// without edits, the stage sheet of a sample a song uses, and the staged trim in the pending edits
// sheet, checked against the card.
TEST_F(DesktopWindowTest, BrowseStagesATrimAndListsItAsAPendingEdit) {
    DesktopSession session;
    const SDCard card = session.demoCard();
    BrowseSessionViewModel& browse = session.app().browse();
    EditSheets& sheets = session.app().editSheets();
    session.app().settings().setMainTab("browse");
    session.app().backup().startBackup(card);
    ASSERT_TRUE(session.waitFor([&] { return browse.availableSets().size() == 1; }));
    const BackupSet set = browse.availableSets()[0];
    const QString setFolder = QString::fromStdString(set.folderName);
    browse.toggleSet(setFolder);
    browse.selectVersion(setFolder, QString::fromStdString(set.versions[0].folderName));
    ASSERT_TRUE(session.waitFor([&] {
        const QQuickItem* button = session.item("pendingEditsButton");
        return button != nullptr && button->isVisible();
    }));
    EXPECT_EQ(EditSheets::setFolderOf(browse.selectedVersionIDText()), setFolder);

    sheets.openPendingEdits(setFolder);
    int loads = 0;
    QObject::connect(sheets.pendingEdits(), &EditQueueViewModel::loadFinished, [&loads] { ++loads; });
    ASSERT_TRUE(session.waitFor([&] { return loads > 0 && !sheets.pendingEdits()->isLoading(); }));
    session.settle();
    EXPECT_TRUE(session.shows("NO PENDING EDITS"));
    session.settle();
    session.screenshot("browse-no-pending-edits");

    // A sample the song names, on show in the preview, staged through its STAGE TRIM… button.
    ASSERT_TRUE(
        session.waitFor([&] { return browse.browser() != nullptr && browse.browser()->isTreeLoaded(); }));
    browse.activateEntry("Songs");
    browse.activateEntry("NIGHTDRIVE.m8s");
    browse.previewSample("/Samples/Synth/pad c3.wav");
    ASSERT_TRUE(session.waitFor([&] {
        const QQuickItem* button = session.item("stageTrimButton");
        return button != nullptr && button->isVisible() && button->isEnabled();
    }));
    QMetaObject::invokeMethod(session.item("stageTrimButton"), "clicked");
    ASSERT_TRUE(session.waitFor([&] { return session.shows("USE THIS SAMPLE — OVERWRITE MAY BREAK:"); }));
    EXPECT_TRUE(session.shows("/Songs/NIGHTDRIVE.m8s"));
    StageSheetViewModel* stage = sheets.stageSheet();
    ASSERT_NE(stage, nullptr);
    EXPECT_EQ(stage->targetText(), "/Samples/Synth/pad c3_trim.wav");
    stage->setLow(stage->duration() / 4);
    session.settle();
    session.screenshot("browse-stage-sheet");
    stage->stage();
    ASSERT_TRUE(session.waitFor([&] { return sheets.stageSheet() == nullptr; }));

    ASSERT_TRUE(session.waitFor([&] { return session.shows("LIVE SCAN MATCHES MANIFEST"); }));
    EXPECT_TRUE(session.shows("/Samples/Synth/pad c3.wav  →  /Samples/Synth/pad c3_trim.wav"));
    EXPECT_FALSE(session.shows("NO PENDING EDITS"));

    // APPLY asks first, with the queue's words for what the selected edits do to the card.
    EditQueueViewModel* queue = sheets.pendingEdits();
    queue->selectAll(true);
    ASSERT_TRUE(session.waitFor([&] { return session.item("applyEditsButton")->isEnabled(); }));
    session.settle();
    session.screenshot("browse-pending-edits");
    QMetaObject::invokeMethod(session.item("applyEditsButton"), "clicked");
    auto* confirmation = session.item("pendingEditsSheet")->findChild<QObject*>("applyAlert");
    ASSERT_NE(confirmation, nullptr);
    ASSERT_TRUE(session.waitFor([&] { return confirmation->property("visible").toBool(); }));
    EXPECT_EQ(confirmation->property("title").toString(), "Apply pending edits?");
    EXPECT_EQ(confirmation->property("text").toString(),
              "The selected edits will be written to the SD card. This cannot be undone.");
    bool applied = false;
    QObject::connect(queue, &EditQueueViewModel::applyFinished, [&applied] { applied = true; });
    QMetaObject::invokeMethod(confirmation, "press", Q_ARG(QVariant, "Apply"));
    ASSERT_TRUE(session.waitFor([&] { return applied; }));
    EXPECT_TRUE(fs::exists(card.mountPath / "Samples/Synth/pad c3_trim.wav"))
        << queue->loadError().value_or("");
    session.settle();
    EXPECT_TRUE(session.shows("NO PENDING EDITS"));
}

// The GUI thread keeps drawing while rsync's lines pour in; the worst interval between two frames
// is reported (bench/desktop_frames records it against its goal).
TEST_F(DesktopWindowTest, TheWindowKeepsDrawingWhileABackupPrintsAHundredThousandLines) {
    TempDir tools;
    DesktopSession session(chattyRsync(tools.path(), 100'000));
    const SDCard card = session.demoCard();
    BackupViewModel& backup = session.app().backup();
    ASSERT_TRUE(session.waitFor([&] { return backup.cardFreshness(card.diskUtilUUID).has_value(); }));

    FrameClock clock(session.window());
    backup.startBackup(card);
    ASSERT_TRUE(session.waitFor([&] { return stateOf(session, card).kind == CardState::Kind::success; }))
        << stateOf(session, card).message;
    clock.stop();

    const auto log = backup.cardLog(card.diskUtilUUID);
    EXPECT_TRUE(std::any_of(log.begin(), log.end(), [](const std::string& line) {
        return line.find("loop100000.wav") != std::string::npos;
    })) << "the last of the lines reached the card's log";
    EXPECT_GT(clock.frames(), 10U) << "the window went on drawing during the run";
    RecordProperty("worstFrameIntervalMs", static_cast<int>(clock.worstInterval().count()));
    std::printf("worst frame interval during 100,000 lines: %lld ms over %zu frames\n",
                static_cast<long long>(clock.worstInterval().count()), clock.frames());
}

}  // namespace
}  // namespace tapekeep::test
