#include "core/NaturalOrder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tapekeep {
namespace {

TEST(NaturalOrderTest, OrdersNamesAsAFileBrowserDoes) {
    const std::vector<std::pair<std::string, std::string>> smallerLarger{
        {"Card 2", "Card 10"},
        {"apple", "Banana"},
        {"a1", "a1b"},
        {"x2y3", "x2y10"},
        {"Take 007", "Take 8"},
        {"Kick", "kick 1"},
        {"Loop 100", "Loop 99999999999999999999999"},
        {"99999999999999999998", "99999999999999999999"},
        {"2", "A"},
        {"", "a"},
        {"\xC3\xA9"
         "clair 2",
         "\xC3\x89"
         "clair 10"},                           // case folding beyond ASCII
        {"Caf\xC3\xA9 2", "Cafe\xCC\x81 10"}};  // a decomposed "é" is the composed one
    for (const auto& [smaller, larger] : smallerLarger) {
        EXPECT_LT(naturalCompare(smaller, larger), 0) << smaller << " < " << larger;
        EXPECT_GT(naturalCompare(larger, smaller), 0) << larger << " > " << smaller;
        EXPECT_TRUE(naturalLess(smaller, larger) && !naturalLess(larger, smaller))
            << smaller << " < " << larger;
    }
}

TEST(NaturalOrderTest, OnlyIdenticalNamesCompareEqualAndTiesAreStable) {
    const std::string broken = "Card \xFF 2";
    EXPECT_EQ(naturalCompare("Card 2", "Card 2"), 0);
    EXPECT_EQ(naturalCompare(broken, broken), 0);
    for (const auto& [a, b] : std::vector<std::pair<std::string, std::string>>{
             {"Take 07", "Take 7"}, {"card", "Card"}, {broken, "Card 2"}}) {
        EXPECT_NE(naturalCompare(a, b), 0) << a << " / " << b;
        EXPECT_EQ(naturalCompare(a, b), -naturalCompare(b, a)) << a << " / " << b;
    }
}

TEST(NaturalOrderTest, ComparisonIsAntisymmetricAndTransitiveOnASample) {
    const std::vector<std::string> names{"a",
                                         "A",
                                         "a1",
                                         "a01",
                                         "a10",
                                         "B2",
                                         "b10",
                                         "Card 2",
                                         "card 10",
                                         "Card 010",
                                         "Take 0",
                                         "Take 00",
                                         "ete",
                                         "",
                                         "\xC3\xA9t\xC3\xA9",
                                         "\xC3\x89t\xC3\xA9 2"};
    for (const auto& x : names) {
        for (const auto& y : names) {
            ASSERT_EQ(naturalCompare(x, y) < 0, naturalCompare(y, x) > 0) << x << " / " << y;
            for (const auto& z : names) {
                if (naturalLess(x, y) && naturalLess(y, z)) {
                    ASSERT_TRUE(naturalLess(x, z)) << x << " " << y << " " << z;
                }
            }
        }
    }
}

}  // namespace
}  // namespace tapekeep
