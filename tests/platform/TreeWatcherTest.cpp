#include "platform/TreeWatcher.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <set>

#include "TempDir.h"
#include "core/PosixError.h"

namespace tapekeep {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

// Records every delivered path and the name of the thread that delivered it.
class Recorder {
public:
    void receive(const TreeWatcher::Batch& batch) {
        char name[16] = {};
        ::pthread_getname_np(::pthread_self(), name, sizeof name);
        const std::lock_guard lock(mutex_);
        paths_.insert(batch.begin(), batch.end());
        threadNames_.insert(name);
        changed_.notify_all();
    }

    // True once the path has been delivered; gives up after a generous while.
    bool waitFor(const fs::path& path) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 10s, [&] { return paths_.contains(path); });
    }

    std::set<fs::path> paths() {
        const std::lock_guard lock(mutex_);
        return paths_;
    }

    std::set<std::string> threadNames() {
        const std::lock_guard lock(mutex_);
        return threadNames_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::set<fs::path> paths_;           // guarded by mutex_
    std::set<std::string> threadNames_;  // guarded by mutex_
};

class TreeWatcherTest : public ::testing::Test {
protected:
    void start() {
        watcher.emplace(root.path(), TreeWatcher::Options{50ms, "tapekeep-tree-watcher"});
        watcher->start([this](const TreeWatcher::Batch& batch) { recorder.receive(batch); });
    }

    // Returns once a first delivery shows that the folders present at the start are watched.
    void startAndSettle() {
        start();
        test::writeFile(root / "settled", "x");
        ASSERT_TRUE(recorder.waitFor(root / "settled"));
    }

    test::TempDir root;
    Recorder recorder;
    std::optional<TreeWatcher> watcher;
};

TEST_F(TreeWatcherTest, WatchesNestedFoldersMadeAfterStartOnItsNamedThread) {
    start();
    fs::create_directories(root / "Songs/new/deeper");
    test::writeFile(root / "Songs/new/deeper/song.m8s", "x");

    EXPECT_TRUE(recorder.waitFor(root / "Songs/new/deeper/song.m8s"));
    EXPECT_EQ(recorder.threadNames(), std::set<std::string>{"tapekeep-tree-w"});
}

TEST_F(TreeWatcherTest, FolderMovedWithinTheTreeReportsItsNewPaths) {
    fs::create_directories(root / "Songs/old");
    startAndSettle();
    fs::rename(root / "Songs/old", root / "Songs/renamed");
    test::writeFile(root / "Songs/renamed/song.m8s", "x");

    EXPECT_TRUE(recorder.waitFor(root / "Songs/renamed/song.m8s"));
    EXPECT_FALSE(recorder.paths().contains(root / "Songs/old/song.m8s"));
}

TEST_F(TreeWatcherTest, DoesNotFollowSymbolicLinks) {
    test::TempDir outside;
    fs::create_directory_symlink(outside.path(), root / "link");
    startAndSettle();
    test::writeFile(outside / "elsewhere.wav", "x");
    test::writeFile(root / "marker", "x");  // delivered after anything the first write could have raised

    ASSERT_TRUE(recorder.waitFor(root / "marker"));
    EXPECT_FALSE(recorder.paths().contains(root / "link/elsewhere.wav"));
}

TEST_F(TreeWatcherTest, MissingRootCannotBeWatched) {
    EXPECT_THROW(TreeWatcher(root / "absent"), PosixError);
}

}  // namespace
}  // namespace tapekeep
