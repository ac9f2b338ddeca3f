#include "ui/CardListModel.h"

#include <gtest/gtest.h>

#include <QSignalSpy>

#include <atomic>
#include <thread>

#include "BackupControllerFixture.h"
#include "ui/CardLogModel.h"

namespace tapekeep {
namespace {
using namespace std::chrono_literals;
using test::processEventsUntil;

// The tile model over a real controller, backed up with the real rsync.
class CardListModelTest : public test::BackupControllerFixture {
protected:
    void scan() { BackupControllerFixture::scan(backup); }

    QVariant shown(int row, CardListModel::Role role) const { return cards.data(cards.index(row), role); }

    BackupViewModel::Dependencies dependencies() {
        BackupViewModel::Dependencies result = baseDependencies();
        result.runRsync = [this](const std::string& path, const std::vector<std::string>& arguments,
                                 const BackupOperation::LineHandler& onLine, std::stop_token token) {
            const bool transfer = arguments.empty() || arguments.front() != "-an";
            if (transfer && holdTransfer) {
                transferEntered = true;
                while (holdTransfer && !token.stop_requested()) std::this_thread::sleep_for(2ms);
            }
            return BackupOperation::defaultRsyncRunner()(path, arguments, onLine, token);
        };
        result.followCardContent = false;  // nothing changes a row but what the test does
        return result;
    }

    std::atomic<bool> holdTransfer{false}, transferEntered{false};
    BackupViewModel backup{settings, dependencies()};
    CardListModel cards{backup};
};

TEST_F(CardListModelTest, EachDetectedCardGetsARowInTheScannersOrder) {
    const SDCard bravo = addCard("BRAVO", "76FA-7D45-0000-000B");
    const SDCard alpha = addCard("ALPHA", "76FA-7D45-0000-000A");
    QSignalSpy inserted(&cards, &QAbstractItemModel::rowsInserted);
    scan();

    ASSERT_EQ(cards.rowCount(), 2);
    EXPECT_EQ(cards.count(), 2);
    EXPECT_GE(inserted.count(), 1);
    EXPECT_EQ(shown(0, CardListModel::VolumeNameRole).toString(), "ALPHA");
    EXPECT_EQ(shown(0, CardListModel::UuidRole).toString(), QString::fromStdString(alpha.diskUtilUUID));
    EXPECT_EQ(shown(0, CardListModel::ShortUuidRole).toString().toStdString(), "000-000A");
    EXPECT_EQ(shown(0, CardListModel::StateRole).toString(), "idle");
    EXPECT_EQ(shown(1, CardListModel::VolumeNameRole).toString(), "BRAVO");
    EXPECT_EQ(shown(1, CardListModel::VersionsRole).toInt(), 0);
    EXPECT_TRUE(cards.roleNames().values().contains("freshness"));
}

TEST_F(CardListModelTest, OneCardsProgressRepaintsOnlyItsOwnRowAndRoles) {
    const SDCard alpha = addCard("ALPHA", "76FA-7D45-0000-000A");
    addCard("BRAVO", "76FA-7D45-0000-000B");
    scan();
    holdTransfer = true;
    cards.backUp(QString::fromStdString(alpha.diskUtilUUID));
    ASSERT_TRUE(processEventsUntil([&] { return transferEntered.load(); }));
    ASSERT_TRUE(
        processEventsUntil([&] { return shown(0, CardListModel::StateRole).toString() == "running"; }));
    QSignalSpy changed(&cards, &QAbstractItemModel::dataChanged);

    backup.appendOutput(alpha.diskUtilUUID, "  4,096 50%  1.00MB/s  0:00:01 (xfr#1, to-chk=1/3)");
    ASSERT_TRUE(processEventsUntil([&] { return !shown(0, CardListModel::ProgressRole).isNull(); }));

    ASSERT_GE(changed.count(), 1);
    bool progressShown = false;
    for (const QList<QVariant>& emission : changed) {
        const auto from = emission[0].value<QModelIndex>(), to = emission[1].value<QModelIndex>();
        const auto roles = emission[2].value<QList<int>>();
        EXPECT_EQ(from.row(), 0);
        EXPECT_EQ(to.row(), 0);
        EXPECT_FALSE(roles.contains(CardListModel::VolumeNameRole));
        progressShown = progressShown || roles.contains(CardListModel::ProgressRole);
    }
    EXPECT_TRUE(progressShown);
    EXPECT_GT(shown(0, CardListModel::PercentRole).toInt(), 0);

    holdTransfer = false;
    cards.cancelRun(QString::fromStdString(alpha.diskUtilUUID));
    ASSERT_TRUE(processEventsUntil([&] { return !backup.isRunning(alpha.diskUtilUUID); }));
    EXPECT_EQ(shown(0, CardListModel::StateRole).toString(), "failed");
    EXPECT_EQ(shown(0, CardListModel::StateMessageRole).toString(), "Backup was cancelled.");
}

TEST_F(CardListModelTest, ACardThatLeavesTakesOnlyItsRowAway) {
    const SDCard alpha = addCard("ALPHA", "76FA-7D45-0000-000A");
    const SDCard bravo = addCard("BRAVO", "76FA-7D45-0000-000B");
    scan();
    ASSERT_EQ(cards.rowCount(), 2);
    QSignalSpy removed(&cards, &QAbstractItemModel::rowsRemoved);
    QSignalSpy inserted(&cards, &QAbstractItemModel::rowsInserted);

    volumes.remove(alpha.mountPath);
    scan();

    ASSERT_EQ(removed.count(), 1);
    EXPECT_EQ(removed[0][1].toInt(), 0);
    EXPECT_EQ(inserted.count(), 0);
    ASSERT_EQ(cards.rowCount(), 1);
    EXPECT_EQ(shown(0, CardListModel::UuidRole).toString(), QString::fromStdString(bravo.diskUtilUUID));
}

TEST_F(CardListModelTest, ActionsFindTheirCardByUuidAndIgnoreAnUnknownOne) {
    const SDCard alpha = addCard("ALPHA", "76FA-7D45-0000-000A");
    scan();
    QSignalSpy changed(&cards, &QAbstractItemModel::dataChanged);
    const QString unknown = QStringLiteral("0000-0000-0000-FFFF");

    cards.openOptions(unknown);
    cards.backUp(unknown);
    cards.cancelConfirmation(unknown);
    cards.cancelRun(unknown);
    cards.cancelCountdown(unknown);
    cards.eject(unknown);
    cards.showDiffSummary(unknown);
    cards.chooseDestination(unknown,
                            QUrl::fromLocalFile(QString::fromStdString((temp / "elsewhere").string())));
    cards.setFolderSelected(unknown, "Songs", false);
    cards.setSongSelected(unknown, "Songs/intro.m8s", true);
    EXPECT_EQ(cards.logModel(unknown), nullptr);
    QCoreApplication::processEvents();

    EXPECT_EQ(changed.count(), 0);
    EXPECT_EQ(backup.cardState(unknown.toStdString()), CardState::idle());
    EXPECT_FALSE(backup.isRunning(unknown.toStdString()));

    cards.openOptions(QString::fromStdString(alpha.diskUtilUUID));
    EXPECT_EQ(shown(0, CardListModel::StateRole).toString(), "confirming");
    ASSERT_TRUE(processEventsUntil([&] { return !shown(0, CardListModel::FoldersRole).toList().isEmpty(); }));
}

TEST_F(CardListModelTest, TheLogModelGrowsAtTheEndAsLinesArrive) {
    const SDCard alpha = addCard("ALPHA", "76FA-7D45-0000-000A");
    scan();
    auto* log = qobject_cast<CardLogModel*>(cards.logModel(QString::fromStdString(alpha.diskUtilUUID)));
    ASSERT_NE(log, nullptr);
    backup.appendOutput(alpha.diskUtilUUID, "Songs/intro.m8s");
    ASSERT_TRUE(processEventsUntil([&] { return log->rowCount() == 1; }));
    QSignalSpy inserted(log, &QAbstractItemModel::rowsInserted);
    QSignalSpy reset(log, &QAbstractItemModel::modelReset);

    backup.appendOutput(alpha.diskUtilUUID, "Instruments/bass.m8i");
    ASSERT_TRUE(processEventsUntil([&] { return log->rowCount() == 2; }));

    EXPECT_EQ(reset.count(), 0);
    ASSERT_EQ(inserted.count(), 1);
    EXPECT_EQ(inserted[0][1].toInt(), 1);
    EXPECT_EQ(log->data(log->index(1), CardLogModel::LineRole).toString(), "Instruments/bass.m8i");
}

}  // namespace
}  // namespace tapekeep
