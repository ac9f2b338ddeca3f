#include "platform/MountMonitor.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
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
using Mounts = std::vector<std::string>;  // "mount point=source"

MountTable tableOf(const Mounts& mounts) {
    std::string text;
    for (const std::string& mount : mounts) {
        const auto equals = mount.find('=');
        text += "36 35 8:17 / " + mount.substr(0, equals) + " rw - vfat " + mount.substr(equals + 1) + "\n";
    }
    return MountTable::parse(text);
}

Mounts described(const std::vector<MountTable::Entry>& entries) {
    Mounts mounts;
    for (const auto& entry : entries) mounts.push_back(entry.mountPoint.string() + "=" + entry.source);
    return mounts;
}

TEST(MountMonitorTest, CompareReportsEntriesThatAppearedAndVanished) {
    struct Case {
        Mounts before, after, mounted, unmounted;
    };
    const std::vector<Case> cases = {
        {{"/=sda1", "/A=sdb1", "/B=sdc1"}, {"/B=sdc1", "/=sda1", "/C=sdd1"}, {"/C=sdd1"}, {"/A=sdb1"}},
        {{"/A=sdb1"}, {"/A=sdb1", "/A=sdb1"}, {"/A=sdb1"}, {}},  // stacked on itself
        {{"/A=sdb1"}, {"/A=sdc1"}, {"/A=sdc1"}, {"/A=sdb1"}},    // another device at the same point
    };
    for (const Case& test : cases) {
        const auto change = MountMonitor::compare(tableOf(test.before), tableOf(test.after));
        EXPECT_EQ(described(change.mounted), test.mounted) << test.after.back();
        EXPECT_EQ(described(change.unmounted), test.unmounted) << test.after.back();
    }
}

// What a monitor reports about one mount point and about the root, and the thread it reports on.
// Other processes may mount and unmount meanwhile; only these two count.
struct Recorder {
    explicit Recorder(fs::path point) : mountPoint(std::move(point)) {}

    void receive(const MountMonitor::Change& change) {
        char name[16] = {};
        ::pthread_getname_np(::pthread_self(), name, sizeof name);
        const std::lock_guard lock(mutex);
        threadName = name;
        mounted += count(change.mounted, mountPoint);
        unmounted += count(change.unmounted, mountPoint);
        rootReports += count(change.mounted, "/") + count(change.unmounted, "/");
        changed.notify_all();
    }

    // Gives up after a generous while.
    bool waitUntil(const int& counter) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, 30s, [&] { return counter > 0; });
    }

    static int count(const std::vector<MountTable::Entry>& entries, const fs::path& point) {
        return static_cast<int>(std::count_if(entries.begin(), entries.end(),
                                              [&](const auto& entry) { return entry.mountPoint == point; }));
    }

    const fs::path mountPoint;
    std::mutex mutex;
    std::condition_variable changed;
    std::string threadName;  // guarded by mutex, as are the counters
    int mounted = 0;
    int unmounted = 0;
    int rootReports = 0;
};

TEST(MountMonitorTest, ReportsACardMountedThenUnmountedAndNothingAfterStopInsideTheHandler) {
    if (auto reason = test::FatCard::unavailableReason()) GTEST_SKIP() << "no FUSE card here: " << *reason;
    test::TempDir temp;
    const fs::path mountPoint = temp / "volumes" / "M8CARD";
    Recorder running(mountPoint);
    MountMonitor runningMonitor([&](const MountMonitor::Change& change) { running.receive(change); });
    Recorder stopped(mountPoint);
    std::optional<MountMonitor> stoppedMonitor;
    stoppedMonitor.emplace([&](const MountMonitor::Change& change) {
        stopped.receive(change);
        if (Recorder::count(change.mounted, mountPoint) > 0) stoppedMonitor->stop();
    });

    test::FatCard card(temp / "card.img", temp / "volumes", "M8CARD");
    ASSERT_TRUE(running.waitUntil(running.mounted));
    ASSERT_TRUE(stopped.waitUntil(stopped.mounted));
    card.unmount();
    ASSERT_TRUE(running.waitUntil(running.unmounted));
    stoppedMonitor.reset();

    const std::scoped_lock lock(running.mutex, stopped.mutex);
    EXPECT_EQ(running.mounted, 1);
    EXPECT_EQ(running.unmounted, 1);
    EXPECT_EQ(running.rootReports, 0);
    EXPECT_EQ(running.threadName, "mount-monitor");
    EXPECT_EQ(stopped.mounted, 1);
    EXPECT_EQ(stopped.unmounted, 0);
}

}  // namespace
}  // namespace tapekeep
