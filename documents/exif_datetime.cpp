// EXIF date-time texts: "YYYY:MM:DD HH:MM:SS", local time by convention.
#include "documents/exif_internal.h"
#include "platform/win32api.h"

namespace {

constexpr int kDateTimeLength = 19;
// Where the digits and separators of the text sit.
constexpr char kPattern[] = "dddd:dd:dd dd:dd:dd";

// Writes `value` as `digits` decimal digits.
LPWSTR put_digits(LPWSTR out, unsigned value, int digits) {
    for (int i = digits - 1; i >= 0; --i) {
        out[i] = WCHAR(u'0' + value % 10);
        value /= 10;
    }
    return out + digits;
}

unsigned read_digits(LPCWSTR text, int digits) {
    unsigned value = 0;
    for (int i = 0; i < digits; ++i) value = value * 10 + unsigned(text[i] - u'0');
    return value;
}

// A date and time of the calendar: the system's conversions are not all
// as strict (Wine's turns February 29 of a common year into March 1).
bool is_calendar_time(const SYSTEMTIME& t) {
    static constexpr WORD kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (t.wMonth < 1 || t.wMonth > 12 || t.wDay < 1) return false;
    const bool leap = (t.wYear % 4 == 0 && t.wYear % 100 != 0) || t.wYear % 400 == 0;
    const WORD days = WORD(kDays[t.wMonth - 1] + (t.wMonth == 2 && leap ? 1 : 0));
    return t.wDay <= days && t.wHour < 24 && t.wMinute < 60 && t.wSecond < 60;
}

}  // namespace

HRESULT CQzExifMetaDataHelper::SystemTimeToLocalDateTimeString(const SYSTEMTIME* time,
                                                               LPWSTR buffer, int capacity) {
    if (!time || !buffer) return E_INVALIDARG;
    if (capacity < kDateTimeLength + 1) return E_FAIL;
    if (time->wYear > 9999 || time->wMonth > 99 || time->wDay > 99 || time->wHour > 99 ||
        time->wMinute > 99 || time->wSecond > 99) {
        return E_FAIL;
    }
    LPWSTR out = put_digits(buffer, time->wYear, 4);
    *out++ = u':';
    out = put_digits(out, time->wMonth, 2);
    *out++ = u':';
    out = put_digits(out, time->wDay, 2);
    *out++ = u' ';
    out = put_digits(out, time->wHour, 2);
    *out++ = u':';
    out = put_digits(out, time->wMinute, 2);
    *out++ = u':';
    out = put_digits(out, time->wSecond, 2);
    *out = 0;
    return S_OK;
}

// Cameras write "    :  :     :  :  " for an unknown time and some tools
// append a zone or fractions; none of these names one instant, so only the
// exact form is read. The offset applied is the one in effect on that
// local date (summer or winter time), not today's.
HRESULT CQzExifMetaDataHelper::ParseExifLocalDateTimeStringToUtc(LPCWSTR text, LONGLONG* utc) {
    if (!text || !utc) return E_INVALIDARG;
    *utc = 0;
    for (int i = 0; i < kDateTimeLength; ++i) {
        const bool digit = text[i] >= u'0' && text[i] <= u'9';
        if (kPattern[i] == 'd' ? !digit : text[i] != WCHAR(kPattern[i])) return E_INVALIDARG;
    }
    if (text[kDateTimeLength] != 0) return E_INVALIDARG;
    SYSTEMTIME local{};
    local.wYear = WORD(read_digits(text, 4));
    local.wMonth = WORD(read_digits(text + 5, 2));
    local.wDay = WORD(read_digits(text + 8, 2));
    local.wHour = WORD(read_digits(text + 11, 2));
    local.wMinute = WORD(read_digits(text + 14, 2));
    local.wSecond = WORD(read_digits(text + 17, 2));
    SYSTEMTIME universal{};
    FILETIME ticks{};
    if (!is_calendar_time(local) ||
        !TzSpecificLocalTimeToSystemTime(nullptr, &local, &universal) ||
        !SystemTimeToFileTime(&universal, &ticks)) {
        return E_INVALIDARG;  // no such date or time, or before 1601
    }
    *utc = LONGLONG((ULONGLONG(ticks.dwHighDateTime) << 32) | ticks.dwLowDateTime);
    return S_OK;
}
