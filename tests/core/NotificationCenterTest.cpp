#include "core/NotificationCenter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace tapekeep {
namespace {

TEST(NotificationCenterTest, DeliversOnlyPostsOfTheObservedName) {
    NotificationCenter center;
    std::vector<std::string> received;
    center.addObserver(Notifications::backupsDidChange,
                       [&](const std::string& object) { received.push_back(object); });
    center.post(Notifications::editsDidChange, "/base/other");
    center.post(Notifications::backupsDidChange, "/base/folder");
    center.post("Tapekeep.backupsDidChangeToo", "/base/prefix");
    EXPECT_EQ(received, std::vector<std::string>{"/base/folder"});
}

TEST(NotificationCenterTest, EveryObserverOfANameIsCalledInOrderOfRegistration) {
    NotificationCenter center;
    std::vector<int> calls;
    for (int i = 0; i < 3; ++i)
        center.addObserver("name", [&calls, i](const std::string&) { calls.push_back(i); });
    center.post("name", "");
    EXPECT_EQ(calls, (std::vector<int>{0, 1, 2}));
}

TEST(NotificationCenterTest, RemovedObserverIsNoLongerCalled) {
    NotificationCenter center;
    int removedCalls = 0, keptCalls = 0;
    const auto removed = center.addObserver("name", [&](const std::string&) { ++removedCalls; });
    center.addObserver("name", [&](const std::string&) { ++keptCalls; });
    center.post("name", "");
    center.removeObserver(removed);
    center.removeObserver(removed);  // twice, and an unknown token, are harmless
    center.removeObserver(987654);
    center.post("name", "");
    EXPECT_EQ(removedCalls, 1);
    EXPECT_EQ(keptCalls, 2);
}

TEST(NotificationCenterTest, ObserverMayRemoveItselfDuringAPost) {
    NotificationCenter center;
    int selfRemovingCalls = 0, otherCalls = 0;
    NotificationCenter::Token token = 0;
    token = center.addObserver("name", [&](const std::string&) {
        ++selfRemovingCalls;
        center.removeObserver(token);
    });
    center.addObserver("name", [&](const std::string&) { ++otherCalls; });
    center.post("name", "");
    center.post("name", "");
    EXPECT_EQ(selfRemovingCalls, 1);
    EXPECT_EQ(otherCalls, 2);
}

TEST(NotificationCenterTest, ObserverAddedDuringAPostHearsOnlyLaterPosts) {
    NotificationCenter center;
    int lateCalls = 0;
    bool added = false;
    center.addObserver("name", [&](const std::string&) {
        if (added) return;
        added = true;
        center.addObserver("name", [&](const std::string&) { ++lateCalls; });
    });
    center.post("name", "");
    EXPECT_EQ(lateCalls, 0);
    center.post("name", "");
    EXPECT_EQ(lateCalls, 1);
}

TEST(NotificationCenterTest, PostsFromManyThreadsAreAllDelivered) {
    NotificationCenter center;
    std::atomic<int> delivered = 0;
    center.addObserver("name", [&](const std::string&) { ++delivered; });
    constexpr int threads = 4, postsEach = 2000;
    std::vector<std::thread> posters;
    for (int t = 0; t < threads; ++t) {
        posters.emplace_back([&] {
            for (int i = 0; i < postsEach; ++i) {
                center.post("name", "");
                center.removeObserver(center.addObserver("name", [](const std::string&) {}));
            }
        });
    }
    for (auto& poster : posters) poster.join();
    EXPECT_EQ(delivered, threads * postsEach);
}

TEST(NotificationCenterTest, DefaultCenterIsOneInstance) {
    EXPECT_EQ(&NotificationCenter::defaultCenter(), &NotificationCenter::defaultCenter());
}

}  // namespace
}  // namespace tapekeep
