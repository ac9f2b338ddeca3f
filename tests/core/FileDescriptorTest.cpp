#include "core/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

#include "core/PosixError.h"

namespace tapekeep {
namespace {

bool isOpen(int fd) {
    return ::fcntl(fd, F_GETFD) != -1;
}

TEST(FileDescriptorTest, OneOwnerClosesOnceAndMovesLeaveNothingBehind) {
    const int raw = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(raw, 0);
    {
        FileDescriptor first(raw);
        FileDescriptor second(std::move(first));
        FileDescriptor third;
        third = std::move(second);
        EXPECT_FALSE(first.isOpen());
        EXPECT_FALSE(second.isOpen());
        EXPECT_EQ(third.get(), raw);
        EXPECT_TRUE(isOpen(raw)) << "a move must not close what it hands over";
    }
    EXPECT_FALSE(isOpen(raw));

    errno = EMFILE;
    try {
        (void)FileDescriptor::checked(-1, "eventfd");
        ADD_FAILURE() << "a failed call must throw";
    } catch (const PosixError& error) {
        EXPECT_EQ(error.code(), EMFILE);
        EXPECT_EQ(error.description(), "eventfd: " + errnoText(EMFILE));
    }
}

}  // namespace
}  // namespace tapekeep
