#include "core/Timestamp.h"

#include <cstdio>
#include <ctime>

namespace tapekeep {
namespace {

// The whole second that contains `time`: to_time_t truncates toward zero, which moves an instant
// before 1970 into the following second.
std::time_t wholeSeconds(Clock::time_point time) {
    return static_cast<std::time_t>(
        std::chrono::floor<std::chrono::seconds>(time).time_since_epoch().count());
}

std::tm localParts(Clock::time_point time) {
    std::time_t seconds = wholeSeconds(time);
    std::tm parts{};
    ::localtime_r(&seconds, &parts);
    return parts;
}

std::tm utcParts(Clock::time_point time) {
    std::time_t seconds = wholeSeconds(time);
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    return parts;
}

bool allDigits(const std::string& text, std::size_t from, std::size_t count) {
    for (std::size_t i = from; i < from + count; ++i)
        if (text[i] < '0' || text[i] > '9') return false;
    return true;
}

int number(const std::string& text, std::size_t from, std::size_t count) {
    int value = 0;
    for (std::size_t i = from; i < from + count; ++i) value = value * 10 + (text[i] - '0');
    return value;
}

}  // namespace

std::string formatFolderTimestamp(Clock::time_point time) {
    std::tm parts = localParts(time);
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d-%02d%02d%02d", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

std::optional<Clock::time_point> parseFolderTimestamp(const std::string& text) {
    // yyyy-MM-dd-HHmmss: exactly 17 characters with dashes at 4, 7 and 10.
    if (text.size() != 17 || text[4] != '-' || text[7] != '-' || text[10] != '-') return std::nullopt;
    if (!allDigits(text, 0, 4) || !allDigits(text, 5, 2) || !allDigits(text, 8, 2) || !allDigits(text, 11, 6))
        return std::nullopt;
    std::tm parts{};
    parts.tm_year = number(text, 0, 4) - 1900;
    parts.tm_mon = number(text, 5, 2) - 1;
    parts.tm_mday = number(text, 8, 2);
    parts.tm_hour = number(text, 11, 2);
    parts.tm_min = number(text, 13, 2);
    parts.tm_sec = number(text, 15, 2);
    parts.tm_isdst = -1;
    if (parts.tm_mon < 0 || parts.tm_mon > 11 || parts.tm_mday < 1 || parts.tm_mday > 31 ||
        parts.tm_hour > 23 || parts.tm_min > 59 || parts.tm_sec > 60)
        return std::nullopt;
    const int month = parts.tm_mon, day = parts.tm_mday;
    std::time_t seconds = std::mktime(&parts);
    if (seconds == static_cast<std::time_t>(-1) || parts.tm_mon != month || parts.tm_mday != day)
        return std::nullopt;  // 2025-02-30 and the like
    return Clock::from_time_t(seconds);
}

std::string formatLogTimestamp(Clock::time_point time) {
    std::tm parts = utcParts(time);
    auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count() % 1000;
    if (millis < 0) millis += 1000;
    char text[96];
    std::snprintf(text, sizeof text, "%04d%02d%02d-%02d%02d%02d-%03d", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, static_cast<int>(millis));
    return text;
}

std::string formatIso8601Utc(Clock::time_point time) {
    std::tm parts = utcParts(time);
    char text[96];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

std::optional<TimePoint> parseIso8601Utc(const std::string& text) {
    // yyyy-MM-ddTHH:mm:ssZ: exactly 20 characters.
    if (text.size() != 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
        text[16] != ':' || text[19] != 'Z')
        return std::nullopt;
    if (!allDigits(text, 0, 4) || !allDigits(text, 5, 2) || !allDigits(text, 8, 2) ||
        !allDigits(text, 11, 2) || !allDigits(text, 14, 2) || !allDigits(text, 17, 2))
        return std::nullopt;
    using namespace std::chrono;
    const year_month_day date{year(number(text, 0, 4)), month(static_cast<unsigned>(number(text, 5, 2))),
                              day(static_cast<unsigned>(number(text, 8, 2)))};
    const int hour = number(text, 11, 2), minute = number(text, 14, 2), second = number(text, 17, 2);
    if (!date.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
    return sys_days(date) + hours(hour) + minutes(minute) + seconds(second);
}

}  // namespace tapekeep
