#include "backup/ProcessRunner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TempDir.h"
#include "backup/ProcessExitError.h"
#include "core/Cancelled.h"
#include "core/PosixError.h"

namespace tapekeep {
namespace {

using Lines = std::vector<std::string>;

ProcessResult runShell(const std::string& script, const ProcessRunner::LineHandler& onLine = {},
                       std::stop_token token = {}) {
    return ProcessRunner::shared().run("/bin/sh", {"-c", script}, onLine, std::move(token));
}

Lines linesOfShell(const std::string& script) {
    Lines lines;
    runShell(script, [&lines](const std::string& line) { lines.push_back(line); });
    return lines;
}

// --- Lines -------------------------------------------------------------------------------------

TEST(ProcessRunnerTest, LineFeedAndCarriageReturnEachEndALine) {
    EXPECT_EQ(linesOfShell(R"(printf 'one\ntwo\rthree')"), (Lines{"one", "two", "three"}));
}

TEST(ProcessRunnerTest, CarriageReturnLineFeedGivesOneLine) {
    EXPECT_EQ(linesOfShell(R"(printf 'first\r\nsecond\r\n')"), (Lines{"first", "second"}));
}

TEST(ProcessRunnerTest, EmptyLinesAreDropped) {
    EXPECT_EQ(linesOfShell(R"(printf '\n\n\r\nonly\n\r\r\n')"), (Lines{"only"}));
}

TEST(ProcessRunnerTest, OutputWithoutFinalNewlineIsDeliveredAsLastLine) {
    EXPECT_EQ(linesOfShell(R"(printf 'done\npartial')"), (Lines{"done", "partial"}));
}

TEST(ProcessRunnerTest, ProgressRefreshedWithCarriageReturnsArrivesLineByLine) {
    const Lines lines = linesOfShell(R"(printf '  1%%\r 50%%\r100%%\nsent 12 bytes\n')");
    EXPECT_EQ(lines, (Lines{"  1%", " 50%", "100%", "sent 12 bytes"}));
}

TEST(ProcessRunnerTest, InvalidUtf8IsRepairedInLinesAndOutput) {
    const std::string script = R"(printf 'caf\303\251 \377x\n')";
    EXPECT_EQ(linesOfShell(script), (Lines{"caf\u00e9 \uFFFDx"}));
    EXPECT_EQ(runShell(script).output, "caf\u00e9 \uFFFDx\n");
}

TEST(ProcessRunnerTest, LinesOfBothStreamsAreDelivered) {
    const Lines lines = linesOfShell("echo to-out; echo to-err >&2");
    EXPECT_EQ(lines.size(), 2u);
    EXPECT_NE(std::find(lines.begin(), lines.end(), "to-out"), lines.end());
    EXPECT_NE(std::find(lines.begin(), lines.end(), "to-err"), lines.end());
}

TEST(ProcessRunnerTest, ManyLinesKeepTheirOrderAcrossReadChunks) {
    const Lines lines = linesOfShell("seq 1 50000");
    ASSERT_EQ(lines.size(), 50000u);
    for (std::size_t index = 0; index < lines.size(); ++index)
        ASSERT_EQ(lines[index], std::to_string(index + 1));
}

TEST(ProcessRunnerTest, WithALineHandlerTheOutputTextStaysEmpty) {
    const ProcessResult result = runShell("echo hello", [](const std::string&) {});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.output.empty());
}

// --- Output text and status ---------------------------------------------------------------------

TEST(ProcessRunnerTest, OutputWithoutHandlerHoldsStandardOutputThenStandardError) {
    const ProcessResult result = runShell("echo err >&2; printf 'out'");
    EXPECT_EQ(result.output, "out\nerr\n");
}

TEST(ProcessRunnerTest, LargeOutputWithoutHandlerIsCollectedWhole) {
    std::string expected;
    for (int number = 1; number <= 100000; ++number) expected += std::to_string(number) + "\n";
    EXPECT_EQ(runShell("seq 1 100000").output, expected);
}

TEST(ProcessRunnerTest, NonZeroExitStatusIsAnOrdinaryResult) {
    const ProcessResult result = runShell("echo failing >&2; exit 23");
    EXPECT_EQ(result.status, 23);
    EXPECT_EQ(result.output, "failing\n");
}

TEST(ProcessRunnerTest, ChildKilledBySignalReportsTheSignalNumber) {
    EXPECT_EQ(runShell("kill -KILL $$").status, SIGKILL);
}

TEST(ProcessRunnerTest, GrandchildHoldingThePipeDelaysTheResult) {
    const Lines lines = linesOfShell("(sleep 1; echo from-grandchild) & echo from-child");
    EXPECT_EQ(lines, (Lines{"from-child", "from-grandchild"}));
}

// --- What the child gets -----------------------------------------------------------------------

TEST(ProcessRunnerTest, ChildReadsStandardInputFromDevNull) {
    const ProcessResult result = ProcessRunner::shared().run("/bin/cat", {});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
}

TEST(ProcessRunnerTest, ChildInheritsEnvironmentAndWorkingDirectory) {
    const ProcessResult result = runShell(R"(printf '%s\n%s' "$PATH" "$PWD")");
    const char* path = std::getenv("PATH");
    EXPECT_EQ(result.output, std::string(path ? path : "") + "\n" + std::filesystem::current_path().string());
}

TEST(ProcessRunnerTest, GivenEnvironmentReplacesTheInheritedOne) {
    ProcessRunner::Options options;
    options.environment = std::vector<std::string>{"ONLY=this"};
    const ProcessResult result = ProcessRunner::shared().run("/usr/bin/env", {}, {}, {}, options);
    EXPECT_EQ(result.output, "ONLY=this\n");
}

TEST(ProcessRunnerTest, DescriptorsWithoutCloseOnExecDoNotLeakIntoTheChild) {
    const int leaky = ::open("/dev/null", O_RDONLY);  // deliberately without O_CLOEXEC
    ASSERT_GE(leaky, 0);
    const std::string fd = std::to_string(leaky);
    const ProcessResult result =
        runShell("if [ -e /proc/$$/fd/" + fd + " ]; then echo leaked; else echo clean; fi");
    ::close(leaky);
    EXPECT_EQ(result.output, "clean\n");
}

TEST(ProcessRunnerTest, ChildGetsTheDefaultActionForBrokenPipes) {
    // With SIGPIPE ignored, yes would complain about a broken pipe instead of ending quietly.
    const ProcessResult result = runShell("yes | head -n 1");
    EXPECT_EQ(result.output, "y\n");
}

TEST(ProcessRunnerTest, ConcurrentRunsKeepTheirOwnOutput) {
    std::vector<std::string> outputs(4);
    std::vector<std::thread> threads;
    for (std::size_t index = 0; index < outputs.size(); ++index) {
        threads.emplace_back([&outputs, index] {
            outputs[index] = runShell("seq 1 2000; echo run-" + std::to_string(index)).output;
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (std::size_t index = 0; index < outputs.size(); ++index)
        EXPECT_TRUE(outputs[index].ends_with("2000\nrun-" + std::to_string(index) + "\n"));
    EXPECT_EQ(ProcessRunner::shared().runningCount(), 0u);
}

// --- Launch failures ---------------------------------------------------------------------------

TEST(ProcessRunnerTest, MissingExecutableThrowsPosixErrorNamingIt) {
    try {
        ProcessRunner::shared().run("/nonexistent/tool", {"--version"});
        FAIL() << "expected PosixError";
    } catch (const PosixError& error) {
        EXPECT_EQ(error.code(), ENOENT);
        EXPECT_NE(std::string(error.what()).find("/nonexistent/tool"), std::string::npos) << error.what();
    }
    EXPECT_EQ(ProcessRunner::shared().runningCount(), 0u);
}

TEST(ProcessRunnerTest, FileWithoutExecutePermissionThrowsPosixError) {
    test::TempDir folder;
    test::writeFile(folder / "script", "#!/bin/sh\necho never\n");
    try {
        ProcessRunner::shared().run((folder / "script").string(), {});
        FAIL() << "expected PosixError";
    } catch (const PosixError& error) {
        EXPECT_EQ(error.code(), EACCES);
    }
}

// --- Cancellation ------------------------------------------------------------------------------

// The child says "ready" and then sleeps far longer than any test runs; only SIGTERM ends it early.
const std::string sleeperScript = "echo ready; exec sleep 600";

TEST(ProcessRunnerTest, CancellingWhileRunningTerminatesTheChildAndThrowsCancelled) {
    std::stop_source stop;
    Lines lines;
    const auto onLine = [&](const std::string& line) {
        lines.push_back(line);
        if (line == "ready") stop.request_stop();
    };
    EXPECT_THROW(runShell(sleeperScript + "; echo too-late", onLine, stop.get_token()), Cancelled);
    EXPECT_EQ(lines, (Lines{"ready"}));
    EXPECT_EQ(ProcessRunner::shared().runningCount(), 0u);
}

TEST(ProcessRunnerTest, CancellationReachesTheChildEvenWhenTheCallerBlocksSigterm) {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigset_t previous;
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &blocked, &previous), 0);
    std::stop_source stop;
    const auto onLine = [&](const std::string& line) {
        if (line == "ready") stop.request_stop();
    };
    EXPECT_THROW(runShell(sleeperScript, onLine, stop.get_token()), Cancelled);
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

TEST(ProcessRunnerTest, CancellationFromAnotherThreadEndsTheRun) {
    std::stop_source stop;
    std::thread canceller;
    const auto onLine = [&](const std::string& line) {
        if (line == "ready") canceller = std::thread([&stop] { stop.request_stop(); });
    };
    EXPECT_THROW(runShell(sleeperScript, onLine, stop.get_token()), Cancelled);
    if (canceller.joinable()) canceller.join();
}

TEST(ProcessRunnerTest, CancelledRunThrowsEvenWhenTheChildFinishedNormally) {
    std::stop_source stop;
    Lines lines;
    const auto onLine = [&](const std::string& line) {
        lines.push_back(line);
        stop.request_stop();
    };
    EXPECT_THROW(runShell("echo last; exit 0", onLine, stop.get_token()), Cancelled);
    EXPECT_EQ(lines, (Lines{"last"}));
}

TEST(ProcessRunnerTest, CancelledBeforeLaunchStartsNothing) {
    test::TempDir folder;
    const auto marker = folder / "started";
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(runShell("touch '" + marker.string() + "'", {}, stop.get_token()), Cancelled);
    EXPECT_FALSE(std::filesystem::exists(marker));
    EXPECT_EQ(ProcessRunner::shared().runningCount(), 0u);
}

TEST(ProcessRunnerTest, ExceptionFromLineHandlerEndsTheChildAndPropagates) {
    const auto onLine = [](const std::string& line) {
        if (line == "ready") throw std::runtime_error("handler failed");
    };
    EXPECT_THROW(runShell(sleeperScript, onLine), std::runtime_error);
    EXPECT_EQ(ProcessRunner::shared().runningCount(), 0u);
}

// --- Exit error --------------------------------------------------------------------------------

TEST(ProcessExitErrorTest, TextHoldsStatusAndTrimmedOutput) {
    const ProcessExitError error(2, "  \n\tunzip: cannot find archive\n\r\n ");
    EXPECT_STREQ(error.what(), "Process exited with status 2: unzip: cannot find archive");
    EXPECT_EQ(error.status(), 2);
    EXPECT_EQ(error.output(), "  \n\tunzip: cannot find archive\n\r\n ");
}

TEST(ProcessExitErrorTest, BlankOutputLeavesNothingAfterTheColon) {
    EXPECT_STREQ(ProcessExitError(1, " \n ").what(), "Process exited with status 1: ");
}

}  // namespace
}  // namespace tapekeep
