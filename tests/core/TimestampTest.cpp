#include "core/Timestamp.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace tapekeep {
namespace {

using namespace std::chrono;

// Sets the process's time zone for one test and puts the old one back.
class TimeZone {
public:
    explicit TimeZone(const char* zone) {
        if (const char* current = std::getenv("TZ")) previous_ = current;
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    ~TimeZone() {
        if (previous_) {
            ::setenv("TZ", previous_->c_str(), 1);
        } else {
            ::unsetenv("TZ");
        }
        ::tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    std::optional<std::string> previous_;
};

Clock::time_point utc(int year, unsigned month, unsigned day, int hour, int minute, int second,
                      int millisecond = 0) {
    const sys_days date =
        year_month_day{std::chrono::year{year}, std::chrono::month{month}, std::chrono::day{day}};
    return Clock::time_point(date + hours{hour} + minutes{minute} + seconds{second} +
                             milliseconds{millisecond});
}

const char* const zones[] = {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0",
                             "NZST-12NZDT,M9.5.0,M4.1.0/3", "<+0530>-5:30"};

TEST(TimestampTest, FolderTimestampRoundTripsInEveryTimeZone) {
    const std::vector<Clock::time_point> times{utc(2025, 7, 1, 23, 59, 59), utc(2024, 2, 29, 0, 0, 0),
                                               utc(2038, 1, 19, 3, 14, 8)};
    for (const char* zone : zones) {
        TimeZone timeZone(zone);
        for (const auto& time : times) {
            const std::string text = formatFolderTimestamp(time);
            EXPECT_EQ(parseFolderTimestamp(text), time) << zone << " " << text;
        }
    }
}

TEST(TimestampTest, FolderTimestampIsLocalTime) {
    {
        TimeZone timeZone("CET-1CEST,M3.5.0,M10.5.0/3");
        EXPECT_EQ(formatFolderTimestamp(utc(2025, 7, 1, 10, 0, 0)), "2025-07-01-120000");
        EXPECT_EQ(formatFolderTimestamp(utc(2025, 1, 1, 10, 0, 0)), "2025-01-01-110000");
    }
    {
        TimeZone timeZone("EST5EDT,M3.2.0,M11.1.0");
        EXPECT_EQ(parseFolderTimestamp("2025-01-01-120000"), utc(2025, 1, 1, 17, 0, 0));
        EXPECT_EQ(formatFolderTimestamp(utc(2025, 1, 1, 3, 4, 5)), "2024-12-31-220405");
    }
}

TEST(TimestampTest, InvalidFolderTimestampsAreRefused) {
    TimeZone timeZone("UTC0");
    for (const char* text :
         {"", "2025-02-30-120000", "2023-02-29-120000", "2025-1-01-120000", "2025-01-01-120000 ",
          " 2025-01-01-120000", "backup-2025-01-01-120000", "2025-13-01-120000", "2025-00-10-120000",
          "2025-01-01-240000", "2025-01-01-126000", "2025-01-01T120000", "+025-01-01-120000"})
        EXPECT_EQ(parseFolderTimestamp(text), std::nullopt) << '"' << text << '"';
    EXPECT_TRUE(parseFolderTimestamp("2024-02-29-120000"));
}

TEST(TimestampTest, LogAndIso8601TimestampsAreUtc) {
    TimeZone timeZone("NZST-12NZDT,M9.5.0,M4.1.0/3");
    EXPECT_EQ(formatLogTimestamp(utc(2025, 1, 2, 3, 4, 5, 67)), "20250102-030405-067");
    EXPECT_EQ(formatLogTimestamp(utc(2025, 6, 1, 0, 0, 0) + microseconds(1500)), "20250601-000000-001");
    EXPECT_EQ(formatIso8601Utc(utc(2025, 7, 1, 10, 0, 0, 500)), "2025-07-01T10:00:00Z");
}

TEST(TimestampTest, FractionsOfASecondAreDroppedEvenBeforeTheEpoch) {
    TimeZone timeZone("UTC0");
    EXPECT_EQ(formatFolderTimestamp(utc(2025, 3, 4, 5, 6, 7, 999)), "2025-03-04-050607");
    const auto justBefore = utc(1970, 1, 1, 0, 0, 0) - milliseconds(1);
    EXPECT_EQ(formatLogTimestamp(justBefore), "19691231-235959-999");
    EXPECT_EQ(formatIso8601Utc(justBefore), "1969-12-31T23:59:59Z");
    EXPECT_EQ(formatFolderTimestamp(justBefore), "1969-12-31-235959");
}

}  // namespace
}  // namespace tapekeep
