#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace tapekeep {

struct ProcessResult {
    int status = 0;      // exit status; for a child killed by a signal, the signal number
    std::string output;  // both streams decoded, when no line handler was given
};

// Runs every external program of the application: fork and exec with one pipe for standard output
// and one for standard error, standard input from /dev/null, the caller's working directory, a
// process group of its own, and no other descriptor of ours. No child outlives us: each is sent
// SIGTERM when we die, even by SIGKILL. A non-zero exit status is an ordinary result; callers
// decide what it means. Thread-safe; run() blocks its calling thread, which is also where onLine
// is called.
class ProcessRunner {
public:
    using LineHandler = std::function<void(const std::string& line)>;

    struct Options {
        // The child's whole environment as "NAME=value"; absent inherits this process's.
        std::optional<std::vector<std::string>> environment;
    };

    static ProcessRunner& shared();

    ProcessRunner() = default;
    ProcessRunner(const ProcessRunner&) = delete;
    ProcessRunner& operator=(const ProcessRunner&) = delete;

    // With onLine, each CR- or LF-terminated non-empty line of either stream (and the last
    // partial line) is handed over in order within its stream; output then stays empty. Without
    // it, output is standard output then standard error (starting on a line of its own), with
    // invalid UTF-8 repaired.
    // The result comes only after the child has ended and both pipes are closed, so a grandchild
    // that keeps a pipe open delays it.
    // Cancellation sends the child SIGTERM once and throws Cancelled after it has ended,
    // even when it ended normally; cancelled before the launch, nothing starts. Throws PosixError
    // when the program cannot be started. An exception from onLine terminates the child, waits
    // for it and propagates.
    ProcessResult run(const std::string& executable, const std::vector<std::string>& arguments,
                      const LineHandler& onLine = {}, std::stop_token token = {},
                      const Options& options = {});

    // How many children are running now.
    [[nodiscard]] std::size_t runningCount() const;

    // How many runs this runner was asked for, by the file name of their program ("rsync"):
    // what a measurement of Tapekeep's own cost counts.
    [[nodiscard]] std::map<std::string, std::size_t> runCounts() const;

private:
    class Execution;
    class Registration;
    mutable std::mutex registryLock_;
    std::map<const Execution*, std::shared_ptr<Execution>> running_;  // guarded by registryLock_
    std::map<std::string, std::size_t> runCounts_;                    // guarded by registryLock_
};

}  // namespace tapekeep
