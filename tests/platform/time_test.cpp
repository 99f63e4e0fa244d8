// Time: FILETIME and SYSTEMTIME conversions, local time, MS-DOS words.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "platform/win32api.h"

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

// Sets TZ for one test and puts the old value back.
class TimeZone {
public:
    explicit TimeZone(const char* zone) : had_(std::getenv("TZ") != nullptr) {
        if (had_) saved_ = std::getenv("TZ");
        setenv("TZ", zone, 1);
        tzset();
    }
    ~TimeZone() {
        had_ ? setenv("TZ", saved_.c_str(), 1) : unsetenv("TZ");
        tzset();
    }

private:
    bool had_;
    std::string saved_;
};

TEST(FileTime, KnownInstantsConvertBothWays) {
    struct Case {
        SYSTEMTIME time;
        ULONGLONG ticks;
        WORD day_of_week;
    } cases[] = {
        {date(1601, 1, 1), 0, 1},                      // Monday
        {date(1601, 3, 1), 59 * 86400 * kSecond, 4},   // past February
        {date(1970, 1, 1), 116444736000000000ull, 4},  // Thursday
        {date(1980, 1, 1), 119600064000000000ull, 2},  // Tuesday
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
}

TEST(FileTime, EveryDayOfFourCenturiesRoundTrips) {
    // One full Gregorian cycle from 1601, a day at a time, plus the largest
    // FILETIME the conversion accepts.
    ULONGLONG t = 0;
    SYSTEMTIME previous{};
    const FILETIME origin = file_time(0);
    ASSERT_TRUE(FileTimeToSystemTime(&origin, &previous));
    for (int day = 1; day <= 146097; ++day) {
        t += 86400 * kSecond;
        const FILETIME ft = file_time(t);
        SYSTEMTIME st{};
        ASSERT_TRUE(FileTimeToSystemTime(&ft, &st));
        ASSERT_EQ(st.wDayOfWeek, (previous.wDayOfWeek + 1) % 7);
        FILETIME back{};
        ASSERT_TRUE(SystemTimeToFileTime(&st, &back)) << show(st);
        ASSERT_EQ(ticks(back), t);
        previous = st;
    }
    EXPECT_EQ(show(previous), "2001-01-01 00:00:00.000 d1");

    const FILETIME last = file_time(0x7FFFFFFFFFFFFFFFull);
    SYSTEMTIME st{};
    ASSERT_TRUE(FileTimeToSystemTime(&last, &st));
    EXPECT_EQ(show(st).substr(0, 11), "30828-09-14");
    const FILETIME negative = file_time(0x8000000000000000ull);
    EXPECT_FALSE(FileTimeToSystemTime(&negative, &st));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST(FileTime, InvalidSystemTimesAreRefused) {
    // Year, month, day, hour, minute, second, milliseconds.
    const WORD bad[][7] = {
        {2001, 0, 1, 0, 0, 0, 0},  {2001, 13, 1, 0, 0, 0, 0},   {2001, 1, 0, 0, 0, 0, 0},
        {2001, 1, 32, 0, 0, 0, 0}, {2001, 2, 29, 0, 0, 0, 0},   {1900, 2, 29, 0, 0, 0, 0},
        {2001, 4, 31, 0, 0, 0, 0}, {2001, 1, 1, 24, 0, 0, 0},   {2001, 1, 1, 0, 60, 0, 0},
        {2001, 1, 1, 0, 0, 60, 0}, {2001, 1, 1, 0, 0, 0, 1000}, {1600, 12, 31, 0, 0, 0, 0},
        {30828, 1, 1, 0, 0, 0, 0}};
    for (const WORD* w : bad) {
        const SYSTEMTIME t = date(w[0], w[1], w[2], w[3], w[4], w[5], w[6]);
        FILETIME ft{0x1234, 0x5678};
        SetLastError(0);
        EXPECT_FALSE(SystemTimeToFileTime(&t, &ft)) << show(t);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
        EXPECT_EQ(ft.dwLowDateTime, 0x1234u);  // untouched
    }
}

TEST(FileTime, CompareOrdersByTheWhole64Bits) {
    const FILETIME a = file_time(0x00000001FFFFFFFFull);
    const FILETIME b = file_time(0x0000000200000000ull);
    EXPECT_EQ(CompareFileTime(&a, &b), -1);
    EXPECT_EQ(CompareFileTime(&b, &a), 1);
    EXPECT_EQ(CompareFileTime(&a, &a), 0);
}

TEST(DosDateTime, LimitsAndTwoSecondResolution) {
    struct Case {
        SYSTEMTIME time;
        BOOL ok;
        WORD dos_date;
        WORD dos_time;
    } cases[] = {
        {date(1980, 1, 1), TRUE, 0x0021, 0x0000},
        {date(2107, 12, 31, 23, 59, 59), TRUE, 0xFF9F, 0xBF7D},  // 59 s is stored as 58
        {date(2024, 6, 15, 13, 45, 31, 900), TRUE, (44 << 9) | (6 << 5) | 15,
         (13 << 11) | (45 << 5) | 15},
        {date(1979, 12, 31, 23, 59, 59), FALSE, 0, 0},
        {date(2108, 1, 1), FALSE, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.time.wYear);
        FILETIME ft{};
        ASSERT_TRUE(SystemTimeToFileTime(&c.time, &ft));
        WORD dos_date = 0, dos_time = 0;
        EXPECT_EQ(FileTimeToDosDateTime(&ft, &dos_date, &dos_time), c.ok);
        if (!c.ok) continue;
        EXPECT_EQ(dos_date, c.dos_date);
        EXPECT_EQ(dos_time, c.dos_time);
        FILETIME back{};
        ASSERT_TRUE(DosDateTimeToFileTime(dos_date, dos_time, &back));
        EXPECT_LT(ticks(ft) - ticks(back), 2 * kSecond);  // only the odd second and the ms
    }
}

TEST(DosDateTime, WordsNamingNoRealDateAreRefused) {
    // Month 0 and day 0, day 0, month 13, 2001-02-30, hour 24, minute 60, 60 seconds.
    const WORD bad[][2] = {
        {0x0000, 0},        {(1 << 5) | 0, 0}, {(13 << 5) | 1, 0}, {(21 << 9) | (2 << 5) | 30, 0},
        {0x0021, 24 << 11}, {0x0021, 60 << 5}, {0x0021, 30}};
    for (const auto& b : bad) {
        FILETIME ft{};
        SetLastError(0);
        EXPECT_FALSE(DosDateTimeToFileTime(b[0], b[1], &ft)) << b[0] << " " << b[1];
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    }
}

TEST(LocalTime, FollowsTheZoneAndItsSummerTime) {
    TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
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

TEST(LocalTime, RangeEndsAreRefused) {
    TimeZone zone("XYZ-5");
    const FILETIME last = file_time(0x7FFFFFFFFFFFFFFFull - kHour);
    FILETIME out{};
    EXPECT_FALSE(FileTimeToLocalFileTime(&last, &out));
    TimeZone west("XYZ+5");
    const FILETIME first = file_time(kHour);
    EXPECT_FALSE(FileTimeToLocalFileTime(&first, &out));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST(LocalTime, CurrentTimesAgreeWithTheZone) {
    TimeZone zone("XYZ-5");  // five hours east of UTC, no summer time
    FILETIME before{}, after{}, utc_ft{}, local_ft{};
    GetSystemTimeAsFileTime(&before);
    SYSTEMTIME utc{}, local{};
    GetSystemTime(&utc);
    GetLocalTime(&local);
    GetSystemTimeAsFileTime(&after);
    ASSERT_TRUE(SystemTimeToFileTime(&utc, &utc_ft));
    ASSERT_TRUE(SystemTimeToFileTime(&local, &local_ft));
    // Read between the two samples, to the millisecond.
    EXPECT_GE(ticks(utc_ft) + 10'000, ticks(before));
    EXPECT_LE(ticks(utc_ft), ticks(after));
    EXPECT_GE(ticks(local_ft) + 10'000, ticks(before) + 5 * kHour);
    EXPECT_LE(ticks(local_ft), ticks(after) + 5 * kHour);
    EXPECT_NEAR(static_cast<double>(ticks(before) / kSecond - 11644473600ull),
                static_cast<double>(std::time(nullptr)), 2.0);
}

}  // namespace
