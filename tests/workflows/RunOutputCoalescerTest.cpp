#include "workflows/RunOutputCoalescer.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <thread>

#include "EventLoop.h"

namespace tapekeep {
namespace {
using namespace std::chrono_literals;

const std::string card = "76FA-7D45-0000-0001";

class RunOutputCoalescerTest : public ::testing::Test {
protected:
    RunOutputCoalescerTest() { test::startApplication(); }

    template <typename Signal>
    std::shared_ptr<int> countEmissions(Signal signal) {
        auto count = std::make_shared<int>(0);
        QObject::connect(&output, signal, [count] { ++*count; });
        return count;
    }

    static constexpr std::int64_t fileCount = 10'000'000;

    static std::string progressLine(std::int64_t bytes, std::int64_t remaining) {
        return "  " + std::to_string(bytes) +
               " 50%  1.00MB/s  0:00:01 (xfr#1, to-chk=" + std::to_string(remaining) + "/" +
               std::to_string(fileCount) + ")";
    }

    RunOutputCoalescer output{50ms};
};

// A rate bound that follows from one flush per flush delay, not a speed goal.
TEST_F(RunOutputCoalescerTest, AFloodOfLinesChangesEachPropertyAtMostOncePerFlushDelay) {
    output.beginRun(card);
    output.applyEvent(card, TransferEvent::expectedBytes(1'000'000'000'000));
    const std::shared_ptr<int> counts[] = {countEmissions(&RunOutputCoalescer::logsChanged),
                                           countEmissions(&RunOutputCoalescer::progressChanged),
                                           countEmissions(&RunOutputCoalescer::filesRemainingChanged)};
    std::int64_t lines = 0;
    const auto start = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - start < 600ms) {
        ++lines;
        output.appendOutput(card, "Samples/take " + std::to_string(lines) + ".wav");
        output.appendOutput(card, progressLine(lines * 1000, fileCount - lines));
        if (lines % 50 == 0) QCoreApplication::processEvents();
    }
    const auto flushes = std::chrono::duration<double>(std::chrono::steady_clock::now() - start) / 50ms;
    ASSERT_TRUE(test::waitFor([&] { return output.log(card).size() == static_cast<std::size_t>(lines); }));

    EXPECT_GE(*counts[1], 2);  // the progress did move, more than once
    for (const auto& count : counts) EXPECT_LE(*count, flushes + 2);
    EXPECT_EQ(output.log(card).back(), "Samples/take " + std::to_string(lines) + ".wav");
    EXPECT_EQ(output.filesRemaining(card), fileCount - lines);
}

TEST_F(RunOutputCoalescerTest, LinesFromTheRunsThreadArriveWholeAndInOrder) {
    output.beginRun(card);
    std::vector<std::string> sent;
    for (int line = 0; line < 20'000; ++line) sent.push_back("Songs/song " + std::to_string(line) + ".m8s");
    std::thread run([&] {
        for (const auto& line : sent) output.receiveLine(card, line);
    });
    const bool arrived = test::waitFor([&] { return output.log(card).size() >= sent.size(); });
    run.join();
    ASSERT_TRUE(arrived);
    EXPECT_EQ(output.log(card), sent);
}

// What the run printed stands in the log before its result: the end of the transfer does not wait
// for the next flush.
TEST_F(RunOutputCoalescerTest, TheEndOfTheTransferShowsEverythingAtOnce) {
    output.beginRun(card);
    output.appendOutput(card, "Songs/intro.m8s");
    output.receiveLine(card, "sent 1.23K bytes  received 35 bytes  2.56K bytes/sec");
    output.applyEvent(card, TransferEvent::transferFinished());
    EXPECT_EQ(output.log(card),
              (std::vector<std::string>{"Songs/intro.m8s",
                                        "sent 1.23K bytes  received 35 bytes  2.56K bytes/sec"}));
    EXPECT_EQ(output.progress(card), 1.0);
}

TEST_F(RunOutputCoalescerTest, ARunStartsWithAnEmptyLogAndNoProgress) {
    output.beginRun(card);
    output.applyEvent(card, TransferEvent::expectedFiles(12));
    output.appendOutput(card, "Songs/intro.m8s");
    output.appendOutput(card, progressLine(1000, 3));
    output.flush(card);
    ASSERT_TRUE(output.progress(card).has_value());
    ASSERT_TRUE(output.filesRemaining(card).has_value());

    output.beginRun(card);
    EXPECT_TRUE(output.log(card).empty());
    EXPECT_FALSE(output.progress(card).has_value());
    EXPECT_FALSE(output.filesRemaining(card).has_value());
}

}  // namespace
}  // namespace tapekeep
