#pragma once

#include <chrono>
#include <optional>
#include <ostream>
#include <string>

namespace tapekeep::cli {

// A one-line progress bar for a terminal, redrawn in place at most ten times a second.
// Log lines printed through it clear the bar first, so the two never mix on one line.
class ProgressBar {
public:
    ProgressBar(std::ostream& terminal, bool enabled) : terminal_(terminal), enabled_(enabled) {}
    ~ProgressBar() { clear(); }

    void update(double fraction, std::optional<long long> filesRemaining);
    void printLine(const std::string& line);
    void clear();

private:
    void draw();

    std::ostream& terminal_;
    bool enabled_;
    bool visible_ = false;
    double fraction_ = 0;
    std::optional<long long> filesRemaining_;
    std::chrono::steady_clock::time_point lastDraw_{};
};

}  // namespace tapekeep::cli
