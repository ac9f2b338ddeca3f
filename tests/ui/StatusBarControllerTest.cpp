#include "ui/StatusBarController.h"

#include <gtest/gtest.h>

#include "ShellFixture.h"
#include "ui/AppLifecycle.h"
#include "ui/CardTileValues.h"

namespace tapekeep {

namespace {
using test::waitFor;

class StatusBarControllerTest : public test::ShellFixture {
protected:
    AppLifecycle lifecycle{settings, model};
    StatusBarController tray{settings, model, lifecycle};
};

TEST_F(StatusBarControllerTest, TheIconFollowsTheSettingWhileTheApplicationRuns) {
    EXPECT_FALSE(tray.isShown());
    settings.setMenuBarMode(true);
    EXPECT_TRUE(tray.isShown());
    settings.setMenuBarMode(false);
    EXPECT_FALSE(tray.isShown());
}

TEST_F(StatusBarControllerTest, TheMenuHasALinePerCardAndTheCommands) {
    EXPECT_EQ(tray.menuTexts(),
              (QStringList{"No card", "", "Open Main Window", "Backup All", "", "Quit Tapekeep"}));

    const SDCard card = addCard("ALPHA", "76FA-7D45-0000-000A");
    addCard("BRAVO", "76FA-7D45-0000-000B");
    scan();
    ASSERT_TRUE(waitFor([&] { return tray.menuTexts().size() == 7; }));
    EXPECT_EQ(tray.menuTexts(), (QStringList{"ALPHA: Ready", "BRAVO: Ready", "", "Open Main Window",
                                             "Backup All", "", "Quit Tapekeep"}));

    startHeldBackup(card);
    ASSERT_TRUE(waitFor([&] { return tray.menuTexts().front().startsWith("ALPHA: Backing up"); }));
    model.cancelAllOperations();
    ASSERT_TRUE(waitFor([&] { return tray.menuTexts().front() == "ALPHA: Backup was cancelled."; }));
}

TEST_F(StatusBarControllerTest, TheCommandsReachTheWindowAndTheLifecycle) {
    int openRequests = 0;
    QObject::connect(&tray, &StatusBarController::openMainWindowRequested, [&] { ++openRequests; });
    int quits = 0;
    QObject::connect(&lifecycle, &AppLifecycle::quitApproved, [&] { ++quits; });
    const auto trigger = [&](const QString& text) {
        for (QAction* action : tray.menu().actions())
            if (action->text() == text) action->trigger();
    };
    trigger("Open Main Window");
    EXPECT_EQ(openRequests, 1);

    trigger("Quit Tapekeep");  // no card, no operation: nothing to ask
    EXPECT_EQ(quits, 1);
    EXPECT_EQ(openRequests, 1);

    addCard("ALPHA", "76FA-7D45-0000-000A");
    scan();
    ASSERT_TRUE(waitFor([&] { return tray.menuTexts().front() == "ALPHA: Ready"; }));
    trigger("Quit Tapekeep");  // the question is asked in the window, which comes forward
    EXPECT_EQ(quits, 1);
    EXPECT_EQ(openRequests, 2);
    EXPECT_TRUE(lifecycle.alert());
}

TEST(StatusBarCardLineTest, SaysWhatTheCardIsDoing) {
    EXPECT_EQ(StatusBarController::cardLine("M8", CardState::idle(), std::nullopt), "M8: Ready");
    EXPECT_EQ(StatusBarController::cardLine("M8", CardState::running(), std::nullopt), "M8: Backing up");
    EXPECT_EQ(StatusBarController::cardLine("M8", CardState::running(), 0.429), "M8: Backing up (42%)");
    // The tray and the card's tile show the same figure, and neither says 100% before the end.
    EXPECT_EQ(StatusBarController::cardLine("M8", CardState::running(), 0.999), "M8: Backing up (99%)");
    EXPECT_EQ(CardTileValues::percent(0.999).toInt(), 99);
    EXPECT_EQ(
        StatusBarController::cardLine("M8", CardState::success("Backup successful (3s)."), std::nullopt),
        "M8: Backup successful (3s).");
    EXPECT_EQ(StatusBarController::cardLine("M8", CardState::failed("Disk full."), 0.5), "M8: Disk full.");
    EXPECT_EQ(StatusBarController::cardLine("M8", CardState::confirming(), std::nullopt),
              "M8: Choosing what to back up");
}

}  // namespace
}  // namespace tapekeep
