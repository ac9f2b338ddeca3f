#include "workflows/CardTasks.h"

#include <gtest/gtest.h>

#include <QObject>

#include <atomic>
#include <thread>

#include "EventLoop.h"
#include "workflows/BackgroundWork.h"

namespace tapekeep {
namespace {
using namespace std::chrono_literals;

const std::string card = "76FA-7D45-0000-0001";

class CardTasksTest : public ::testing::Test {
protected:
    CardTasksTest() { test::startApplication(); }

    // Runs until its token asks it to stop.
    static void untilStopped(std::stop_token token) {
        while (!token.stop_requested()) std::this_thread::sleep_for(1ms);
    }

    QObject owner;
    BackgroundWork background{&owner};
    CardTasks tasks{background.tasks()};
};

// A replaced task that ends late must not make the card look idle while its replacement runs.
TEST_F(CardTasksTest, ATaskThatEndsAfterItsReplacementStartedIsNotTakenForIt) {
    std::vector<bool> forgotten;
    const auto forget = [&](BackgroundTasks::Id id) { forgotten.push_back(tasks.forget(card, id)); };
    std::atomic<bool> firstMayEnd{false};
    tasks.start(
        card,
        [&](std::stop_token) {
            while (!firstMayEnd) std::this_thread::sleep_for(1ms);
        },
        forget);
    tasks.start(card, untilStopped, forget);
    firstMayEnd = true;
    ASSERT_TRUE(test::waitFor([&] { return forgotten.size() == 1; }));
    EXPECT_EQ(forgotten, std::vector<bool>{false});
    EXPECT_TRUE(tasks.contains(card));

    ASSERT_TRUE(tasks.requestStop(card));
    ASSERT_TRUE(test::waitFor([&] { return forgotten.size() == 2; }));
    EXPECT_EQ(forgotten, (std::vector<bool>{false, true}));
    EXPECT_FALSE(tasks.contains(card));
}

TEST_F(CardTasksTest, AStoppedTaskIsForgottenAtOnce) {
    tasks.start(card, untilStopped);
    EXPECT_TRUE(tasks.stop(card));
    EXPECT_FALSE(tasks.contains(card));
    EXPECT_FALSE(tasks.stop(card));
}

}  // namespace
}  // namespace tapekeep
