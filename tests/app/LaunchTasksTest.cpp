#include "app/LaunchTasks.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "TempDir.h"
#include "core/Log.h"

namespace tapekeep {

namespace {
namespace fs = std::filesystem;

// What the tasks did, in order, from whichever thread they ran on.
struct Journal {
    void add(const std::string& entry) {
        std::lock_guard lock(mutex);
        entries.push_back(entry);
    }
    std::vector<std::string> read() {
        std::lock_guard lock(mutex);
        return entries;
    }
    std::mutex mutex;
    std::vector<std::string> entries;
};

TEST(LaunchTasksTest, TheTasksRunInOrderOnOneOtherThreadAndAFailureIsOnlyLogged) {
    Journal journal;
    Log::setConsoleSink([&](const std::string& line) { journal.add("console: " + line); });
    const auto caller = std::this_thread::get_id();
    std::thread::id first, second;
    std::promise<void> lastRan;
    {
        LaunchTasks tasks({{"sweep",
                            [&](std::stop_token) {
                                first = std::this_thread::get_id();
                                journal.add("sweep");
                                throw std::runtime_error("the folder is gone");
                            }},
                           {"tidy", [&](std::stop_token) {
                                second = std::this_thread::get_id();
                                journal.add("tidy");
                                lastRan.set_value();
                            }}});
        tasks.start();
        // The limit only keeps a failing test from hanging.
        EXPECT_EQ(lastRan.get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
    }
    Log::setConsoleSink({});
    EXPECT_EQ(
        journal.read(),
        (std::vector<std::string>{
            "sweep", "console: [LaunchTasks] Launch task \"sweep\" failed: the folder is gone", "tidy"}));
    EXPECT_NE(first, caller);
    EXPECT_EQ(first, second);
}

TEST(LaunchTasksTest, NothingRunsBeforeStartAndTheListIsTheApplications) {
    bool ran = false;
    {
        LaunchTasks tasks({{"sweep", [&](std::stop_token) { ran = true; }}});
    }
    EXPECT_FALSE(ran);
}

// A crash between moving a rendered file into the storage and saving the manifest leaves a staged
// file that no edit names; the launch removes it from every set, and keeps what is not its own.
TEST(LaunchTasksTest, TheLaunchRemovesStagedFilesThatNoEditNamesInEverySet) {
    test::TempDir temp;
    const fs::path base = temp / "backups";
    for (const auto* set : {"M8_4C3C645B", "M8_76FA7D45"}) {
        fs::create_directories(base / set / "backup-2026-01-01-100000");
        test::writeFile(base / ".edits" / set / "staged" / "orphan.wav", "left by a crash");
        test::writeFile(base / ".edits" / set / "staged" / ".keep", "hidden");
    }
    test::writeFile(base / ".edits/M8_4C3C645B/manifest.json", "not a manifest");

    LaunchTasks::cleanUpStagedEdits(base, {});
    // A set whose manifest cannot be read keeps everything: its edits are unknown.
    EXPECT_TRUE(fs::exists(base / ".edits/M8_4C3C645B/staged/orphan.wav"));
    EXPECT_FALSE(fs::exists(base / ".edits/M8_76FA7D45/staged/orphan.wav"));
    EXPECT_TRUE(fs::exists(base / ".edits/M8_76FA7D45/staged/.keep"));

    const auto tasks = LaunchTasks::all([] { return fs::path(); });
    ASSERT_EQ(tasks.size(), 2u);
    for (const auto& task : tasks) EXPECT_NO_THROW(task.run({})) << task.name;  // no backup folder set
}

}  // namespace
}  // namespace tapekeep
