#include "core/TestPause.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "core/AtomicFile.h"
#include "core/FileDescriptor.h"

namespace tapekeep::TestPause {

namespace {

std::optional<std::string> environmentValue(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || value[0] == '\0') return std::nullopt;
    return std::string(value);
}

bool exists(const std::string& file) {
    struct stat status {};
    return ::lstat(file.c_str(), &status) == 0;
}

// Blocks until the file is gone (every unlink or rename of it wakes the watch) or a stop is
// requested (the callback wakes the event descriptor).
void waitForRemoval(const std::string& file, const std::stop_token& token) {
    const FileDescriptor watch(::inotify_init1(IN_CLOEXEC));
    const FileDescriptor stopped(::eventfd(0, EFD_CLOEXEC));
    if (!watch.isOpen() || !stopped.isOpen() ||
        ::inotify_add_watch(watch.get(), file.c_str(), IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF) < 0) {
        while (exists(file) && !token.stop_requested())
            ::pause();  // nothing to wake us: only a kill ends this
        return;
    }
    const std::stop_callback wake(token, [&stopped] {
        const std::uint64_t one = 1;
        [[maybe_unused]] auto written = ::write(stopped.get(), &one, sizeof one);
    });
    std::array<char, 4096> events{};
    while (exists(file) && !token.stop_requested()) {
        std::array<pollfd, 2> ready{pollfd{watch.get(), POLLIN, 0}, pollfd{stopped.get(), POLLIN, 0}};
        if (::poll(ready.data(), ready.size(), -1) < 0 && errno != EINTR) break;
        if ((ready[0].revents & POLLIN) != 0 && ::read(watch.get(), events.data(), events.size()) < 0 &&
            errno != EINTR)
            break;
    }
}

}  // namespace

void at(std::string_view step) {
    at(step, std::stop_token());
}

void at(std::string_view step, const std::stop_token& token) {
    static const std::optional<std::string> pauseAt = environmentValue("TAPEKEEP_TEST_PAUSE_AT");
    static const std::optional<std::string> marker = environmentValue("TAPEKEEP_TEST_PAUSE_MARKER");
    static std::atomic<bool> reached = false;
    if (!pauseAt || *pauseAt != step || !marker || reached.exchange(true)) return;
    writeFileAtomically(*marker, step);
    waitForRemoval(*marker, token);
}

}  // namespace tapekeep::TestPause
