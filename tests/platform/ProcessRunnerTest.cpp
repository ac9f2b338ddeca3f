#include "platform/ProcessRunner.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>
#include <thread>

#include "LiveProcesses.h"
#include "TempDir.h"
#include "core/Cancelled.h"
#include "core/PosixError.h"
#include "platform/ProcessExitError.h"

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

// ---- lines and output -------------------------------------------------------------------------

TEST(ProcessRunnerTest, LinesEndAtEachTerminatorAndAreRepaired) {
    // The splitting itself is the line splitter's; these show that both streams go through it.
    const std::vector<std::pair<std::string, Lines>> cases{
        {R"(printf 'one\ntwo\rthree\r\n\n\r\n  1%%\r')", {"one", "two", "three", "  1%"}},
        {R"(printf 'caf\303\251 \377x\n' >&2)", {"caf\u00e9 \uFFFDx"}},
        {"(sleep 1; echo from-grandchild) & echo from-child", {"from-child", "from-grandchild"}},
    };
    for (const auto& [script, expected] : cases) EXPECT_EQ(linesOfShell(script), expected) << script;
}

TEST(ProcessRunnerTest, LinesOfBothStreamsArriveAndKeepTheirOrderAcrossReadChunks) {
    Lines lines = linesOfShell("echo to-err >&2; seq 1 50000");
    ASSERT_EQ(lines.size(), 50001u);
    lines.erase(std::find(lines.begin(), lines.end(), "to-err"));
    for (std::size_t index = 0; index < lines.size(); ++index)
        ASSERT_EQ(lines[index], std::to_string(index + 1));
}

TEST(ProcessRunnerTest, WithoutHandlerOutputHoldsStandardOutputThenStandardErrorWhole) {
    EXPECT_EQ(runShell("echo err >&2; printf 'caf\\303\\251 \\377x'").output, "caf\u00e9 \uFFFDx\nerr\n");
    EXPECT_TRUE(runShell("echo hello", [](const std::string&) {}).output.empty());
    std::string expected;
    for (int number = 1; number <= 100000; ++number) expected += std::to_string(number) + "\n";
    EXPECT_EQ(runShell("seq 1 100000").output, expected);
}

TEST(ProcessRunnerTest, RunsAreCountedByTheNameOfTheirProgram) {
    ProcessRunner runner;
    runner.run("/bin/sh", {"-c", "exit 3"});
    runner.run("/bin/sh", {"-c", "true"});
    runner.run("/usr/bin/env", {"true"});
    const std::map<std::string, std::size_t> expected{{"env", 1}, {"sh", 2}};
    EXPECT_EQ(runner.runCounts(), expected);
}

TEST(ProcessRunnerTest, ExitStatusAndSignalAreOrdinaryResults) {
    const ProcessResult failed = runShell("echo failing >&2; exit 23");
    EXPECT_EQ(failed.status, 23);
    EXPECT_EQ(failed.output, "failing\n");
    EXPECT_EQ(runShell("kill -KILL $$").status, SIGKILL);
}

// ---- what the child gets ----------------------------------------------------------------------

TEST(ProcessRunnerTest, ChildGetsNullInputTheEnvironmentAndNoLeakedDescriptors) {
    EXPECT_EQ(ProcessRunner::shared().run("/bin/cat", {}).output, "");
    const char* path = std::getenv("PATH");
    EXPECT_EQ(runShell(R"(printf '%s\n%s' "$PATH" "$PWD")").output,
              std::string(path ? path : "") + "\n" + std::filesystem::current_path().string());
    ProcessRunner::Options options;
    options.environment = Lines{"ONLY=this"};
    EXPECT_EQ(ProcessRunner::shared().run("/usr/bin/env", {}, {}, {}, options).output, "ONLY=this\n");

    const int leaky = ::open("/dev/null", O_RDONLY);  // deliberately without O_CLOEXEC
    ASSERT_GE(leaky, 0);
    const auto result =
        runShell("[ -e /proc/$$/fd/" + std::to_string(leaky) + " ] && echo leaked || echo clean");
    ::close(leaky);
    EXPECT_EQ(result.output, "clean\n");
    // With SIGPIPE ignored, yes would complain about a broken pipe instead of ending quietly.
    EXPECT_EQ(runShell("yes | head -n 1").output, "y\n");
}

TEST(ProcessRunnerTest, ConcurrentRunsKeepTheirOwnOutput) {
    std::vector<std::string> outputs(4);
    std::vector<std::thread> threads;
    for (std::size_t index = 0; index < outputs.size(); ++index)
        threads.emplace_back([&outputs, index] {
            outputs[index] = runShell("seq 1 2000; echo run-" + std::to_string(index)).output;
        });
    for (std::thread& thread : threads) thread.join();
    for (std::size_t index = 0; index < outputs.size(); ++index)
        EXPECT_TRUE(outputs[index].ends_with("2000\nrun-" + std::to_string(index) + "\n"));
    EXPECT_EQ(ProcessRunner::shared().runningCount(), 0u);
}

TEST(ProcessRunnerTest, LaunchFailureThrowsPosixErrorNamingTheExecutable) {
    test::TempDir folder;
    test::writeFile(folder / "script", "#!/bin/sh\necho never\n");  // not executable
    for (const auto& [path, code] : {std::pair{std::string("/nonexistent/tool"), ENOENT},
                                     std::pair{(folder / "script").string(), EACCES}}) {
        try {
            ProcessRunner::shared().run(path, {"--version"});
            ADD_FAILURE() << path << " ran";
        } catch (const PosixError& error) {
            EXPECT_EQ(error.code(), code);
            EXPECT_NE(std::string(error.what()).find(path), std::string::npos) << error.what();
        }
    }
    EXPECT_EQ(ProcessRunner::shared().runningCount(), 0u);
}

// ---- cancellation -----------------------------------------------------------------------------

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
    EXPECT_EQ(lines, Lines{"ready"});
    EXPECT_EQ(ProcessRunner::shared().runningCount(), 0u);
}

// The stop comes from another thread, while the caller blocks SIGTERM for itself.
TEST(ProcessRunnerTest, CancellationFromAnotherThreadReachesTheChildEvenWhenTheCallerBlocksSigterm) {
    sigset_t blocked, previous;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &blocked, &previous), 0);
    std::stop_source stop;
    std::thread canceller;
    const auto onLine = [&](const std::string&) {
        canceller = std::thread([&stop] { stop.request_stop(); });
    };
    EXPECT_THROW(runShell(sleeperScript, onLine, stop.get_token()), Cancelled);
    if (canceller.joinable()) canceller.join();
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

TEST(ProcessRunnerTest, CancelledRunThrowsEvenWhenTheChildFinishedNormallyOrNeverStarted) {
    std::stop_source stop;
    EXPECT_THROW(runShell(
                     "echo last; exit 0", [&](const std::string&) { stop.request_stop(); }, stop.get_token()),
                 Cancelled);
    test::TempDir folder;
    EXPECT_THROW(runShell("touch '" + (folder / "started").string() + "'", {}, stop.get_token()), Cancelled);
    EXPECT_FALSE(std::filesystem::exists(folder / "started"));
}

TEST(ProcessRunnerTest, ExceptionFromLineHandlerEndsTheChildAndPropagates) {
    const auto onLine = [](const std::string&) { throw std::runtime_error("handler failed"); };
    EXPECT_THROW(runShell(sleeperScript, onLine), std::runtime_error);
    EXPECT_EQ(ProcessRunner::shared().runningCount(), 0u);
}

// ---- children die with us -------------------------------------------------------------------

// A process that runs a child through the runner is killed with SIGKILL, so it cannot clean up:
// the child, which would otherwise sleep for ten minutes, ends with it.
TEST(ProcessRunnerTest, AChildDoesNotOutliveAProcessKilledOutright) {
    test::TempDir folder;
    const std::string pidFile = (folder / "child.pid").string();
    const pid_t middle = ::fork();
    ASSERT_GE(middle, 0);
    if (middle == 0) {
        ProcessRunner::shared().run("/bin/sh", {"-c", "echo $$ > '" + pidFile + ".new' && mv '" + pidFile +
                                                          ".new' '" + pidFile + "' && exec sleep 600"});
        ::_exit(0);
    }
    ASSERT_TRUE(test::waitUntil([&] { return std::filesystem::exists(pidFile); }, std::chrono::seconds(30)));
    const pid_t child = std::stoi(test::readFile(pidFile));
    ASSERT_TRUE(test::isLive(child));
    ::kill(middle, SIGKILL);
    ASSERT_EQ(::waitpid(middle, nullptr, 0), middle);
    EXPECT_TRUE(test::waitUntil([&] { return !test::isLive(child); }, std::chrono::seconds(30)));
    if (test::isLive(child)) ::kill(child, SIGKILL);
}

TEST(ProcessExitErrorTest, TextHoldsStatusAndTrimmedOutput) {
    const ProcessExitError error(2, "  \n\tunzip: cannot find archive\n\r\n ");
    EXPECT_STREQ(error.what(), "Process exited with status 2: unzip: cannot find archive");
    EXPECT_EQ(error.status(), 2);
    EXPECT_EQ(error.output(), "  \n\tunzip: cannot find archive\n\r\n ");
    EXPECT_STREQ(ProcessExitError(1, " \n ").what(), "Process exited with status 1: ");
}

}  // namespace
}  // namespace tapekeep
