#include "core/Formatting.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace tapekeep {
namespace {

using Cases = std::vector<std::pair<std::int64_t, std::string>>;

TEST(FormattingTest, ByteCountsReadAsAFileBrowserWordsThem) {
    const Cases cases{{0, "Zero KB"},
                      {1, "1 byte"},
                      {999, "999 bytes"},
                      {1000, "1 KB"},
                      {1500, "2 KB"},
                      {999'499, "999 KB"},
                      {999'500, "1 MB"},
                      {999'499'999, "999.5 MB"},
                      {2'345'678'901, "2.35 GB"},
                      {1'000'000'000'000, "1 TB"},
                      {3'210'000'000'000'000, "3.21 PB"},
                      {-1'500'000, "-1.5 MB"}};
    for (const auto& [bytes, expected] : cases) EXPECT_EQ(formatByteCount(bytes), expected) << bytes;
}

TEST(FormattingTest, ThousandsSeparatorGroupsByThreeIncludingNegatives) {
    const Cases cases{{999, "999"},
                      {1000, "1,000"},
                      {-999, "-999"},
                      {-1000, "-1,000"},
                      {std::numeric_limits<std::int64_t>::max(), "9,223,372,036,854,775,807"},
                      {std::numeric_limits<std::int64_t>::min(), "-9,223,372,036,854,775,808"}};
    for (const auto& [value, expected] : cases)
        EXPECT_EQ(formatWithThousandsSeparator(value), expected) << value;
}

TEST(FormattingTest, ElapsedTimeShowsHoursOnlyWhenThereAreAny) {
    const Cases cases{{0, "0:00"},       {5, "0:05"},       {754, "12:34"},
                      {3600, "1:00:00"}, {3723, "1:02:03"}, {-4, "0:00"}};
    for (const auto& [seconds, expected] : cases) EXPECT_EQ(formatElapsed(seconds), expected) << seconds;
}

}  // namespace
}  // namespace tapekeep
