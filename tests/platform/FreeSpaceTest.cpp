#include "platform/FreeSpace.h"

#include <gtest/gtest.h>

#include "TempDir.h"

namespace tapekeep {
namespace {

TEST(FreeSpaceTest, AvailableBytesLieWithinTheCapacityAndAreUnknownForAMissingPath) {
    test::TempDir temp;
    const auto available = availableBytes(temp.path());
    ASSERT_TRUE(available.has_value());
    EXPECT_GT(*available, 0);
    EXPECT_LE(static_cast<std::uintmax_t>(*available), std::filesystem::space(temp.path()).capacity);
    EXPECT_FALSE(availableBytes(temp / "missing").has_value());
}

}  // namespace
}  // namespace tapekeep
