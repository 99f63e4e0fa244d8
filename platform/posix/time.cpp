// System and local time, FILETIME conversions and MS-DOS date words.
//
// A FILETIME counts 100-nanosecond ticks since 1601-01-01 00:00 UTC, the
// first year of a 400-year Gregorian cycle, so calendar arithmetic runs on
// plain day counts from that date. Local time is the process's time zone
// (TZ), with the offset in effect at the instant converted, so that summer
// and winter dates each get their own offset.
#include <time.h>

#include <cstdint>

#include "platform/posix/win32_internal.h"

namespace qz::posix {

namespace {

constexpr int64_t kTicksPerMillisecond = 10'000;
constexpr int64_t kTicksPerSecond = 10'000'000;
constexpr int64_t kTicksPerDay = 86'400 * kTicksPerSecond;
constexpr int64_t kMaxFileTime = INT64_MAX;            // larger values are refused
constexpr int64_t kUnixEpochSeconds = 11'644'473'600;  // 1601 to 1970
constexpr int kFirstYear = 1601;
constexpr int kLastYear = 30827;
constexpr int kFirstDosYear = 1980;
constexpr int kLastDosYear = 2107;  // seven bits of years
constexpr WORD kMonday = 1;         // 1601-01-01

bool is_leap(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int days_in_month(int year, int month) {
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && is_leap(year) ? 29 : kDays[month - 1];
}

// Day counts run on 400-year eras that begin on March 1 of a year divisible
// by 400, so the leap day closes each counted year and the century rules
// fall on the era's last years. 1600-03-01 opens the era of 1601-01-01,
// which is its 306th day.
constexpr int kEraYear = 1600;
constexpr int64_t kDaysPerEra = 146'097;
constexpr int64_t kEraToFirstDay = 306;

// Days from 1601-01-01 to the date (proleptic Gregorian calendar).
int64_t days_from_civil(int year, int month, int day) {
    const int64_t y = static_cast<int64_t>(year) - (month <= 2 ? 1 : 0) - kEraYear;  // >= 0
    const int64_t era = y / 400;
    const int64_t year_of_era = y - era * 400;
    const int64_t day_of_year = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const int64_t day_of_era =
        year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
    return era * kDaysPerEra + day_of_era - kEraToFirstDay;
}

void civil_from_days(int64_t days, int& year, int& month, int& day) {
    const int64_t from_era = days + kEraToFirstDay;  // days >= 0
    const int64_t era = from_era / kDaysPerEra;
    const int64_t day_of_era = from_era - era * kDaysPerEra;
    const int64_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36'524 - day_of_era / 146'096) / 365;
    const int64_t day_of_year =
        day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const int64_t month_index = (5 * day_of_year + 2) / 153;  // 0 is March
    day = static_cast<int>(day_of_year - (153 * month_index + 2) / 5 + 1);
    month = static_cast<int>(month_index < 10 ? month_index + 3 : month_index - 9);
    year = static_cast<int>(kEraYear + era * 400 + year_of_era + (month <= 2 ? 1 : 0));
}

BOOL invalid_parameter() {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}

bool valid_system_time(const SYSTEMTIME& t) {
    if (t.wYear < kFirstYear || t.wYear > kLastYear) return false;
    if (t.wMonth < 1 || t.wMonth > 12) return false;
    if (t.wDay < 1 || t.wDay > days_in_month(t.wYear, t.wMonth)) return false;
    return t.wHour < 24 && t.wMinute < 60 && t.wSecond < 60 && t.wMilliseconds < 1000;
}

int64_t ticks_from_system_time(const SYSTEMTIME& t) {
    const int64_t days = days_from_civil(t.wYear, t.wMonth, t.wDay);
    const int64_t seconds = (t.wHour * 60 + t.wMinute) * 60 + t.wSecond;
    return days * kTicksPerDay + seconds * kTicksPerSecond + t.wMilliseconds * kTicksPerMillisecond;
}

SYSTEMTIME system_time_from_ticks(int64_t ticks) {
    const int64_t days = ticks / kTicksPerDay;
    int64_t rest = ticks % kTicksPerDay;
    int year = 0, month = 0, day = 0;
    civil_from_days(days, year, month, day);
    SYSTEMTIME t{};
    t.wYear = static_cast<WORD>(year);
    t.wMonth = static_cast<WORD>(month);
    t.wDay = static_cast<WORD>(day);
    t.wDayOfWeek = static_cast<WORD>((days + kMonday) % 7);
    t.wHour = static_cast<WORD>(rest / (3600 * kTicksPerSecond));
    rest %= 3600 * kTicksPerSecond;
    t.wMinute = static_cast<WORD>(rest / (60 * kTicksPerSecond));
    rest %= 60 * kTicksPerSecond;
    t.wSecond = static_cast<WORD>(rest / kTicksPerSecond);
    t.wMilliseconds = static_cast<WORD>(rest % kTicksPerSecond / kTicksPerMillisecond);
    return t;
}

int64_t ticks_of(const FILETIME& t) {
    return static_cast<int64_t>((static_cast<uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime);
}

FILETIME file_time_of(int64_t ticks) {
    const auto bits = static_cast<uint64_t>(ticks);
    return FILETIME{static_cast<DWORD>(bits), static_cast<DWORD>(bits >> 32)};
}

int64_t now_ticks() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return (static_cast<int64_t>(now.tv_sec) + kUnixEpochSeconds) * kTicksPerSecond +
           now.tv_nsec / 100;
}

// The local time zone's offset from UTC, in ticks, at the UTC instant.
bool utc_offset_at(int64_t utc_ticks, int64_t& offset) {
    tzset();  // follow changes of TZ made while the process runs
    const time_t seconds = static_cast<time_t>(utc_ticks / kTicksPerSecond - kUnixEpochSeconds);
    tm local{};
    if (!localtime_r(&seconds, &local)) return false;
    offset = static_cast<int64_t>(local.tm_gmtoff) * kTicksPerSecond;
    return true;
}

bool in_range(int64_t ticks) {
    return ticks >= 0 && ticks <= kMaxFileTime;
}

// Adds an offset of at most a day or so; false when the result leaves the
// FILETIME range.
bool shifted(int64_t ticks, int64_t offset, int64_t& result) {
    if (offset > 0 && ticks > kMaxFileTime - offset) return false;
    result = ticks + offset;
    return in_range(result);
}

}  // namespace

}  // namespace qz::posix

using namespace qz::posix;

QZ_EXTERN_C void GetSystemTimeAsFileTime(LPFILETIME time) {
    if (time) *time = file_time_of(now_ticks());
}

QZ_EXTERN_C void GetSystemTime(LPSYSTEMTIME time) {
    if (time) *time = system_time_from_ticks(now_ticks());
}

QZ_EXTERN_C void GetLocalTime(LPSYSTEMTIME time) {
    if (!time) return;
    const int64_t utc = now_ticks();
    int64_t offset = 0;
    int64_t local = utc;
    if (!utc_offset_at(utc, offset) || !shifted(utc, offset, local)) local = utc;
    *time = system_time_from_ticks(local);
}

QZ_EXTERN_C BOOL SystemTimeToFileTime(const SYSTEMTIME* system_time, LPFILETIME file_time) {
    if (!system_time || !file_time || !valid_system_time(*system_time)) return invalid_parameter();
    *file_time = file_time_of(ticks_from_system_time(*system_time));
    return TRUE;
}

QZ_EXTERN_C BOOL FileTimeToSystemTime(const FILETIME* file_time, LPSYSTEMTIME system_time) {
    if (!file_time || !system_time || !in_range(ticks_of(*file_time))) return invalid_parameter();
    *system_time = system_time_from_ticks(ticks_of(*file_time));
    return TRUE;
}

QZ_EXTERN_C BOOL FileTimeToLocalFileTime(const FILETIME* file_time, LPFILETIME local_time) {
    if (!file_time || !local_time) return invalid_parameter();
    const int64_t utc = ticks_of(*file_time);
    int64_t offset = 0;
    int64_t local = 0;
    if (!in_range(utc) || !utc_offset_at(utc, offset) || !shifted(utc, offset, local)) {
        return invalid_parameter();
    }
    *local_time = file_time_of(local);
    return TRUE;
}

// The offset is that of the UTC instant the local time names: guess with
// the offset at the local value read as UTC, then correct once with the
// offset at the guess. Local times skipped or repeated by a clock change
// resolve to one of the two candidate instants.
QZ_EXTERN_C BOOL LocalFileTimeToFileTime(const FILETIME* local_time, LPFILETIME file_time) {
    if (!local_time || !file_time) return invalid_parameter();
    const int64_t local = ticks_of(*local_time);
    int64_t offset = 0;
    int64_t guess = 0;
    int64_t utc = 0;
    if (!in_range(local) || !utc_offset_at(local, offset) || !shifted(local, -offset, guess) ||
        !utc_offset_at(guess, offset) || !shifted(local, -offset, utc)) {
        return invalid_parameter();
    }
    *file_time = file_time_of(utc);
    return TRUE;
}

// The local time of the active zone (zone null) as UTC, with the offset in
// effect on that date. A given zone is not supported here.
QZ_EXTERN_C BOOL TzSpecificLocalTimeToSystemTime(const TIME_ZONE_INFORMATION* zone,
                                                 const SYSTEMTIME* local_time,
                                                 LPSYSTEMTIME universal_time) {
    FILETIME local{};
    FILETIME utc{};
    if (zone || !universal_time || !SystemTimeToFileTime(local_time, &local) ||
        !LocalFileTimeToFileTime(&local, &utc)) {
        return invalid_parameter();
    }
    return FileTimeToSystemTime(&utc, universal_time);
}

// MS-DOS date: bits 15-9 years since 1980, 8-5 month, 4-0 day. Time: bits
// 15-11 hour, 10-5 minute, 4-0 seconds divided by two.
QZ_EXTERN_C BOOL FileTimeToDosDateTime(const FILETIME* file_time, LPWORD dos_date,
                                       LPWORD dos_time) {
    SYSTEMTIME t{};
    if (!dos_date || !dos_time || !FileTimeToSystemTime(file_time, &t)) return invalid_parameter();
    if (t.wYear < kFirstDosYear || t.wYear > kLastDosYear) return invalid_parameter();
    *dos_date = static_cast<WORD>(((t.wYear - kFirstDosYear) << 9) | (t.wMonth << 5) | t.wDay);
    *dos_time = static_cast<WORD>((t.wHour << 11) | (t.wMinute << 5) | (t.wSecond / 2));
    return TRUE;
}

// Words that name no real date or time (month 0, day 31 of April, hour 24,
// 62 seconds) are refused rather than carried into the next unit.
QZ_EXTERN_C BOOL DosDateTimeToFileTime(WORD dos_date, WORD dos_time, LPFILETIME file_time) {
    SYSTEMTIME t{};
    t.wYear = static_cast<WORD>(kFirstDosYear + (dos_date >> 9));
    t.wMonth = static_cast<WORD>((dos_date >> 5) & 0x0F);
    t.wDay = static_cast<WORD>(dos_date & 0x1F);
    t.wHour = static_cast<WORD>(dos_time >> 11);
    t.wMinute = static_cast<WORD>((dos_time >> 5) & 0x3F);
    t.wSecond = static_cast<WORD>((dos_time & 0x1F) * 2);
    return SystemTimeToFileTime(&t, file_time);
}

QZ_EXTERN_C LONG CompareFileTime(const FILETIME* a, const FILETIME* b) {
    const uint64_t x = (static_cast<uint64_t>(a->dwHighDateTime) << 32) | a->dwLowDateTime;
    const uint64_t y = (static_cast<uint64_t>(b->dwHighDateTime) << 32) | b->dwLowDateTime;
    return x < y ? -1 : (x > y ? 1 : 0);
}
