#include "platform/ProcessRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "core/Cancelled.h"
#include "core/FileDescriptor.h"
#include "core/LineSplitter.h"
#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"
#include "core/Utf8.h"

extern char** environ;

namespace tapekeep {
namespace {

constexpr std::size_t readChunkSize = 64 * 1024;

struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

Pipe makePipe(const std::string& executable) {
    std::array<int, 2> fds{};
    if (::pipe2(fds.data(), O_CLOEXEC) != 0)
        throw PosixError::fromErrno(errno, "Could not create a pipe for " + executable);
    return {FileDescriptor(fds[0]), FileDescriptor(fds[1])};
}

void pollRetrying(std::array<pollfd, 2>& watched, const std::string& executable) {
    if (retryingInterrupts([&] { return ::poll(watched.data(), watched.size(), -1); }) < 0)
        throw PosixError::fromErrno(errno, "Could not wait for the output of " + executable);
}

ssize_t readRetrying(int fd, char* buffer, std::size_t size, const std::string& executable) {
    const ssize_t count = retryingInterrupts([&] { return ::read(fd, buffer, size); });
    if (count < 0) throw PosixError::fromErrno(errno, "Could not read the output of " + executable);
    return count;
}

// Nothing we run may kill us by closing a pipe early; children get the default action back.
void ignoreSigpipeOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        struct sigaction current {};
        if (::sigaction(SIGPIPE, nullptr, &current) != 0) return;
        if ((current.sa_flags & SA_SIGINFO) == 0 && current.sa_handler == SIG_DFL) ::signal(SIGPIPE, SIG_IGN);
    });
}

// Where the bytes of one stream go: the line handler's splitter, or a buffer for the output text.
class StreamSink {
public:
    explicit StreamSink(const ProcessRunner::LineHandler& onLine) {
        if (onLine) splitter_.emplace([&onLine](const std::string& line) { onLine(line); });
    }

    void append(std::string_view bytes) {
        if (splitter_) {
            splitter_->append(bytes);
        } else {
            bytes_.append(bytes);
        }
    }
    void finish() {
        if (splitter_) splitter_->finish();
    }
    [[nodiscard]] std::string text() const { return repairUtf8(bytes_); }

private:
    std::optional<LineSplitter> splitter_;
    std::string bytes_;  // everything read, when there is no line handler
};

// Reads both pipes on the calling thread until each reaches end of file.
void pumpOutput(const std::string& executable, FileDescriptor outRead, FileDescriptor errRead,
                StreamSink& out, StreamSink& err) {
    std::array<FileDescriptor, 2> ends{std::move(outRead), std::move(errRead)};
    std::array<StreamSink*, 2> sinks{&out, &err};
    std::array<pollfd, 2> watched{{{ends[0].get(), POLLIN, 0}, {ends[1].get(), POLLIN, 0}}};
    std::string buffer(readChunkSize, '\0');
    for (int open = 2; open > 0;) {
        pollRetrying(watched, executable);
        for (std::size_t index = 0; index < watched.size(); ++index) {
            if (watched[index].fd < 0 || watched[index].revents == 0) continue;
            const ssize_t count = readRetrying(watched[index].fd, buffer.data(), buffer.size(), executable);
            if (count > 0) {
                sinks[index]->append(std::string_view(buffer.data(), static_cast<std::size_t>(count)));
                continue;
            }
            ends[index].reset();
            watched[index].fd = -1;  // poll skips negative descriptors
            --open;
        }
    }
}

// A null-terminated array of C strings over strings that outlive it.
class CStringArray {
public:
    explicit CStringArray(const std::vector<std::string>& strings) {
        pointers_.reserve(strings.size() + 1);
        for (const std::string& string : strings) pointers_.push_back(const_cast<char*>(string.c_str()));
        pointers_.push_back(nullptr);
    }
    [[nodiscard]] char* const* get() const { return pointers_.data(); }

private:
    std::vector<char*> pointers_;
};

// Only async-signal-safe calls from here on: the child of a threaded process runs until exec.
[[noreturn]] void failInChild(int reportFd) {
    const int code = errno;
    [[maybe_unused]] const ssize_t written = ::write(reportFd, &code, sizeof code);
    ::_exit(127);
}

// Makes `from` the descriptor `to`, open across exec even when it already was `to`.
bool moveDescriptor(int from, int to) {
    if (from == to) return ::fcntl(to, F_SETFD, 0) == 0;
    return retryingInterrupts([&] { return ::dup2(from, to); }) >= 0;
}

// Every descriptor from `first` on closes at exec; one call where the kernel has it, else each in turn.
void markCloseOnExecFrom(int first) {
    if (::close_range(static_cast<unsigned>(first), ~0U, CLOSE_RANGE_CLOEXEC) == 0) return;
    rlimit limit{};
    const rlim_t end =
        ::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY ? limit.rlim_cur : 65536;
    for (rlim_t fd = static_cast<rlim_t>(first); fd < end; ++fd)
        ::fcntl(static_cast<int>(fd), F_SETFD, FD_CLOEXEC);
}

// In the child between fork and exec. It gets a process group of its own, so that Ctrl-C in a
// terminal reaches only us: a run is then cancelled through its own path (SIGTERM to the child,
// staging removed) instead of rsync failing under our feet. It is sent SIGTERM when the thread that
// started it ends, which run() outlives, so a killed Tapekeep leaves no rsync behind; if we died
// before that was set up, the child has a new parent already and gives up. No blocked signals
// (SIGTERM must reach it whatever the calling thread blocks) and the default action for SIGPIPE,
// which this process ignores. Standard input from /dev/null, the two pipes as standard output and
// error, and no other descriptor of ours.
[[noreturn]] void execChild(const char* path, char* const* argv, char* const* envp, pid_t parent, int outFd,
                            int errFd, int reportFd) {
    if (::setpgid(0, 0) != 0) failInChild(reportFd);
    if (::prctl(PR_SET_PDEATHSIG, SIGTERM) != 0) failInChild(reportFd);
    if (::getppid() != parent) ::_exit(127);
    sigset_t none;
    sigemptyset(&none);
    if (::sigprocmask(SIG_SETMASK, &none, nullptr) != 0) failInChild(reportFd);
    struct sigaction defaultAction {};
    defaultAction.sa_handler = SIG_DFL;
    if (::sigaction(SIGPIPE, &defaultAction, nullptr) != 0) failInChild(reportFd);
    const int nullInput = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (nullInput < 0 || !moveDescriptor(nullInput, STDIN_FILENO) || !moveDescriptor(outFd, STDOUT_FILENO) ||
        !moveDescriptor(errFd, STDERR_FILENO))
        failInChild(reportFd);
    // Descriptors that other code opened without O_CLOEXEC must not leak into the child either; the
    // report pipe is marked close-on-exec and so stays open until the exec succeeds.
    markCloseOnExecFrom(STDERR_FILENO + 1);
    ::execve(path, argv, envp);
    failInChild(reportFd);
}

// What the child is started with; built before the launch so that it needs no allocation then.
class ChildCommand {
public:
    ChildCommand(const std::string& executable, const std::vector<std::string>& arguments,
                 const std::optional<std::vector<std::string>>& environment)
        : argvStrings_(makeArgv(executable, arguments)),
          argv_(argvStrings_),
          environment_(environment ? std::optional<CStringArray>(*environment) : std::nullopt) {}
    ChildCommand(const ChildCommand&) = delete;  // argv_ points into argvStrings_
    ChildCommand& operator=(const ChildCommand&) = delete;

    [[nodiscard]] const std::string& executable() const { return argvStrings_.front(); }

    // Forks and executes the program; returns once the child runs it, or throws the reason it could
    // not. Between fork and exec the child makes only async-signal-safe calls on what was prepared here.
    pid_t spawn(int outFd, int errFd) const {
        Pipe execReport = makePipe(executable());  // closed by a successful exec, else carries errno
        char* const* envp = environment_ ? environment_->get() : environ;
        const pid_t parent = ::getpid();
        const pid_t pid = ::fork();
        if (pid < 0) throw PosixError::fromErrno(errno, "Could not start " + executable());
        if (pid == 0)
            execChild(executable().c_str(), argv_.get(), envp, parent, outFd, errFd,
                      execReport.writeEnd.get());
        execReport.writeEnd.reset();
        int childErrno = 0;
        const ssize_t count = retryingInterrupts(
            [&] { return ::read(execReport.readEnd.get(), &childErrno, sizeof childErrno); });
        if (count <= 0) return pid;
        ::waitpid(pid, nullptr, 0);
        throw PosixError::fromErrno(childErrno, "Could not start " + executable());
    }

private:
    static std::vector<std::string> makeArgv(const std::string& executable,
                                             const std::vector<std::string>& arguments) {
        std::vector<std::string> argv;
        argv.reserve(arguments.size() + 1);
        argv.push_back(executable);
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        return argv;
    }

    std::vector<std::string> argvStrings_;  // the executable, then the arguments
    CStringArray argv_;
    std::optional<CStringArray> environment_;
};

int exitStatus(int waitStatus) {
    if (WIFEXITED(waitStatus)) return WEXITSTATUS(waitStatus);
    if (WIFSIGNALED(waitStatus)) return WTERMSIG(waitStatus);
    return waitStatus;
}

std::string joinOutput(std::string out, const std::string& err) {
    if (!out.empty() && !err.empty() && out.back() != '\n') out.push_back('\n');
    out += err;
    return out;
}

}  // namespace

// One child from its launch until it has been reaped. The calling thread of run() launches, waits
// and reaps; cancel() may come from any thread.
class ProcessRunner::Execution {
public:
    // Launches the child, reads both pipes to their end and reaps it; returns the wait status.
    int run(const ChildCommand& command, StreamSink& out, StreamSink& err) {
        const std::string& executable = command.executable();
        Pipe outPipe = makePipe(executable);
        Pipe errPipe = makePipe(executable);
        if (!launch(command, outPipe.writeEnd.get(), errPipe.writeEnd.get())) throw Cancelled();
        // Only the child holds the write ends now: end of file means it and its heirs closed them.
        outPipe.writeEnd.reset();
        errPipe.writeEnd.reset();
        try {
            pumpOutput(executable, std::move(outPipe.readEnd), std::move(errPipe.readEnd), out, err);
        } catch (...) {
            terminateAndReap();
            throw;
        }
        return waitForExit();
    }

    void cancel() {
        std::lock_guard guard(lock_);
        cancelled_ = true;
        terminateLocked();
    }

private:
    // Starts the child unless cancellation came first; false means nothing was started.
    bool launch(const ChildCommand& command, int outFd, int errFd) {
        std::lock_guard guard(lock_);
        if (cancelled_) return false;
        pid_ = command.spawn(outFd, errFd);
        return true;
    }

    // Waits until the child has ended, then reaps it under the lock, so that cancel() can never
    // signal a process id that the system has already handed to someone else.
    int waitForExit() {
        const pid_t pid = childPid();
        siginfo_t info{};
        if (retryingInterrupts(
                [&] { return ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT); }) != 0)
            throw PosixError::fromErrno(errno, "Could not wait for a child process");
        std::lock_guard guard(lock_);
        int waitStatus = 0;
        if (retryingInterrupts([&] { return ::waitpid(pid, &waitStatus, 0); }) < 0)
            throw PosixError::fromErrno(errno, "Could not reap a child process");
        pid_ = -1;
        return waitStatus;
    }

    // After a failure while reading: ask the child to end and leave no zombie behind.
    void terminateAndReap() noexcept {
        {
            std::lock_guard guard(lock_);
            terminateLocked();
        }
        try {
            waitForExit();
        } catch (const PosixError&) {
            // The child is gone either way; the original error is the one to report.
        }
    }

    pid_t childPid() {
        std::lock_guard guard(lock_);
        return pid_;
    }

    void terminateLocked() {
        if (pid_ > 0 && !terminateSent_) {
            ::kill(pid_, SIGTERM);
            terminateSent_ = true;
        }
    }

    std::mutex lock_;
    bool cancelled_ = false;      // guarded by lock_
    bool terminateSent_ = false;  // guarded by lock_
    pid_t pid_ = -1;              // guarded by lock_; the child from launch until it is reaped
};

// Keeps an execution in the registry for exactly as long as run() handles it.
class ProcessRunner::Registration {
public:
    Registration(ProcessRunner& runner, std::shared_ptr<Execution> execution)
        : runner_(runner), key_(execution.get()) {
        std::lock_guard guard(runner_.registryLock_);
        runner_.running_.emplace(key_, std::move(execution));
    }
    ~Registration() {
        std::lock_guard guard(runner_.registryLock_);
        runner_.running_.erase(key_);
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

private:
    ProcessRunner& runner_;
    const Execution* key_;
};

ProcessRunner& ProcessRunner::shared() {
    static ProcessRunner runner;
    return runner;
}

std::size_t ProcessRunner::runningCount() const {
    std::lock_guard guard(registryLock_);
    return running_.size();
}

std::map<std::string, std::size_t> ProcessRunner::runCounts() const {
    std::lock_guard guard(registryLock_);
    return runCounts_;
}

ProcessResult ProcessRunner::run(const std::string& executable, const std::vector<std::string>& arguments,
                                 const LineHandler& onLine, std::stop_token token, const Options& options) {
    throwIfCancelled(token);
    ignoreSigpipeOnce();
    const ChildCommand command(executable, arguments, options.environment);
    {
        std::lock_guard guard(registryLock_);
        ++runCounts_[std::filesystem::path(executable).filename().string()];
    }
    auto execution = std::make_shared<Execution>();
    const Registration registration(*this, execution);
    StreamSink out(onLine);
    StreamSink err(onLine);
    int waitStatus = 0;
    {
        std::stop_callback onStop(token, [&execution] { execution->cancel(); });
        waitStatus = execution->run(command, out, err);
    }
    out.finish();
    err.finish();
    throwIfCancelled(token);
    ProcessResult result;
    result.status = exitStatus(waitStatus);
    if (!onLine) result.output = joinOutput(out.text(), err.text());
    return result;
}

}  // namespace tapekeep
