#include "ui/AppLifecycle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "ShellFixture.h"
#include "cards/OperationLock.h"

namespace tapekeep {

namespace {
using test::waitFor;

const QString closeText = QStringLiteral(
    "Closing now cancels the running operation. An unfinished backup is discarded; a finished one is kept.");

class AppLifecycleTest : public test::ShellFixture {
protected:
    AppLifecycleTest() {
        QObject::connect(&lifecycle, &AppLifecycle::quitApproved, [this] { ++quits; });
        QObject::connect(&lifecycle, &AppLifecycle::closeApproved, [this] { ++closes; });
    }

    [[nodiscard]] QString alertTitle() const {
        return lifecycle.alert() ? lifecycle.alert()->title : QString();
    }

    AppLifecycle lifecycle{settings, model};
    int quits = 0;
    int closes = 0;
};

TEST_F(AppLifecycleTest, ClosingWhileABackupRunsAsksAndOnlyCloseAnywayCancelsIt) {
    const SDCard card = addCard("CARD", "76FA-7D45-0000-0001");
    scan();
    startHeldBackup(card);

    EXPECT_FALSE(lifecycle.windowCloseRequested());
    ASSERT_TRUE(lifecycle.alert());
    EXPECT_EQ(lifecycle.alert()->title, "Operation in Progress");
    EXPECT_EQ(lifecycle.alert()->text, closeText);
    EXPECT_EQ(lifecycle.alert()->buttons, (QStringList{"Don't Close", "Close Anyway"}));
    EXPECT_EQ(lifecycle.alert()->suppression, "");

    lifecycle.answerAlert("Don't Close");
    EXPECT_FALSE(lifecycle.alert());
    EXPECT_TRUE(model.isRunning(card.diskUtilUUID));

    lifecycle.quitRequested();  // the quit command asks the same question
    EXPECT_EQ(alertTitle(), "Operation in Progress");
    lifecycle.answerAlert("Close Anyway");
    EXPECT_EQ(quits, 1);
    ASSERT_TRUE(waitFor([&] { return !model.isRunning(card.diskUtilUUID); }));
    EXPECT_EQ(model.cardState(card.diskUtilUUID), CardState::failed("Backup was cancelled."));
    EXPECT_EQ(closes, 0);
}

TEST_F(AppLifecycleTest, WithTheTrayIconTheWindowOnlyHides) {
    settings.setMenuBarMode(true);
    const SDCard card = addCard("CARD", "76FA-7D45-0000-0001");
    scan();
    EXPECT_TRUE(lifecycle.windowCloseRequested());  // no question: the application stays in the tray

    startHeldBackup(card);
    EXPECT_FALSE(lifecycle.windowCloseRequested());
    lifecycle.answerAlert("Close Anyway");
    EXPECT_EQ(closes, 1);
    EXPECT_EQ(quits, 0);
    EXPECT_TRUE(lifecycle.windowCloseRequested());  // the close that closeApproved asks for passes
    ASSERT_TRUE(waitFor([&] { return !model.isRunning(card.diskUtilUUID); }));
}

TEST_F(AppLifecycleTest, WithoutTheTrayIconClosingTheWindowQuits) {
    EXPECT_FALSE(lifecycle.windowCloseRequested());
    EXPECT_EQ(quits, 1);
}

TEST_F(AppLifecycleTest, QuittingWithCardsAsksWithTheirNamesAndCancelLeavesEverythingRunning) {
    addCard("ALPHA", "76FA-7D45-0000-000A");
    const SDCard bravo = addCard("BRAVO", "76FA-7D45-0000-000B");
    scan();
    lifecycle.quitRequested();
    ASSERT_TRUE(lifecycle.alert());
    EXPECT_EQ(lifecycle.alert()->title, "Eject ALPHA, BRAVO before quitting?");
    EXPECT_EQ(lifecycle.alert()->buttons, (QStringList{"Eject and Quit", "Quit", "Cancel"}));
    EXPECT_EQ(lifecycle.alert()->suppression, "Don't ask again");

    lifecycle.answerAlert("Cancel");
    EXPECT_FALSE(lifecycle.alert());
    EXPECT_EQ(quits, 0);
    EXPECT_TRUE(settings.askToEjectOnQuit());
    EXPECT_TRUE(ejectedCards().empty());
    EXPECT_EQ(model.detectedCards().size(), 2U);
    startHeldBackup(bravo);  // and the controller still works
    model.cancelAllOperations();
    ASSERT_TRUE(waitFor([&] { return !model.isRunning(bravo.diskUtilUUID); }));
}

TEST_F(AppLifecycleTest, DontAskAgainClearsTheSettingAndTheNextQuitDoesNotAsk) {
    addCard("ALPHA", "76FA-7D45-0000-000A");
    scan();
    lifecycle.quitRequested();
    lifecycle.answerAlert("Quit", true);
    EXPECT_EQ(quits, 1);
    EXPECT_FALSE(settings.askToEjectOnQuit());
    EXPECT_TRUE(ejectedCards().empty());

    lifecycle.quitRequested();
    EXPECT_FALSE(lifecycle.alert());
    EXPECT_EQ(quits, 2);
}

TEST_F(AppLifecycleTest, WithoutCardsTheQuitDoesNotAsk) {
    lifecycle.quitRequested();
    EXPECT_FALSE(lifecycle.alert());
    EXPECT_EQ(quits, 1);
}

TEST_F(AppLifecycleTest, EjectAndQuitQuitsOnceEveryCardIsEjected) {
    addCard("ALPHA", "76FA-7D45-0000-000A");
    addCard("BRAVO", "76FA-7D45-0000-000B");
    scan();
    lifecycle.quitRequested();
    lifecycle.answerAlert("Eject and Quit");
    EXPECT_TRUE(lifecycle.isEjectingForQuit());
    lifecycle.quitRequested();  // a second quit while the cards go asks nothing more
    EXPECT_FALSE(lifecycle.alert());
    ASSERT_TRUE(waitFor([&] { return quits > 0; }));
    EXPECT_EQ(quits, 1);
    auto cards = ejectedCards();
    std::sort(cards.begin(), cards.end());
    EXPECT_EQ(cards, (std::vector<std::string>{"ALPHA", "BRAVO"}));
    EXPECT_FALSE(lifecycle.isEjectingForQuit());
}

TEST_F(AppLifecycleTest, AFailedEjectKeepsTheApplicationOpenAndSaysWhy) {
    addCard("ALPHA", "76FA-7D45-0000-000A");
    scan();
    ejectFails = true;
    lifecycle.quitRequested();
    lifecycle.answerAlert("Eject and Quit");
    ASSERT_TRUE(waitFor([&] { return !lifecycle.isEjectingForQuit(); }));
    ASSERT_TRUE(lifecycle.alert());
    EXPECT_EQ(lifecycle.alert()->title, "Could Not Eject");
    EXPECT_EQ(lifecycle.alert()->text, "Failed to eject: device busy\nThe app stays open.");
    EXPECT_EQ(lifecycle.alert()->buttons, QStringList{"OK"});
    lifecycle.answerAlert("OK");
    EXPECT_FALSE(lifecycle.alert());
    EXPECT_EQ(quits, 0);
}

TEST_F(AppLifecycleTest, AnEjectRefusedBecauseAnOperationHoldsACardKeepsTheApplicationOpen) {
    addCard("ALPHA", "76FA-7D45-0000-000A");
    addCard("BRAVO", "76FA-7D45-0000-000B");
    scan();
    lifecycle.quitRequested();
    // An operation takes a card while the question is on screen.
    const Lease lease =
        OperationLock::shared().acquire(VolumeUUID{"76FA-7D45-0000-000B"}, OperationKind::restore);
    const std::unique_ptr<const Lease, void (*)(const Lease*)> release(
        &lease, [](const Lease* held) { OperationLock::shared().release(*held); });
    lifecycle.answerAlert("Eject and Quit");
    ASSERT_TRUE(waitFor([&] { return !lifecycle.isEjectingForQuit(); }));
    EXPECT_EQ(alertTitle(), "Could Not Eject");
    EXPECT_EQ(lifecycle.alert()->text,
              "Cannot eject while another operation is running.\nThe app stays open.");
    EXPECT_EQ(ejectedCards(), std::vector<std::string>{"ALPHA"});
    EXPECT_EQ(quits, 0);
}

TEST_F(AppLifecycleTest, TheActionsReachTheCards) {
    const SDCard card = addCard("ALPHA", "76FA-7D45-0000-000A");
    scan();
    holdTransfer = true;
    lifecycle.backupAll();
    ASSERT_TRUE(waitFor([&] { return transferEntered.load(); }));
    EXPECT_TRUE(model.isRunning(card.diskUtilUUID));
    model.cancelAllOperations();
    ASSERT_TRUE(waitFor([&] { return !model.isRunning(card.diskUtilUUID); }));

    addCard("BRAVO", "76FA-7D45-0000-000B");
    lifecycle.refresh();
    ASSERT_TRUE(waitFor([&] { return model.detectedCards().size() == 2; }));

    int ejects = 0;
    QObject::connect(&model, &BackupViewModel::ejectFinished, [&] { ++ejects; });
    lifecycle.ejectAll();
    ASSERT_TRUE(waitFor([&] { return ejects == 2; }));
    auto cards = ejectedCards();
    std::sort(cards.begin(), cards.end());
    EXPECT_EQ(cards, (std::vector<std::string>{"ALPHA", "BRAVO"}));
}

}  // namespace
}  // namespace tapekeep
