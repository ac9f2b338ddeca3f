#pragma once

#include <functional>
#include <string>

namespace tapekeep {

// The platform logger: subsystem "org.tapekeep.backup", category = the type's name.
// Messages go to standard error at or above the level set by TAPEKEEP_LOG_LEVEL
// (debug, info, error; default error), each on one line: control characters in a message are
// printed as visible escapes. Thread-safe.
class Log {
public:
    enum class Level { debug, info, error };

    explicit Log(std::string category) : category_(std::move(category)) {}

    void debug(const std::string& message) const { write(Level::debug, message); }
    void info(const std::string& message) const { write(Level::info, message); }
    void error(const std::string& message) const { write(Level::error, message); }

    // Non-fatal cleanup failures the user may want to see: "[Category] message" on the console
    // (standard output unless a front end redirects it, as the CLI does with --json).
    void console(const std::string& message) const;

    using Sink = std::function<void(const std::string& line)>;
    static void setConsoleSink(Sink sink);
    static void setThreshold(Level level);

private:
    void write(Level level, const std::string& message) const;
    std::string category_;
};

}  // namespace tapekeep
