#include "core/NaturalOrder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tapekeep {
namespace {

struct OrderCase {
    std::string smaller;
    std::string larger;
};

TEST(NaturalOrderTest, OrdersNamesAsAFileBrowserDoes) {
    const std::vector<OrderCase> cases{
        {"Card 2", "Card 10"},
        {"card 2", "Card 10"},
        {"Card 9", "card 10"},
        {"apple", "Banana"},
        {"a", "a1"},
        {"a1", "a1b"},
        {"x2y3", "x2y10"},
        {"Song 1 take 9", "Song 1 take 10"},
        {"Take 007", "Take 8"},
        {"Take 9", "Take 010"},
        {"Kick", "kick 1"},
        {"99999999999999999998", "99999999999999999999"},
        {"Loop 100", "Loop 99999999999999999999999"},
        {"Sample", "Samples"},
        {"2", "A"},
    };
    for (const auto& [smaller, larger] : cases) {
        EXPECT_LT(naturalCompare(smaller, larger), 0) << smaller << " < " << larger;
        EXPECT_GT(naturalCompare(larger, smaller), 0) << larger << " > " << smaller;
        EXPECT_TRUE(naturalLess(smaller, larger)) << smaller << " < " << larger;
        EXPECT_FALSE(naturalLess(larger, smaller)) << larger << " > " << smaller;
    }
}

TEST(NaturalOrderTest, SortsCardNamesByNumberValue) {
    std::vector<std::string> names{"Card 100", "card 2", "Card 10a", "Card 1", "Card 10", "Card 010"};
    std::sort(names.begin(), names.end(), naturalLess);
    const std::vector<std::string> expected{"Card 1",  "card 2",   "Card 010",
                                            "Card 10", "Card 10a", "Card 100"};
    EXPECT_EQ(names, expected);
}

TEST(NaturalOrderTest, LeadingZerosDoNotChangeTheValueButTheTieIsStable) {
    EXPECT_NE(naturalCompare("Take 07", "Take 7"), 0);
    EXPECT_EQ(naturalCompare("Take 07", "Take 7"), -naturalCompare("Take 7", "Take 07"));
    EXPECT_LT(naturalCompare("Take 07", "Take 8"), 0);
    EXPECT_LT(naturalCompare("Take 0", "Take 1"), 0);
    EXPECT_LT(naturalCompare("Take 000", "Take 1"), 0);
}

TEST(NaturalOrderTest, OnlyIdenticalNamesCompareEqual) {
    EXPECT_EQ(naturalCompare("Card 2", "Card 2"), 0);
    EXPECT_EQ(naturalCompare("", ""), 0);
    EXPECT_NE(naturalCompare("card", "Card"), 0);
    EXPECT_EQ(naturalCompare("card", "Card"), -naturalCompare("Card", "card"));
    EXPECT_LT(naturalCompare("", "a"), 0);
}

TEST(NaturalOrderTest, NonAsciiNamesFoldCaseAndComposition) {
    // Case folding beyond ASCII: "É" and "é" are the same letter, so the numbers decide.
    EXPECT_LT(naturalCompare("\xC3\xA9"
                             "clair 2",
                             "\xC3\x89"
                             "clair 10"),
              0);
    EXPECT_GT(naturalCompare("\xC3\x89"
                             "clair 10",
                             "\xC3\xA9"
                             "clair 2"),
              0);
    // A decomposed "é" (e + combining acute) is the composed one.
    EXPECT_GT(naturalCompare("Cafe\xCC\x81 10", "Caf\xC3\xA9 2"), 0);
    EXPECT_LT(naturalCompare("Caf\xC3\xA9 2", "Cafe\xCC\x81 10"), 0);
    EXPECT_LT(naturalCompare("\xC3\x9C"
                             "ber 9",
                             "\xC3\xBC"
                             "ber 10"),
              0);
}

TEST(NaturalOrderTest, InvalidUtf8StillOrdersConsistently) {
    const std::string broken = "Card \xFF 2";
    EXPECT_EQ(naturalCompare(broken, broken), 0);
    EXPECT_EQ(naturalCompare(broken, "Card 2"), -naturalCompare("Card 2", broken));
}

TEST(NaturalOrderTest, ComparisonIsAntisymmetricAndTransitiveOnASample) {
    const std::vector<std::string> names{"a",
                                         "A",
                                         "a1",
                                         "a01",
                                         "a1b",
                                         "a10",
                                         "b",
                                         "B2",
                                         "b10",
                                         "Card 2",
                                         "card 10",
                                         "Card 010",
                                         "Take 0",
                                         "Take 00",
                                         "\xC3\xA9t\xC3\xA9",
                                         "ete",
                                         "\xC3\x89t\xC3\xA9 2",
                                         ""};
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
