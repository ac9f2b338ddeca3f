#include <gtest/gtest.h>

#include <QQuickItem>
#include <QQuickWindow>

#include <filesystem>

#include "CliProcess.h"
#include "DesktopSession.h"
#include "TempDir.h"
#include "app/AppSettings.h"
#include "ui/DesktopApplication.h"
#include "ui/M8Theme.h"
#include "workflows/BackupViewModel.h"

namespace tapekeep::test {
namespace {
namespace fs = std::filesystem;

class DesktopWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (auto why = DesktopSession::unavailable()) GTEST_SKIP() << "no virtual display: " << *why;
    }

    // An rsync that waits before each transfer until `gate` exists (and says through `started`
    // that a transfer is waiting), so that a test sees a run while it holds the card.
    static fs::path gatedRsync(const TempDir& folder) {
        const fs::path script = folder / "rsync-gated";
        writeFile(script, "#!/bin/sh\n"
                          "case \" $* \" in *\" --version \"*) exec rsync \"$@\";; esac\n"
                          "touch '" + (folder / "started").string() + "'\n"
                          "while [ ! -e '" + (folder / "gate").string() + "' ]; do sleep 0.05; done\n"
                          "exec rsync \"$@\"\n");
        fs::permissions(script, fs::perms::owner_all);
        return script;
    }

    static CardState stateOf(DesktopSession& session, const SDCard& card) {
        return session.app().backup().cardState(card.diskUtilUUID);
    }
};

// The accent's colour where the current tab's underline is drawn.
QColor underlineColour(DesktopSession& session) {
    QQuickItem* tab = session.item("tab_settings");
    if (tab == nullptr) return {};
    const QPointF point = tab->mapToScene(QPointF(tab->width() / 2, tab->height() - 1));
    const qreal ratio = session.window().devicePixelRatio();
    return session.grab().pixelColor(static_cast<int>(point.x() * ratio), static_cast<int>(point.y() * ratio));
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
        for (int y = static_cast<int>(area.top()); y < static_cast<int>(area.bottom()) && y < image.height(); ++y)
            if (image.pixelColor(x, y) == accent) {
                if (first < 0) first = x;
                last = x;
                break;
            }
    return first < 0 ? 0 : last - first + 1;
}

TEST_F(DesktopWindowTest, ShowsTheDemoCardIdleInOptionsRunningAndAfterSuccess) {
    TempDir tools;
    DesktopSession session(gatedRsync(tools));
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
    EXPECT_EQ(session.grab().pixelColor(2, session.grab().height() - 2), session.app().theme().palette().bgVoid)
        << "the window's far corner is the dark palette's void";

    settings.setAppearance("light");
    session.settle();
    session.screenshot("settings-light");
    EXPECT_EQ(session.app().theme().palette().bgVoid, QColor(0xE8E4DC));
    EXPECT_NE(session.grab().pixelColor(2, 60), M8Palette::dark().bg0);

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
    EXPECT_GT(large, regular * 11 / 10) << "the word mark grows with the type scale (" << regular << " to "
                                        << large << " pixels)";
}

TEST_F(DesktopWindowTest, OneBackupOfACardAtATimeAcrossTheWindowAndTheCommandLine) {
    TempDir tools;
    DesktopSession session(gatedRsync(tools));
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
    CliProcess cli(session.home(), {"--demo", "--rsync", (tools / "rsync-gated").string(), "backup", "M8DEMO"});
    ASSERT_TRUE(session.waitFor([&] { return fs::exists(tools / "started"); }));
    backup.startBackup(card);
    ASSERT_TRUE(session.waitFor([&] { return stateOf(session, card).kind == CardState::Kind::failed; }));
    EXPECT_EQ(stateOf(session, card).message, "Cannot start backup — backup in progress on this card.");
    ASSERT_TRUE(session.waitFor([&] { return session.shows("backup in progress on this card"); }));
    session.screenshot("backup-refused");
    writeFile(tools / "gate", "");
    EXPECT_EQ(cli.waitAtMost(std::chrono::seconds(60)), 0) << cli.err();
}

}  // namespace
}  // namespace tapekeep::test
