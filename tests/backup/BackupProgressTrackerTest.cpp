#include "backup/BackupProgressTracker.h"

#include <gtest/gtest.h>

#include <algorithm>
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
        {"no estimate: full with bytes", {}, "5 100% 1kB/s 0:00:01", 1.0},
        {"no estimate: zero bytes, nothing left to check",
         {},
         "0 100% 0.00kB/s 0:00:00 (xfr#0, to-chk=0/8)",
         1.0},
        {"no estimate: zero bytes, list still growing",
         {},
         "0 100% 0.00kB/s 0:00:00 (xfr#0, ir-chk=10/20)",
         0.5},
        {"no estimate: zero bytes, list complete", {}, "0 100% 0.00kB/s 0:00:00 (xfr#0, to-chk=3/8)", 0.625},
        {"no estimate: zero bytes, no checks", {}, "0 100% 0.00kB/s ??:??:??", 0.0},
        {"no estimate: zero bytes, empty list", {}, "0 100% 0.00kB/s 0:00:00 (xfr#0, ir-chk=0/0)", 0.0},
        {"no estimate: zero bytes, more left than listed",
         {},
         "0 100% 0.00kB/s 0:00:00 (xfr#0, ir-chk=9/5)",
         0.0},
        {"no estimate: zero bytes, remaining unreadable",
         {},
         "0 100% 0.00kB/s 0:00:00 (xfr#0, to-chk=99999999999999999999/5)",
         0.0},
        {"bytes only", trackerWith(1000, {}), "250 90% 1kB/s 0:00:01", 0.25},
        {"bytes only, beyond the estimate", trackerWith(1000, {}), "2,000 90% 1kB/s 0:00:01", 1.0},
        {"bytes only, no files expected", trackerWith(1000, 0), "250 90% 1kB/s 0:00:01", 0.25},
        {"bytes and files", trackerWith(1000, 10), "250 1% 1kB/s 0:00:01 (xfr#5, to-chk=5/10)", 0.375},
        {"bytes and files, count from the pass", trackerWith(1000, 10, 4), "250 1% 1kB/s 0:00:01", 0.325},
        {"bytes and files, no count at all", trackerWith(1000, 10), "250 1% 1kB/s 0:00:01", 0.25},
        {"bytes and files, more files than expected", trackerWith(1000, 10),
         "250 1% 1kB/s 0:00:01 (xfr#30, to-chk=0/40)", 0.625},
        {"empty estimate: checks", trackerWith(0, 10), "50 50% 1kB/s 0:00:01 (xfr#1, ir-chk=1/4)", 0.75},
        {"negative estimate: checks", trackerWith(-5, {}), "50 50% 1kB/s 0:00:01", 0.0},
    };
    for (const auto& [situation, tracker, text, expected] : cases) {
        EXPECT_DOUBLE_EQ(tracker.fraction(line(text)), expected) << situation;
    }
}

TEST(BackupProgressTrackerTest, FeedStopsShortOfFullUntilTheTransferFinishes) {
    BackupProgressTracker tracker;
    tracker.apply(TransferEvent::expectedBytes(1000));
    EXPECT_DOUBLE_EQ(tracker.feed(line("2,000 100% 1kB/s 0:00:01")), 0.99);
    tracker.apply(TransferEvent::transferFinished());
    EXPECT_EQ(tracker.displayedProgress, 1.0);
    EXPECT_TRUE(tracker.isTransferFinished);
}

TEST(BackupProgressTrackerTest, DisplayedProgressNeverShrinksWithinAPass) {
    BackupProgressTracker tracker;
    EXPECT_DOUBLE_EQ(tracker.feed(line("500 50% 1kB/s 0:00:01")), 0.5);
    EXPECT_DOUBLE_EQ(tracker.feed(line("300 30% 1kB/s 0:00:01")), 0.5);
    EXPECT_DOUBLE_EQ(tracker.feed(line("600 60% 1kB/s 0:00:01")), 0.6);
    EXPECT_EQ(tracker.displayedProgress, 0.6);
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

TEST(BackupProgressTrackerTest, EventsSetTheEstimateAndMayClearIt) {
    BackupProgressTracker tracker;
    tracker.apply(TransferEvent::expectedBytes(4096));
    tracker.apply(TransferEvent::expectedFiles(12));
    EXPECT_EQ(tracker.expectedBytes, 4096);
    EXPECT_EQ(tracker.expectedFiles, 12);
    tracker.apply(TransferEvent::expectedBytes(std::nullopt));
    tracker.apply(TransferEvent::expectedFiles(std::nullopt));
    EXPECT_EQ(tracker.expectedBytes, std::nullopt);
    EXPECT_EQ(tracker.expectedFiles, std::nullopt);
    EXPECT_FALSE(tracker.isTransferFinished);
    EXPECT_EQ(tracker.displayedProgress, std::nullopt);
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

// A selective run reports no estimate, checks while the file list grows, then copies.
TEST(BackupProgressTrackerTest, RunWithoutEstimateRisesMonotonicallyToFull) {
    BackupProgressTracker tracker;
    tracker.apply(TransferEvent::expectedBytes(std::nullopt));
    tracker.apply(TransferEvent::expectedFiles(std::nullopt));
    const std::vector<const char*> lines{
        "0 100% 0.00kB/s 0:00:00 (xfr#0, ir-chk=900/1000)",
        "0 100% 0.00kB/s 0:00:00 (xfr#0, ir-chk=100/1000)",
        "0 100% 0.00kB/s 0:00:00 (xfr#0, to-chk=500/1000)",
        "1.05M 10% 1.00MB/s 0:00:09 (xfr#1, to-chk=400/1000)",
        "9.45M 90% 1.00MB/s 0:00:01 (xfr#9, to-chk=10/1000)",
        "10.50M 100% 1.00MB/s 0:00:10 (xfr#10, to-chk=0/1000)",
    };
    std::vector<double> shown;
    for (const char* text : lines) shown.push_back(tracker.feed(line(text)));
    EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end()));
    EXPECT_DOUBLE_EQ(shown.front(), 0.1);
    EXPECT_DOUBLE_EQ(shown[1], 0.9);
    EXPECT_DOUBLE_EQ(shown[2], 0.9);  // a complete list with half left does not pull the bar back
    EXPECT_DOUBLE_EQ(shown.back(), 0.99);
    EXPECT_EQ(tracker.filesRemaining(), 0);
    tracker.apply(TransferEvent::transferFinished());
    EXPECT_EQ(tracker.displayedProgress, 1.0);
}

}  // namespace
}  // namespace tapekeep
