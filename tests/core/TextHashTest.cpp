// The text hash against the published FNV-1a test vectors, and its written form.

#include "core/TextHash.h"

#include <gtest/gtest.h>

namespace tapekeep {
namespace {

TEST(TextHashTest, MatchesTheKnownValuesOfFnv1a64) {
    EXPECT_EQ(TextHash::fnv1a64(""), 0xcbf29ce484222325ULL);
    EXPECT_EQ(TextHash::fnv1a64("a"), 0xaf63dc4c8601ec8cULL);
    EXPECT_EQ(TextHash::fnv1a64("foobar"), 0x85944171f73967e8ULL);
}

TEST(TextHashTest, IsWrittenInLowerCaseHexOverTheUtf8Bytes) {
    EXPECT_EQ(TextHash::hexOf("foobar"), "85944171f73967e8");
    // "é", two bytes in UTF-8; "%08llx" pads to eight digits only, so the leading zero goes.
    EXPECT_EQ(TextHash::hexOf("\xc3\xa9"), "ac21707b7181e01");
}

}  // namespace
}  // namespace tapekeep
