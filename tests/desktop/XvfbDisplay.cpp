#include "XvfbDisplay.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tapekeep::test {

namespace {

const char* const xvfbPath = "/usr/bin/Xvfb";

std::string readDisplayNumber(int fd) {
    std::string number;
    pollfd waiting{fd, POLLIN, 0};
    // Xvfb writes the number once it listens; ten seconds covers a loaded machine.
    while (::poll(&waiting, 1, 10'000) > 0) {
        char buffer[32];
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count <= 0) break;
        number.append(buffer, static_cast<std::size_t>(count));
        if (number.find('\n') != std::string::npos) break;
    }
    while (!number.empty() && (number.back() == '\n' || number.back() == ' ')) number.pop_back();
    return number;
}

}  // namespace

XvfbDisplay::XvfbDisplay() {
    if (::access(xvfbPath, X_OK) != 0) {
        whyUnavailable_ = "Xvfb is not installed (package xvfb)";
        return;
    }
    int fds[2];
    if (::pipe(fds) != 0) {
        whyUnavailable_ = std::string("pipe: ") + std::strerror(errno);
        return;
    }
    pid_ = ::fork();
    if (pid_ == 0) {
        ::close(fds[0]);
        const std::string fd = std::to_string(fds[1]);
        ::execl(xvfbPath, "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "1400x900x24", "-nolisten", "tcp",
                "-noreset", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(fds[1]);
    const std::string number = pid_ > 0 ? readDisplayNumber(fds[0]) : std::string();
    ::close(fds[0]);
    if (number.empty()) {
        whyUnavailable_ = "Xvfb did not start";
        return;
    }
    name_ = ":" + number;
}

XvfbDisplay::~XvfbDisplay() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace tapekeep::test
