#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace tapekeep {

// Turns the bytes of one output stream into lines: LF or CR ends a line (so rsync's CR-refreshed
// progress arrives line by line), invalid UTF-8 is repaired with U+FFFD, empty lines are dropped,
// and finish() delivers the last unterminated line. This is the hot path of every backup.
class LineSplitter {
public:
    using LineHandler = std::function<void(const std::string& line)>;

    explicit LineSplitter(LineHandler onLine) : onLine_(std::move(onLine)) {}

    void append(std::string_view bytes);
    void finish();

private:
    LineHandler onLine_;
    std::string pending_;  // bytes of the unfinished line
};

}  // namespace tapekeep
