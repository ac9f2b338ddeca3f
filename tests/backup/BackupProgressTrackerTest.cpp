#include "backup/BackupProgressTracker.h"

#include <gtest/gtest.h>

#include <vector>

#include "backup/ProgressLineParser.h"

namespace tapekeep {
namespace {

using Count = std::optional<std::int64_t>;

TransferProgressLine line(const char* text) {
    auto parsed = parseProgressLine(text);
    EXPECT_TRUE(parsed) << text;
    return parsed.value_or(TransferProgressLine{});
}

BackupProgressTracker trackerWith(Count expectedBytes, Count expectedFiles, Count lastTransferred = {}) {
    BackupProgressTracker tracker;
    tracker.expectedBytes = expectedBytes;
    tracker.expectedFiles = expectedFiles;
    tracker.lastTransferred = lastTransferred;
    return tracker;
}

struct FractionCase {
    const char* situation;
    BackupProgressTracker tracker;
    const char* line;
    double expected;
};

TEST(BackupProgressTrackerTest, FractionFollowsTheEstimateThePercentageOrTheChecks) {
    const std::vector<FractionCase> cases{
        {"no estimate: percentage", {}, "1,000 45% 1kB/s 0:00:01", 0.45},
        {"no estimate: list growing", {}, "0 100% 0kB/s 0:00:00 (xfr#0, ir-chk=10/20)", 0.5},
        {"no estimate: list complete", {}, "0 100% 0kB/s 0:00:00 (xfr#0, to-chk=3/8)", 0.625},
        {"no estimate: no checks", {}, "0 100% 0kB/s ??:??:??", 0.0},
        {"no estimate: more left than listed", {}, "0 100% 0kB/s 0:00:00 (xfr#0, ir-chk=9/5)", 0.0},
        {"no estimate: remaining unreadable",
         {},
         "0 100% 0kB/s 0:00:00 (xfr#0, to-chk=99999999999999999999/5)",
         0.0},
        {"bytes only", trackerWith(1000, {}), "250 90% 1kB/s 0:00:01", 0.25},
        {"bytes only, beyond the estimate", trackerWith(1000, {}), "2,000 90% 1kB/s 0:00:01", 1.0},
        {"bytes and files", trackerWith(1000, 10), "250 1% 1kB/s 0:00:01 (xfr#5, to-chk=5/10)", 0.375},
        {"bytes and files, count from the pass", trackerWith(1000, 10, 4), "250 1% 1kB/s 0:00:01", 0.325},
        {"more files than expected", trackerWith(1000, 10), "250 1% 1kB/s 0:00:01 (xfr#30, to-chk=0/40)",
         0.625},
        {"empty estimate: checks", trackerWith(0, 10), "50 50% 1kB/s 0:00:01 (xfr#1, ir-chk=1/4)", 0.75},
        {"negative estimate", trackerWith(-5, {}), "50 50% 1kB/s 0:00:01", 0.0},
    };
    for (const auto& [situation, tracker, text, expected] : cases) {
        EXPECT_DOUBLE_EQ(tracker.fraction(line(text)), expected) << situation;
    }
}

TEST(BackupProgressTrackerTest, DisplayedProgressNeverShrinksAndStopsShortOfFullUntilTheFinish) {
    BackupProgressTracker tracker;
    EXPECT_DOUBLE_EQ(tracker.feed(line("500 50% 1kB/s 0:00:01")), 0.5);
    EXPECT_DOUBLE_EQ(tracker.feed(line("300 30% 1kB/s 0:00:01")), 0.5);
    tracker.apply(TransferEvent::expectedBytes(1000));
    EXPECT_DOUBLE_EQ(tracker.feed(line("2,000 100% 1kB/s 0:00:01")), 0.99);
    tracker.apply(TransferEvent::transferFinished());
    EXPECT_EQ(tracker.displayedProgress, 1.0);
    EXPECT_TRUE(tracker.isTransferFinished);
}

TEST(BackupProgressTrackerTest, ALineAfterTheFinishBeginsANewPass) {
    BackupProgressTracker tracker;
    tracker.apply(TransferEvent::expectedBytes(1000));
    tracker.apply(TransferEvent::expectedFiles(10));
    tracker.feed(line("900 90% 1kB/s 0:00:01 (xfr#9, to-chk=1/10)"));
    tracker.apply(TransferEvent::transferFinished());

    const double displayed = tracker.feed(line("100 10% 1kB/s 0:00:01"));
    EXPECT_DOUBLE_EQ(displayed, 0.1);  // smaller than before: the new pass starts over
    EXPECT_FALSE(tracker.isTransferFinished);
    EXPECT_EQ(tracker.lastTransferred, std::nullopt);
    EXPECT_EQ(tracker.lastCompleteRemaining, std::nullopt);
    EXPECT_EQ(tracker.expectedBytes, 1000);
    EXPECT_EQ(tracker.expectedFiles, 10);
}

TEST(BackupProgressTrackerTest, KeepsTheHighestTransferCountAndOnlyCompleteRemainingCounts) {
    BackupProgressTracker tracker;
    tracker.feed(line("1 1% 1kB/s 0:00:01 (xfr#7, to-chk=30/40)"));
    tracker.feed(line("1 1% 1kB/s 0:00:01 (xfr#5, ir-chk=12/90)"));
    EXPECT_EQ(tracker.lastTransferred, 7);
    EXPECT_EQ(tracker.lastCompleteRemaining, 30);
    tracker.feed(line("1 1% 1kB/s 0:00:01 (xfr#8, to-chk=20/40)"));
    EXPECT_EQ(tracker.lastTransferred, 8);
    EXPECT_EQ(tracker.lastCompleteRemaining, 20);
    tracker.feed(line("1 1% 1kB/s 0:00:01 (xfr#99999999999999999999, to-chk=99999999999999999999/40)"));
    EXPECT_EQ(tracker.lastTransferred, 8);
    EXPECT_EQ(tracker.lastCompleteRemaining, 20);
}

struct RemainingCase {
    const char* situation;
    Count expectedFiles;
    Count lastTransferred;
    Count lastCompleteRemaining;
    Count expected;
};

TEST(BackupProgressTrackerTest, FilesRemainingComesFromTheEstimateOrTheLastCompleteCheck) {
    const std::vector<RemainingCase> cases{
        {"estimate, some copied", 10, 3, 99, 7}, {"estimate, none copied yet", 10, {}, 99, 10},
        {"estimate exceeded", 10, 15, 99, 0},    {"no estimate", {}, 3, 42, 42},
        {"empty estimate", 0, 3, 42, 42},        {"nothing known", {}, {}, {}, std::nullopt},
    };
    for (const auto& [situation, expectedFiles, lastTransferred, lastCompleteRemaining, expected] : cases) {
        BackupProgressTracker tracker;
        tracker.expectedFiles = expectedFiles;
        tracker.lastTransferred = lastTransferred;
        tracker.lastCompleteRemaining = lastCompleteRemaining;
        EXPECT_EQ(tracker.filesRemaining(), expected) << situation;
    }
}

}  // namespace
}  // namespace tapekeep
