#include "cli/SignalCancellation.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>

namespace tapekeep::cli {
namespace {

std::atomic<int> signalPipe{-1};
struct sigaction previousInterrupt {};
struct sigaction previousTerminate {};

constexpr char signalByte = 's';
constexpr char shutdownByte = 'q';

extern "C" void onSignal(int) {
    const int saved = errno;
    const int fd = signalPipe.load();
    if (fd >= 0) [[maybe_unused]]
        auto ignored = ::write(fd, &signalByte, 1);
    errno = saved;
}

}  // namespace

SignalCancellation::SignalCancellation() {
    if (::pipe2(pipe_, O_CLOEXEC) != 0) return;  // without the pipe, signals keep their default action
    signalPipe = pipe_[1];
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, &previousInterrupt);
    ::sigaction(SIGTERM, &action, &previousTerminate);
    watcher_ = std::thread([this] { watch(); });
}

SignalCancellation::~SignalCancellation() {
    if (pipe_[1] < 0) return;
    ::sigaction(SIGINT, &previousInterrupt, nullptr);
    ::sigaction(SIGTERM, &previousTerminate, nullptr);
    signalPipe = -1;
    while (::write(pipe_[1], &shutdownByte, 1) < 0 && errno == EINTR) {
    }
    watcher_.join();
    ::close(pipe_[0]);
    ::close(pipe_[1]);
}

void SignalCancellation::watch() {
    char byte = 0;
    for (;;) {
        ssize_t count = ::read(pipe_[0], &byte, 1);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0 || byte == shutdownByte) return;
        source_.request_stop();
    }
}

}  // namespace tapekeep::cli
