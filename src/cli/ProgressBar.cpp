#include "cli/ProgressBar.h"

#include <algorithm>
#include <cstdio>

#include "core/Formatting.h"

namespace tapekeep::cli {

constexpr int barWidth = 30;
constexpr auto redrawInterval = std::chrono::milliseconds(100);

void ProgressBar::update(double fraction, std::optional<long long> filesRemaining) {
    fraction_ = std::clamp(fraction, 0.0, 1.0);
    filesRemaining_ = filesRemaining;
    if (!enabled_) return;
    const auto now = std::chrono::steady_clock::now();
    if (visible_ && now - lastDraw_ < redrawInterval && fraction_ < 1.0) return;
    lastDraw_ = now;
    draw();
}

void ProgressBar::draw() {
    const int filled = static_cast<int>(fraction_ * barWidth);
    std::string line = "\r[" + std::string(static_cast<std::size_t>(filled), '#') +
                       std::string(static_cast<std::size_t>(barWidth - filled), '.') + "] ";
    char percent[8];
    std::snprintf(percent, sizeof percent, "%3d%%", static_cast<int>(fraction_ * 100));
    line += percent;
    if (filesRemaining_) line += "  " + formatWithThousandsSeparator(*filesRemaining_) + " files remaining";
    terminal_ << line << "\x1b[K" << std::flush;
    visible_ = true;
}

void ProgressBar::printLine(const std::string& line) {
    clear();
    terminal_ << line << '\n' << std::flush;
}

void ProgressBar::clear() {
    if (!visible_) return;
    terminal_ << "\r\x1b[K" << std::flush;
    visible_ = false;
}

}  // namespace tapekeep::cli
