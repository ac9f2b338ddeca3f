#include "core/TimeLimitedCall.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

namespace tapekeep {
namespace {

using namespace std::chrono_literals;

// Work blocks on it until the test opens it, as a thread stuck in the kernel would: no stop reaches
// it. Shared, because the blocked work outlives the call that gave up on it.
struct Gate {
    std::mutex mutex;
    std::condition_variable opened;
    bool isOpen = false;
    bool passed = false;

    void pass() {
        std::unique_lock lock(mutex);
        opened.wait(lock, [this] { return isOpen; });
        passed = true;
        opened.notify_all();
    }
    void open() {
        std::lock_guard lock(mutex);
        isOpen = true;
        opened.notify_all();
    }
    void waitUntilPassed() {
        std::unique_lock lock(mutex);
        opened.wait(lock, [this] { return passed; });
    }
};

TEST(TimeLimitedCallTest, ReturnsTheAnswerOrRethrowsWhatTheWorkThrew) {
    EXPECT_EQ(callWithTimeLimit([] { return std::string("answer"); }, 1h),
              std::optional<std::string>("answer"));
    EXPECT_THROW(callWithTimeLimit([]() -> int { throw std::runtime_error("no"); }, 1h), std::runtime_error);
    EXPECT_THROW(callWithTimeLimit([]() -> int { throw Cancelled(); }, 1h), Cancelled);
}

// The caller gets away from work that never answers, by the limit or by its token, and the work,
// left alone, may still finish later without harm.
TEST(TimeLimitedCallTest, LeavesWorkThatDoesNotAnswerBehind) {
    const auto gate = std::make_shared<Gate>();
    const auto blocked = [gate] {
        gate->pass();
        return std::make_unique<int>(1);  // owned by the call's thread, dropped there
    };
    EXPECT_EQ(callWithTimeLimit(blocked, 1ms), std::nullopt);

    std::stop_source cancel;
    cancel.request_stop();
    EXPECT_THROW(callWithTimeLimit(blocked, 1h, cancel.get_token()), Cancelled);

    gate->open();
    gate->waitUntilPassed();
}

}  // namespace
}  // namespace tapekeep
