#include "workflows/PerCard.h"

#include <gtest/gtest.h>

#include <vector>

#include "workflows/CardSet.h"

namespace tapekeep {
namespace {

const std::string card = "76FA-7D45-0000-0001";

// Each change of a property redraws what shows it: only a real change may tell.
TEST(PerCardTest, OnlyARealChangeIsTold) {
    int told = 0;
    PerCard<std::vector<std::string>> logs{[&] { ++told; }};
    const std::vector<std::pair<std::function<void()>, int>> steps = {
        {[&] { logs.erase(card); }, 0},
        {[&] { logs.assign(card, {}); }, 1},
        {[&] { logs.assign(card, {}); }, 1},
        {[&] { logs.edit(card, [](auto& lines) { lines.push_back("sent 35 bytes"); }); }, 2},
        {[&] { logs.assign(card, {"sent 35 bytes"}); }, 2},
        {[&] { logs.assign(card, {"total size is 4,096"}); }, 3},
        {[&] { logs.erase(card); }, 4},
        {[&] { logs.erase(card); }, 4},
    };
    for (std::size_t step = 0; step < steps.size(); ++step) {
        SCOPED_TRACE(step);
        steps[step].first();
        EXPECT_EQ(told, steps[step].second);
    }
    EXPECT_EQ(logs.value(card), std::nullopt);
}

TEST(PerCardTest, ACardSetTellsOnlyWhenACardComesOrGoes) {
    int told = 0;
    CardSet loading{[&] { ++told; }};
    loading.insert(card);
    loading.insert(card);
    EXPECT_EQ(told, 1);
    loading.erase(card);
    loading.erase(card);
    EXPECT_EQ(told, 2);
    EXPECT_FALSE(loading.contains(card));
}

}  // namespace
}  // namespace tapekeep
