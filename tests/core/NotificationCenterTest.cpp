#include "core/NotificationCenter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace tapekeep {
namespace {

TEST(NotificationCenterTest, DeliversOnlyPostsOfTheObservedNameToEveryObserverInOrder) {
    NotificationCenter center;
    std::vector<std::string> received;
    for (int i = 0; i < 2; ++i)
        center.addObserver(Notifications::backupsDidChange, [&, i](const std::string& object) {
            received.push_back(std::to_string(i) + object);
        });
    center.post(Notifications::editsDidChange, "/base/other");
    center.post(Notifications::backupsDidChange, "/base/folder");
    center.post("Tapekeep.backupsDidChangeToo", "/base/prefix");
    EXPECT_EQ(received, (std::vector<std::string>{"0/base/folder", "1/base/folder"}));
}

TEST(NotificationCenterTest, ObserversMayBeRemovedAndAddedEvenDuringAPost) {
    NotificationCenter center;
    int removedCalls = 0, selfRemovingCalls = 0, lateCalls = 0, keptCalls = 0;
    const auto removed = center.addObserver("name", [&](const std::string&) { ++removedCalls; });
    NotificationCenter::Token self = 0;
    self = center.addObserver("name", [&](const std::string&) {
        ++selfRemovingCalls;
        center.removeObserver(self);
        center.addObserver("name", [&](const std::string&) { ++lateCalls; });  // hears only later posts
    });
    center.addObserver("name", [&](const std::string&) { ++keptCalls; });
    center.post("name", "");
    EXPECT_EQ(lateCalls, 0);
    center.removeObserver(removed);
    center.removeObserver(removed);  // twice, and an unknown token, are harmless
    center.removeObserver(987654);
    center.post("name", "");
    EXPECT_EQ(removedCalls, 1);
    EXPECT_EQ(selfRemovingCalls, 1);
    EXPECT_EQ(lateCalls, 1);
    EXPECT_EQ(keptCalls, 2);
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

}  // namespace
}  // namespace tapekeep
