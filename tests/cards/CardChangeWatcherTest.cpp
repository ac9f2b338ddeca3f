#include "cards/CardChangeWatcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "TempDir.h"

namespace tapekeep {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto latency = 50ms;
constexpr auto minimumInterval = 500ms;
const std::string cardID = "0E239BC6-F960-3107-89CF-1C97F78BB46B";

// Records when each report arrived.
class Reports {
public:
    void record(const std::string& reportedID) {
        const std::lock_guard lock(mutex_);
        EXPECT_EQ(reportedID, cardID);
        times_.push_back(Clock::now());
        arrived_.notify_all();
    }

    // True once there are at least `count` reports; gives up after a generous while.
    bool waitForCount(std::size_t count) {
        std::unique_lock lock(mutex_);
        return arrived_.wait_for(lock, 10s, [&] { return times_.size() >= count; });
    }

    std::vector<Clock::time_point> times() {
        const std::lock_guard lock(mutex_);
        return times_;
    }

private:
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<Clock::time_point> times_;  // guarded by mutex_
};

class CardChangeWatcherTest : public ::testing::Test {
protected:
    CardChangeWatcher::ChangeHandler recorder() {
        return [this](const std::string& reportedID) { reports.record(reportedID); };
    }

    CardChangeWatcher::Timing timing{latency, minimumInterval};
    test::TempDir card;
    Reports reports;
};

TEST(CardChangeWatcherRuleTest, OnlyHousekeepingFoldersAtTheRootAreNotChanges) {
    const struct {
        std::string_view path;
        bool counts;
    } cases[] = {
        {"/media/M8/Songs/a.m8s", true},
        {"/media/M8/.Trashes/501/a.m8s", false},
        {"/media/M8/.fseventsd", false},
        {"/media/M8/.Spotlight-V100/Store-V2", false},
        {"/media/M8/Songs/.Trashes/a.m8s", true},
        {"/media/M8/.Trashes-old", true},
        {"/media/M8", true},
        {"/media/M8x/.Trashes", true},
    };
    for (const auto& [path, counts] : cases)
        EXPECT_EQ(CardChangeWatcher::countsAsChange(path, "/media/M8"), counts) << path;
}

// The rest of the burst must fall within the interval after the first report, however slowly this
// thread is scheduled on a busy machine: the interval here is many times the burst's length.
TEST_F(CardChangeWatcherTest, BurstIsReportedAtOnceThenOnceMoreAfterTheInterval) {
    const CardChangeWatcher::Timing spacious{latency, 40 * latency};
    CardChangeWatcher watcher(cardID, card.path(), recorder(), spacious);
    test::writeFile(card / "Songs/first.m8s", "x");
    ASSERT_TRUE(reports.waitForCount(1));
    for (const char* name : {"a.m8s", "b.m8s", "c.m8s"}) {  // spaced to fall into separate batches
        test::writeFile(card / "Songs" / name, "x");
        std::this_thread::sleep_for(2 * latency);
    }

    ASSERT_TRUE(reports.waitForCount(2));
    // Anything of the burst still pending would be reported one interval after the second report.
    std::this_thread::sleep_for(spacious.minimumInterval + 10 * latency);
    const auto times = reports.times();
    ASSERT_EQ(times.size(), 2u);
    // The times are taken when the callbacks run, each a little after the watcher's own decision; the
    // first may have waited longer for this thread than the second. One latency of slack covers that
    // and still tells a throttled report from one that came with the burst (a few latencies apart).
    EXPECT_GE(times[1] - times[0], spacious.minimumInterval - latency);
}

TEST_F(CardChangeWatcherTest, HousekeepingFoldersAloneAreNeverReported) {
    CardChangeWatcher watcher(cardID, card.path(), recorder(), timing);
    test::writeFile(card / ".Trashes/501/x", "x");
    test::writeFile(card / ".fseventsd/y", "x");
    test::writeFile(card / ".Spotlight-V100/z", "x");
    std::this_thread::sleep_for(10 * latency);
    EXPECT_TRUE(reports.times().empty());

    test::writeFile(card / "Songs/a.m8s", "x");  // the watcher was listening all along
    EXPECT_TRUE(reports.waitForCount(1));
}

TEST_F(CardChangeWatcherTest, StoppedWatcherDropsItsPendingReportAndStaysSilent) {
    CardChangeWatcher watcher(cardID, card.path(), recorder(), timing);
    test::writeFile(card / "a.m8s", "x");
    ASSERT_TRUE(reports.waitForCount(1));
    test::writeFile(card / "b.m8s", "x");  // its trailing report is due after the interval
    std::this_thread::sleep_for(4 * latency);

    watcher.stop();
    test::writeFile(card / "c.m8s", "x");
    std::this_thread::sleep_for(2 * minimumInterval);
    EXPECT_EQ(reports.times().size(), 1u);
}

TEST_F(CardChangeWatcherTest, StopFromInsideOnChangeReturnsAndEndsReports) {
    std::atomic<CardChangeWatcher*> self = nullptr;
    CardChangeWatcher watcher(
        cardID, card.path(),
        [&](const std::string& reportedID) {
            self.load()->stop();
            reports.record(reportedID);
        },
        timing);
    self = &watcher;
    test::writeFile(card / "a.m8s", "x");
    ASSERT_TRUE(reports.waitForCount(1));

    test::writeFile(card / "b.m8s", "x");
    std::this_thread::sleep_for(2 * minimumInterval);
    EXPECT_EQ(reports.times().size(), 1u);
}

TEST_F(CardChangeWatcherTest, MissingCardIsSilentNotFatal) {
    const CardChangeWatcher watcher(cardID, card / "unmounted/", recorder(), timing);
    EXPECT_FALSE(watcher.isWatching());
    EXPECT_EQ(watcher.rootPath(), (card / "unmounted").string());
}

}  // namespace
}  // namespace tapekeep
