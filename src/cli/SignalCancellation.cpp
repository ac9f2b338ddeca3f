#include "cli/SignalCancellation.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <optional>
#include <string_view>

#include "cli/CliError.h"

namespace tapekeep::cli {
namespace {

std::atomic<int> signalPipe{-1};
std::atomic<SignalCancellation*> installed{nullptr};
struct sigaction previousInterrupt {};
struct sigaction previousTerminate {};
sigset_t previousMask;

constexpr char signalByte = 's';
constexpr char shutdownByte = 'q';

extern "C" void onSignal(int) {
    const int saved = errno;
    const int fd = signalPipe.load();
    if (fd >= 0) [[maybe_unused]]
        auto ignored = ::write(fd, &signalByte, 1);
    errno = saved;
}

sigset_t cancellingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

// Reads one byte, or nothing when the period passes first (a negative period waits for ever).
std::optional<char> readByteWithin(int fd, std::chrono::milliseconds period) {
    const auto until = std::chrono::steady_clock::now() + period;
    for (;;) {
        int timeout = -1;
        if (period.count() >= 0) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
            if (left.count() <= 0) return std::nullopt;
            timeout = static_cast<int>(left.count());
        }
        pollfd readable{fd, POLLIN, 0};
        const int ready = ::poll(&readable, 1, timeout);
        if (ready <= 0) continue;  // interrupted by a signal, or the time is up: decided above
        char byte = 0;
        if (::read(fd, &byte, 1) == 1) return byte;
    }
}

[[noreturn]] void endCancelled() {
    constexpr std::string_view message = "Cancelled.\n";
    [[maybe_unused]] auto written = ::write(STDERR_FILENO, message.data(), message.size());
    ::_exit(ExitCode::cancelled);
}

}  // namespace

SignalCancellation::SignalCancellation(std::chrono::milliseconds gracePeriod) : gracePeriod_(gracePeriod) {
    if (::pipe2(pipe_, O_CLOEXEC) != 0) return;  // without the pipe, signals keep their default action
    signalPipe = pipe_[1];
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, &previousInterrupt);
    ::sigaction(SIGTERM, &action, &previousTerminate);
    // Only the watcher takes the signals: every thread started from here on blocks them, so that
    // none can be handed to a thread that is stuck in the kernel and never runs the handler.
    const sigset_t signals = cancellingSignals();
    ::pthread_sigmask(SIG_BLOCK, &signals, &previousMask);
    watcher_ = std::thread([this] { watch(); });
    installed = this;
}

SignalCancellation::~SignalCancellation() {
    if (pipe_[1] < 0) return;
    installed = nullptr;
    while (::write(pipe_[1], &shutdownByte, 1) < 0 && errno == EINTR) {
    }
    watcher_.join();
    signalPipe = -1;
    ::sigaction(SIGINT, &previousInterrupt, nullptr);
    ::sigaction(SIGTERM, &previousTerminate, nullptr);
    ::pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);
    ::close(pipe_[0]);
    ::close(pipe_[1]);
}

std::stop_token SignalCancellation::token() {
    const SignalCancellation* current = installed.load();
    return current != nullptr ? current->source_.get_token() : std::stop_token();
}

void SignalCancellation::watch() {
    const sigset_t signals = cancellingSignals();
    ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    if (readByteWithin(pipe_[0], std::chrono::milliseconds(-1)) != signalByte) return;
    source_.request_stop();
    if (!shutDownWithin(gracePeriod_)) endCancelled();
}

// Further signals within the period change nothing: the first one's cancellation is under way.
bool SignalCancellation::shutDownWithin(std::chrono::milliseconds period) const {
    const auto until = std::chrono::steady_clock::now() + period;
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        if (readByteWithin(pipe_[0], left) == shutdownByte) return true;
    }
}

}  // namespace tapekeep::cli
