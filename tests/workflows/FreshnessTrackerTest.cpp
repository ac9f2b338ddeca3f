#include "workflows/FreshnessTracker.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <atomic>
#include <thread>

#include "EventLoop.h"
#include "FakeVolumes.h"
#include "TempDir.h"

namespace tapekeep {
namespace {
namespace fs = std::filesystem;
using namespace std::chrono_literals;

FileDiff difference(const std::string& path, FileDiff::Kind kind) {
    return FileDiff{path, path, kind};
}

class FreshnessTrackerTest : public ::testing::Test {
protected:
    FreshnessTrackerTest() { test::startApplication(); }

    // Each comparison answers with the next of results (the last one once they run out); the first
    // one waits, past its last look at the token, while holdFirst is set.
    FreshnessTracker::Compare compare() {
        return [this](const SDCard&, const fs::path&, std::stop_token) {
            const int call = comparisons++;
            while (call == 0 && holdFirst) std::this_thread::sleep_for(1ms);
            return results.at(std::min<std::size_t>(call, results.size() - 1));
        };
    }

    std::string freshness() const {
        const auto value = tracker.freshness(card.diskUtilUUID);
        return value ? value->label() : "";
    }

    test::TempDir temp;
    test::FakeVolumes volumes;
    const SDCard card = volumes.addCard(temp / "volumes/CARD", "76FA-7D45-0000-0001");
    const fs::path base = temp / "backups";
    std::vector<CardComparison> results{
        {BackupFreshness::changes(1, 0, 0), {difference("Songs/new.m8s", FileDiff::Kind::added)}},
        {BackupFreshness::upToDate(), {}}};
    std::atomic<int> comparisons{0};
    std::atomic<bool> holdFirst{true};
    FreshnessTracker tracker{volumes.factory(), compare()};
};

// The card left the list while it was being compared: nothing of that comparison may show.
TEST_F(FreshnessTrackerTest, AComparisonStoppedWhileItRanShowsNothing) {
    tracker.refresh(card, base);
    // The event loop stands still: the comparison's "CHECKING" is queued once it compares.
    while (comparisons == 0) std::this_thread::sleep_for(1ms);
    tracker.stop(card.diskUtilUUID);
    holdFirst = false;
    QCoreApplication::processEvents();
    EXPECT_EQ(freshness(), "");
}

TEST_F(FreshnessTrackerTest, ChangesDuringAComparisonAskForExactlyOneMore) {
    int wanted = 0;
    QObject::connect(&tracker, &FreshnessTracker::comparisonWanted, [&] {
        ++wanted;
        tracker.refresh(card, base);
    });
    tracker.refresh(card, base);
    ASSERT_TRUE(test::waitFor([&] { return freshness() == "CHECKING"; }));
    for (int change = 0; change < 3; ++change) tracker.refresh(card, base);
    holdFirst = false;
    ASSERT_TRUE(test::waitFor([&] { return freshness() == "UP TO DATE"; }, 10s)) << freshness();
    EXPECT_EQ(wanted, 1);
    EXPECT_EQ(comparisons, 2);
}

TEST_F(FreshnessTrackerTest, ACardPulledWhileItWasComparedKeepsNoResult) {
    int wanted = 0;
    QObject::connect(&tracker, &FreshnessTracker::comparisonWanted, [&] { ++wanted; });
    volumes.answerOnly(1);  // the look-up before the comparison finds the card, the one after does not
    tracker.refresh(card, base);
    ASSERT_TRUE(test::waitFor([&] { return freshness() == "CHECKING"; }));
    tracker.refresh(card, base);  // so that the end of the first comparison is told
    holdFirst = false;
    ASSERT_TRUE(test::waitFor([&] { return wanted == 1; }, 10s));
    EXPECT_EQ(freshness(), "CHECKING");
    EXPECT_TRUE(tracker.quickDiffs(card.diskUtilUUID).empty());
}

TEST_F(FreshnessTrackerTest, TheDiffSummaryCountsTheDifferencesOfEachTopLevelFolder) {
    holdFirst = false;
    results = {{BackupFreshness::changes(2, 1, 1),
                {difference("Samples/Drums/kick.wav", FileDiff::Kind::deleted),
                 difference("Songs/a.m8s", FileDiff::Kind::added),
                 difference("Songs/b.m8s", FileDiff::Kind::modified),
                 difference("notes.txt", FileDiff::Kind::added)}}};
    tracker.requestDiffSummary(card.diskUtilUUID);
    EXPECT_EQ(tracker.diffLoadingVariant(), QStringList{QString::fromStdString(card.diskUtilUUID)});
    tracker.refresh(card, base);
    ASSERT_TRUE(test::waitFor([&] { return tracker.diffSummary(card.diskUtilUUID).has_value(); }, 10s));

    const std::vector<FolderDiff> expected = {{"", 1, 0, 0}, {"Samples", 0, 0, 1}, {"Songs", 1, 1, 0}};
    EXPECT_EQ(tracker.diffSummary(card.diskUtilUUID)->folders, expected);
    EXPECT_TRUE(tracker.diffLoadingVariant().isEmpty());
    EXPECT_EQ(freshness(), "4 CHANGES");
}

}  // namespace
}  // namespace tapekeep
