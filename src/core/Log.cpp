#include "core/Log.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "core/Utf8.h"

namespace tapekeep {
namespace {

std::mutex& logMutex() {
    static std::mutex mutex;
    return mutex;
}

Log::Level levelFromEnvironment() {
    const char* value = std::getenv("TAPEKEEP_LOG_LEVEL");
    if (value == nullptr) return Log::Level::error;
    if (std::strcmp(value, "debug") == 0) return Log::Level::debug;
    if (std::strcmp(value, "info") == 0) return Log::Level::info;
    return Log::Level::error;
}

Log::Level& threshold() {
    static Log::Level level = levelFromEnvironment();
    return level;
}

Log::Sink& consoleSink() {
    static Log::Sink sink;
    return sink;
}

const char* levelName(Log::Level level) {
    switch (level) {
        case Log::Level::debug:
            return "debug";
        case Log::Level::info:
            return "info";
        case Log::Level::error:
            return "error";
    }
    return "";
}

}  // namespace

void Log::setConsoleSink(Sink sink) {
    std::lock_guard lock(logMutex());
    consoleSink() = std::move(sink);
}

void Log::setThreshold(Level level) {
    std::lock_guard lock(logMutex());
    threshold() = level;
}

void Log::write(Level level, const std::string& message) const {
    std::lock_guard lock(logMutex());
    if (level < threshold()) return;
    // One line each, whatever a name in the message holds.
    std::fprintf(stderr, "org.tapekeep.backup [%s] %s: %s\n", category_.c_str(), levelName(level),
                 escapedControlCharacters(message).c_str());
}

void Log::console(const std::string& message) const {
    const std::string line = "[" + category_ + "] " + escapedControlCharacters(message);
    std::lock_guard lock(logMutex());
    if (consoleSink()) {
        consoleSink()(line);
        return;
    }
    std::fprintf(stdout, "%s\n", line.c_str());
    std::fflush(stdout);
}

}  // namespace tapekeep
