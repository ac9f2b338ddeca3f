#include "platform/MountMonitor.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>

#include "FatCard.h"
#include "TempDir.h"

namespace tapekeep {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using test::FatCard;

// One mountinfo line per "mount point=source".
MountTable tableOf(const std::vector<std::string>& mounts) {
    std::string text;
    for (const std::string& mount : mounts) {
        const auto equals = mount.find('=');
        text +=
            "36 35 8:17 / " + mount.substr(0, equals) + " rw - vfat " + mount.substr(equals + 1) + " rw\n";
    }
    return MountTable::parse(text);
}

std::vector<std::string> described(const std::vector<MountTable::Entry>& entries) {
    std::vector<std::string> mounts;
    for (const auto& entry : entries) mounts.push_back(entry.mountPoint.string() + "=" + entry.source);
    return mounts;
}

TEST(MountMonitorTest, CompareReportsEntriesThatAppearedAndVanished) {
    struct Case {
        const char* name;
        std::vector<std::string> before, after, mounted, unmounted;
    };
    const std::vector<Case> cases = {
        {"unchanged", {"/=/dev/sda1", "/media/A=/dev/sdb1"}, {"/=/dev/sda1", "/media/A=/dev/sdb1"}, {}, {}},
        {"reordered",
         {"/media/A=/dev/sdb1", "/media/B=/dev/sdc1"},
         {"/media/B=/dev/sdc1", "/media/A=/dev/sdb1"},
         {},
         {}},
        {"mounted", {"/=/dev/sda1"}, {"/=/dev/sda1", "/media/A=/dev/sdb1"}, {"/media/A=/dev/sdb1"}, {}},
        {"unmounted", {"/=/dev/sda1", "/media/A=/dev/sdb1"}, {"/=/dev/sda1"}, {}, {"/media/A=/dev/sdb1"}},
        {"stacked again",
         {"/media/A=/dev/sdb1"},
         {"/media/A=/dev/sdb1", "/media/A=/dev/sdb1"},
         {"/media/A=/dev/sdb1"},
         {}},
        {"swapped device",
         {"/media/A=/dev/sdb1"},
         {"/media/A=/dev/sdc1"},
         {"/media/A=/dev/sdc1"},
         {"/media/A=/dev/sdb1"}},
    };
    for (const Case& test : cases) {
        const auto change = MountMonitor::compare(tableOf(test.before), tableOf(test.after));
        EXPECT_EQ(described(change.mounted), test.mounted) << test.name;
        EXPECT_EQ(described(change.unmounted), test.unmounted) << test.name;
    }
}

// Gathers what a monitor reports about one mount point and about the root, and on which thread.
class Recorder {
public:
    explicit Recorder(fs::path mountPoint) : mountPoint_(std::move(mountPoint)) {}

    void receive(const MountMonitor::Change& change) {
        char name[16] = {};
        ::pthread_getname_np(::pthread_self(), name, sizeof name);
        const std::lock_guard lock(mutex_);
        threadName_ = name;
        mounted_ += count(change.mounted, mountPoint_);
        unmounted_ += count(change.unmounted, mountPoint_);
        rootReports_ += count(change.mounted, "/") + count(change.unmounted, "/");
        changed_.notify_all();
    }

    // True once the mount point has been reported unmounted; gives up after a generous while.
    bool waitForUnmount() {
        return waitFor([this] { return unmounted_ > 0; });
    }
    bool waitForMount() {
        return waitFor([this] { return mounted_ > 0; });
    }

    int mounted() { return locked(mounted_); }
    int unmounted() { return locked(unmounted_); }
    int rootReports() { return locked(rootReports_); }  // the root stays mounted throughout
    std::string threadName() { return locked(threadName_); }

private:
    template <typename Predicate>
    bool waitFor(Predicate predicate) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 30s, predicate);
    }
    template <typename Value>
    Value locked(const Value& value) {
        const std::lock_guard lock(mutex_);
        return value;
    }
    static int count(const std::vector<MountTable::Entry>& entries, const fs::path& mountPoint) {
        return static_cast<int>(std::count_if(entries.begin(), entries.end(), [&](const auto& entry) {
            return entry.mountPoint == mountPoint;
        }));
    }

    const fs::path mountPoint_;
    std::mutex mutex_;
    std::condition_variable changed_;
    int mounted_ = 0;         // guarded by mutex_
    int unmounted_ = 0;       // guarded by mutex_
    int rootReports_ = 0;     // guarded by mutex_
    std::string threadName_;  // guarded by mutex_
};

class MountMonitorCardTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (auto reason = FatCard::unavailableReason()) GTEST_SKIP() << "no FUSE card here: " << *reason;
    }

    // Other processes on the machine may mount and unmount too; only this card's mount point counts.
    void makeCard() { card.emplace(temp / "card.img", temp / "volumes", "M8CARD"); }

    test::TempDir temp;
    fs::path mountPoint = temp / "volumes" / "M8CARD";
    std::optional<FatCard> card;
};

TEST_F(MountMonitorCardTest, ReportsTheCardMountedThenUnmountedOnItsNamedThread) {
    Recorder recorder(mountPoint);
    MountMonitor monitor([&](const MountMonitor::Change& change) { recorder.receive(change); });

    makeCard();
    ASSERT_TRUE(recorder.waitForMount());
    card->unmount();
    ASSERT_TRUE(recorder.waitForUnmount());

    EXPECT_EQ(recorder.mounted(), 1);
    EXPECT_EQ(recorder.unmounted(), 1);
    EXPECT_EQ(recorder.rootReports(), 0);
    EXPECT_EQ(recorder.threadName(), "mount-monitor");
}

TEST_F(MountMonitorCardTest, StopInsideTheHandlerEndsTheReports) {
    Recorder stopped(mountPoint);
    std::atomic<bool> stopCalled = false;
    std::atomic<int> callsAfterStop = 0;
    std::optional<MountMonitor> stoppedMonitor;
    stoppedMonitor.emplace([&](const MountMonitor::Change& change) {
        if (stopCalled) ++callsAfterStop;
        stopped.receive(change);
        if (stopped.mounted() == 0) return;
        stopCalled = true;
        stoppedMonitor->stop();
    });
    Recorder running(mountPoint);
    MountMonitor runningMonitor([&](const MountMonitor::Change& change) { running.receive(change); });

    makeCard();
    ASSERT_TRUE(stopped.waitForMount());
    card->unmount();
    ASSERT_TRUE(running.waitForUnmount());

    stoppedMonitor.reset();
    EXPECT_EQ(callsAfterStop, 0);
    EXPECT_EQ(stopped.unmounted(), 0);
}

}  // namespace
}  // namespace tapekeep
