#include "app/LaunchTasks.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "core/Log.h"

namespace tapekeep {

namespace {

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
    EXPECT_TRUE(LaunchTasks::all().empty());  // the application has no launch task yet
}

}  // namespace
}  // namespace tapekeep
