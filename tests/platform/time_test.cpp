// Time: FILETIME and SYSTEMTIME conversions and local time.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "platform/win32api.h"
#include "tests/support/platform_testing.h"

namespace {

ULONGLONG ticks(const FILETIME& t) {
    return (static_cast<ULONGLONG>(t.dwHighDateTime) << 32) | t.dwLowDateTime;
}

FILETIME file_time(ULONGLONG ticks) {
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

SYSTEMTIME date(WORD year, WORD month, WORD day, WORD hour = 0, WORD minute = 0, WORD second = 0,
                WORD ms = 0) {
    return SYSTEMTIME{year, month, 0, day, hour, minute, second, ms};
}

// Every field, the day of the week last, so one comparison shows all.
std::string show(const SYSTEMTIME& t) {
    char text[64];
    std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%02d.%03d d%d", t.wYear, t.wMonth,
                  t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds, t.wDayOfWeek);
    return text;
}

constexpr ULONGLONG kSecond = 10'000'000;
constexpr ULONGLONG kHour = 3600 * kSecond;

using TimeZone = qz::testing::ScopedEnvironment;

TEST(FileTime, KnownInstantsConvertBothWaysInvalidTimesAndRangeEndsAreRefused) {
    struct Case {
        SYSTEMTIME time;
        ULONGLONG ticks;
        WORD day_of_week;
    } cases[] = {
        {date(1601, 1, 1), 0, 1},                      // Monday
        {date(1970, 1, 1), 116444736000000000ull, 4},  // Thursday
        {date(2000, 1, 1), 125911584000000000ull, 6},  // Saturday
        {date(2000, 2, 29, 23, 59, 59, 999), 125963423999990000ull, 2},
        {date(2100, 3, 1), 157520160000000000ull, 1},  // 2100 is no leap year
        {date(30827, 12, 31, 23, 59, 59, 999), 0x7FFF35F4F06C58F0ull, 5},
    };
    for (Case& c : cases) {
        FILETIME ft{};
        ASSERT_TRUE(SystemTimeToFileTime(&c.time, &ft));
        EXPECT_EQ(ticks(ft), c.ticks);
        SYSTEMTIME back{};
        ASSERT_TRUE(FileTimeToSystemTime(&ft, &back));
        c.time.wDayOfWeek = c.day_of_week;
        EXPECT_EQ(show(back), show(c.time));
    }
    // Year, month, day, hour, minute, second, milliseconds.
    const WORD bad[][7] = {
        {2001, 0, 1, 0, 0, 0, 0},    {2001, 13, 1, 0, 0, 0, 0},  {2001, 2, 29, 0, 0, 0, 0},
        {1900, 2, 29, 0, 0, 0, 0},   {2001, 4, 31, 0, 0, 0, 0},  {2001, 1, 1, 24, 0, 0, 0},
        {2001, 1, 1, 0, 0, 0, 1000}, {1600, 12, 31, 0, 0, 0, 0}, {30828, 1, 1, 0, 0, 0, 0}};
    for (const WORD* w : bad) {
        const SYSTEMTIME t = date(w[0], w[1], w[2], w[3], w[4], w[5], w[6]);
        FILETIME ft{0x1234, 0x5678};
        SetLastError(0);
        EXPECT_FALSE(SystemTimeToFileTime(&t, &ft)) << show(t);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
        EXPECT_EQ(ft.dwLowDateTime, 0x1234u);  // untouched
    }
    const FILETIME last = file_time(0x7FFFFFFFFFFFFFFFull);
    SYSTEMTIME st{};
    ASSERT_TRUE(FileTimeToSystemTime(&last, &st));
    EXPECT_EQ(show(st).substr(0, 11), "30828-09-14");
    const FILETIME negative = file_time(0x8000000000000000ull);
    EXPECT_FALSE(FileTimeToSystemTime(&negative, &st));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST(LocalTime, FollowsTheZoneAndItsSummerTime) {
    TimeZone zone("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    struct Case {
        SYSTEMTIME utc;
        WORD local_hour;
    } cases[] = {
        {date(2021, 1, 15, 12), 13},       {date(2021, 7, 15, 12), 14},
        {date(2021, 3, 28, 0, 59, 59), 1},  // just before the change to summer time
        {date(2021, 3, 28, 1), 3},          // at it
        {date(2021, 12, 31, 23, 30), 0},    // into the next year
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(show(c.utc));
        FILETIME utc{}, local{}, back{};
        ASSERT_TRUE(SystemTimeToFileTime(&c.utc, &utc));
        ASSERT_TRUE(FileTimeToLocalFileTime(&utc, &local));
        SYSTEMTIME st{};
        ASSERT_TRUE(FileTimeToSystemTime(&local, &st));
        EXPECT_EQ(st.wHour, c.local_hour);
        ASSERT_TRUE(LocalFileTimeToFileTime(&local, &back));
        EXPECT_EQ(ticks(back), ticks(utc));
    }
}

TEST(LocalTime, TheCurrentTimeFollowsTheZoneAndRangeEndsAreRefused) {
    TimeZone zone("TZ", "XYZ-5");  // five hours east of UTC, no summer time
    FILETIME before{}, after{}, local_ft{};
    GetSystemTimeAsFileTime(&before);
    SYSTEMTIME local{};
    GetLocalTime(&local);
    GetSystemTimeAsFileTime(&after);
    ASSERT_TRUE(SystemTimeToFileTime(&local, &local_ft));
    // Read between the two samples, to the millisecond.
    EXPECT_GE(ticks(local_ft) + 10'000, ticks(before) + 5 * kHour);
    EXPECT_LE(ticks(local_ft), ticks(after) + 5 * kHour);

    const FILETIME last = file_time(0x7FFFFFFFFFFFFFFFull - kHour);
    FILETIME out{};
    EXPECT_FALSE(FileTimeToLocalFileTime(&last, &out));
    TimeZone west("TZ", "XYZ+5");
    const FILETIME first = file_time(kHour);
    EXPECT_FALSE(FileTimeToLocalFileTime(&first, &out));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

}  // namespace
