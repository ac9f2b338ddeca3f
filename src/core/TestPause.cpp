#include "core/TestPause.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
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

// Blocks until the file is gone: every unlink or rename of it wakes the watch.
void waitForRemoval(const std::string& file) {
    const FileDescriptor watch(::inotify_init1(IN_CLOEXEC));
    if (!watch.isOpen() ||
        ::inotify_add_watch(watch.get(), file.c_str(), IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF) < 0) {
        while (exists(file)) ::pause();  // nothing to wake us: only a kill ends this
        return;
    }
    std::array<char, 4096> events{};
    while (exists(file)) {
        if (::read(watch.get(), events.data(), events.size()) < 0 && errno != EINTR) break;
    }
}

}  // namespace

void at(std::string_view step) {
    static const std::optional<std::string> pauseAt = environmentValue("TAPEKEEP_TEST_PAUSE_AT");
    static const std::optional<std::string> marker = environmentValue("TAPEKEEP_TEST_PAUSE_MARKER");
    static std::atomic<bool> reached = false;
    if (!pauseAt || *pauseAt != step || !marker || reached.exchange(true)) return;
    writeFileAtomically(*marker, step);
    waitForRemoval(*marker);
}

}  // namespace tapekeep::TestPause
