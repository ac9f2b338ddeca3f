#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace tapekeep {

using Clock = std::chrono::system_clock;
using TimePoint = std::chrono::time_point<Clock, std::chrono::seconds>;

// "yyyy-MM-dd-HHmmss" in the machine's local time zone, as version folders are named.
std::string formatFolderTimestamp(Clock::time_point time);
std::optional<Clock::time_point> parseFolderTimestamp(const std::string& text);

// "yyyyMMdd-HHmmss-SSS" in UTC, as log files are named.
std::string formatLogTimestamp(Clock::time_point time);

// "yyyy-MM-ddTHH:mm:ssZ" in UTC.
std::string formatIso8601Utc(Clock::time_point time);
// The same form read back; anything else, fractional seconds included, is nothing.
std::optional<TimePoint> parseIso8601Utc(const std::string& text);

}  // namespace tapekeep
