// Nano time as text: the displays of a time ruler (clock time, seconds,
// timecode labels, frames, samples, measures) and positions at a tempo.
//
// Every display but measures works on the magnitude of the time in
// unsigned 64-bit integers, so the most negative time has a magnitude
// (2^63) like any other, and puts the sign in front. The integer forms
// split a tick count into whole seconds and a remainder before scaling, so
// no product can leave 64 bits: whole seconds are below 2^63 / 1e7, times a
// rate of at most 1e7 per second.
#include <cmath>
#include <cstdint>

#include "audioformat/smpte_internal.h"
#include "base/format.h"

namespace qz::smpte {

namespace {

using namespace qz::smpte;

constexpr ULONGLONG kTicksPerSecond = QZ_NANOTIME_PER_SECOND;
constexpr ULONGLONG kTicksPerMillisecond = kTicksPerSecond / 1000;
constexpr double kTicksPerMinute = 60.0 * QZ_NANOTIME_PER_SECOND;
// The tempo counts quarter notes; a beat unit of 8 has two beats to the
// quarter, one of 2 half a beat.
constexpr double kQuartersPerBeatUnit = 4.0;

constexpr double kNeutralTempo = 120.0;
constexpr double kMinTempo = 1.0;
constexpr double kMaxTempo = 1000.0;
constexpr DWORD kNeutralBeatsPerMeasure = 4;
constexpr DWORD kMaxBeatsPerMeasure = 99;
constexpr DWORD kNeutralBeatUnit = 4;
constexpr DWORD kMaxBeatUnit = 64;
constexpr DWORD kNeutralTicksPerBeat = 960;
constexpr DWORD kMaxTicksPerBeat = 9999;

constexpr WCHAR kNoSign[] = QZTEXT("");
constexpr WCHAR kMinus[] = QZTEXT("-");

ULONGLONG magnitude(LONGLONG t) {
    return t < 0 ? 0 - ULONGLONG(t) : ULONGLONG(t);
}

const WCHAR* sign(LONGLONG t, bool shows_nonzero) {
    return t < 0 && shows_nonzero ? kMinus : kNoSign;
}

// A rate code's media clock as an exact fraction of frames per second.
struct Clock {
    ULONGLONG num;
    ULONGLONG den;
};

Clock exact_clock(DWORD rate) {
    switch (rate) {
        case QZSMPTE_RATE_2997_DROP:
        case QZSMPTE_RATE_2997:
            return {30000, 1001};
        case QZSMPTE_RATE_25:
            return {25, 1};
        case QZSMPTE_RATE_24:
            return {24, 1};
        case QZSMPTE_RATE_23976:
            return {24000, 1001};
        default:
            return {30, 1};
    }
}

DWORD display_rate_code(DWORD rate) {
    return smpte_known_rate(rate) ? rate : DWORD(QZSMPTE_RATE_30);
}

// Frames in `ticks`, with the same 5e-6 frame nudge as QZSMPTE_NanoToSMPTE
// so that the count and the label agree: 5e-6 frame over a span of
// den * 1e7 ticks is 50 * den in the numerator.
ULONGLONG frame_count(ULONGLONG ticks, DWORD rate) {
    const Clock c = exact_clock(rate);
    const ULONGLONG span = c.den * kTicksPerSecond;
    return ticks / span * c.num + (ticks % span * c.num + 50 * c.den) / span;
}

// Ticks in 24 hours of labels: a whole number at every rate (at the
// drop-frame rate 2589408 frames are 86399.9136 s).
ULONGLONG ticks_per_label_day(DWORD rate) {
    const Clock c = exact_clock(rate);
    return ULONGLONG(smpte_frames_per_day(rate)) * c.den * kTicksPerSecond / c.num;
}

DWORD sample_rate_of(DWORD rate) {
    if (rate == 0) return QZ_NANOTIME_DEFAULT_SAMPLE_RATE;
    return rate > QZ_NANOTIME_MAX_SAMPLE_RATE ? DWORD(QZ_NANOTIME_MAX_SAMPLE_RATE) : rate;
}

bool is_beat_unit(DWORD unit) {
    return unit >= 1 && unit <= kMaxBeatUnit && (unit & (unit - 1)) == 0;
}

_qztempo normalised(const _qztempo* tempo) {
    _qztempo t = {kNeutralTempo, kNeutralBeatsPerMeasure, kNeutralBeatUnit, kNeutralTicksPerBeat,
                  0};
    if (!tempo) return t;
    // Written so that NaN fails the test and keeps the neutral tempo.
    if (tempo->beats_per_minute >= kMinTempo && tempo->beats_per_minute <= kMaxTempo)
        t.beats_per_minute = tempo->beats_per_minute;
    if (tempo->beats_per_measure >= 1 && tempo->beats_per_measure <= kMaxBeatsPerMeasure)
        t.beats_per_measure = tempo->beats_per_measure;
    if (is_beat_unit(tempo->beat_unit)) t.beat_unit = tempo->beat_unit;
    if (tempo->ticks_per_beat >= 1 && tempo->ticks_per_beat <= kMaxTicksPerBeat)
        t.ticks_per_beat = tempo->ticks_per_beat;
    return t;
}

// A floor division, for positions before zero.
struct Split {
    LONGLONG whole;
    LONGLONG rest;  // 0..divisor - 1
};

Split split(LONGLONG value, LONGLONG divisor) {
    Split s = {value / divisor, value % divisor};
    if (s.rest < 0) {
        --s.whole;
        s.rest += divisor;
    }
    return s;
}

// The time in ticks of the tempo, rounded to the nearest, halves up:
// t * bpm * ticks_per_beat * beat_unit / (4 * 6e8). The ranges of the
// tempo's fields bound the count by 2^63 / 2.4e9 * 1000 * 9999 * 64, about
// 2.5e18. A whole tempo is counted exactly in integers, through whole spans
// of 2.4e9 time ticks so that no product passes 2^63; a tempo with a
// fraction is counted in floating point, which is exact to the tick for
// the first 2^53 ticks (more than a thousand years at 1000 beats per
// minute) and off by a few ticks beyond.
LONGLONG tick_count(LONGLONG nano_time, const _qztempo& tempo) {
    if (tempo.beats_per_minute == std::floor(tempo.beats_per_minute)) {
        constexpr LONGLONG kSpan = LONGLONG(kTicksPerMinute * kQuartersPerBeatUnit);
        const LONGLONG per_span =
            LONGLONG(tempo.beats_per_minute) * tempo.ticks_per_beat * tempo.beat_unit;
        const Split s = split(nano_time, kSpan);
        return s.whole * per_span + (s.rest * per_span + kSpan / 2) / kSpan;
    }
    const double ticks = double(nano_time) * tempo.beats_per_minute * tempo.ticks_per_beat *
                         (tempo.beat_unit / kQuartersPerBeatUnit) / kTicksPerMinute;
    return LONGLONG(std::floor(ticks + 0.5));
}

// The measure is rounded down, so that beat and tick are never negative.
_qzmbt measures_of(LONGLONG nano_time, const _qztempo& tempo) {
    const LONGLONG per_measure = LONGLONG(tempo.beats_per_measure) * tempo.ticks_per_beat;
    const Split s = split(tick_count(nano_time, tempo), per_measure);
    return {s.whole, DWORD(s.rest / tempo.ticks_per_beat), DWORD(s.rest % tempo.ticks_per_beat)};
}

struct Output {
    WCHAR* text;
    size_t count;
};

UINT written(base::FormatResult r) {
    return UINT(r.length);
}

UINT hms_text(LONGLONG t, Output out) {
    const ULONGLONG ms = (magnitude(t) + kTicksPerMillisecond / 2) / kTicksPerMillisecond;
    return written(base::format(out.text, out.count, QZTEXT("%s%02I64u:%02u:%02u.%03u"),
                                sign(t, ms != 0), ms / 3600000, unsigned(ms / 60000 % 60),
                                unsigned(ms / 1000 % 60), unsigned(ms % 1000)));
}

UINT seconds_text(LONGLONG t, Output out) {
    const ULONGLONG ms = (magnitude(t) + kTicksPerMillisecond / 2) / kTicksPerMillisecond;
    return written(base::format(out.text, out.count, QZTEXT("%s%I64u.%03u"), sign(t, ms != 0),
                                ms / 1000, unsigned(ms % 1000)));
}

UINT smpte_text(LONGLONG t, DWORD rate, Output out) {
    const DWORD code = display_rate_code(rate);
    _smpteval label = {code, 0, 0, 0, 0, 0};
    // Whole days of labels are dropped first: below one day the count fits
    // the 32 bits the label conversion keeps.
    QZSMPTE_NanoToSMPTE(LONGLONG(magnitude(t) % ticks_per_label_day(code)), &label);
    const bool nonzero = label.hours || label.minutes || label.seconds || label.frames;
    const WCHAR separator = code == QZSMPTE_RATE_2997_DROP ? QZTEXT(';') : QZTEXT(':');
    return written(base::format(out.text, out.count, QZTEXT("%s%02u:%02u:%02u%c%02u"),
                                sign(t, nonzero), unsigned(label.hours), unsigned(label.minutes),
                                unsigned(label.seconds), separator, unsigned(label.frames)));
}

UINT frames_text(LONGLONG t, DWORD rate, Output out) {
    const ULONGLONG frames = frame_count(magnitude(t), display_rate_code(rate));
    return written(
        base::format(out.text, out.count, QZTEXT("%s%I64u"), sign(t, frames != 0), frames));
}

UINT samples_text(LONGLONG t, DWORD rate, Output out) {
    const ULONGLONG per_second = sample_rate_of(rate);
    const ULONGLONG ticks = magnitude(t);
    const ULONGLONG samples =
        ticks / kTicksPerSecond * per_second +
        (ticks % kTicksPerSecond * per_second + kTicksPerSecond / 2) / kTicksPerSecond;
    return written(
        base::format(out.text, out.count, QZTEXT("%s%I64u"), sign(t, samples != 0), samples));
}

UINT measures_text(LONGLONG t, const _qztempo* tempo, Output out) {
    const _qzmbt p = measures_of(t, normalised(tempo));
    return written(base::format(out.text, out.count, QZTEXT("%I64d:%u:%03u"), p.measure + 1,
                                unsigned(p.beat + 1), unsigned(p.tick)));
}

UINT time_text(LONGLONG t, DWORD fmt, DWORD rate, const _qztempo* tempo, Output out) {
    if (!out.text || out.count == 0) return 0;
    switch (fmt) {
        case QZTIMEFMT_SECONDS:
            return seconds_text(t, out);
        case QZTIMEFMT_SMPTE:
            return smpte_text(t, rate, out);
        case QZTIMEFMT_FRAMES:
            return frames_text(t, rate, out);
        case QZTIMEFMT_SAMPLES:
            return samples_text(t, rate, out);
        case QZTIMEFMT_MEASURES:
            return measures_text(t, tempo, out);
        default:
            return hms_text(t, out);
    }
}

// ---- format names ----

// One ':'-separated field of a format text, [begin, end).
class Fields {
public:
    explicit Fields(LPCWSTR text) : next_(text) {}
    bool take(LPCWSTR* begin, LPCWSTR* end) {
        if (!next_) return false;
        *begin = next_;
        LPCWSTR p = next_;
        while (*p && *p != QZTEXT(':')) ++p;
        *end = p;
        next_ = *p ? p + 1 : nullptr;
        return true;
    }

private:
    LPCWSTR next_;
};

bool is_digit(WCHAR c) {
    return c >= QZTEXT('0') && c <= QZTEXT('9');
}

// Decimal digits, saturating at 0xFFFFFFFF; 0 when [begin, end) is not
// only digits, which every caller reads as its neutral value.
DWORD number_of(LPCWSTR begin, LPCWSTR end) {
    ULONGLONG n = 0;
    if (begin == end) return 0;
    for (LPCWSTR p = begin; p < end; ++p) {
        if (!is_digit(*p)) return 0;
        n = n * 10 + ULONGLONG(*p - QZTEXT('0'));
        if (n > 0xFFFFFFFFull) n = 0xFFFFFFFFull;
    }
    return DWORD(n);
}

// Digits with an optional fraction; 0 when not that. Long texts may reach
// infinity, which the tempo's range rejects like any other large value.
double decimal_of(LPCWSTR begin, LPCWSTR end) {
    double value = 0, scale = 0;
    bool digits = false;
    for (LPCWSTR p = begin; p < end; ++p) {
        if (*p == QZTEXT('.') && scale == 0) {
            scale = 1;
        } else if (is_digit(*p)) {
            digits = true;
            if (scale == 0) {
                value = value * 10 + (*p - QZTEXT('0'));
            } else {
                scale /= 10;
                value += scale * (*p - QZTEXT('0'));
            }
        } else {
            return 0;
        }
    }
    return digits ? value : 0;
}

WCHAR lower(WCHAR c) {
    return c >= QZTEXT('A') && c <= QZTEXT('Z') ? WCHAR(c - QZTEXT('A') + QZTEXT('a')) : c;
}

bool name_is(LPCWSTR begin, LPCWSTR end, const char* name) {
    for (; begin < end && *name; ++begin, ++name)
        if (lower(*begin) != WCHAR(*name)) return false;
    return begin == end && !*name;
}

struct NamedFormat {
    const char* name;
    DWORD format;
};

constexpr NamedFormat kFormatNames[] = {
    {"hms", QZTIMEFMT_HMSMS},     {"seconds", QZTIMEFMT_SECONDS}, {"smpte", QZTIMEFMT_SMPTE},
    {"frames", QZTIMEFMT_FRAMES}, {"samples", QZTIMEFMT_SAMPLES}, {"measures", QZTIMEFMT_MEASURES},
};

UINT format_text(LONGLONG t, LPCWSTR format, Output out) {
    Fields fields(format);
    LPCWSTR begin = nullptr, end = nullptr;
    DWORD fmt = QZTIMEFMT_HMSMS;
    if (fields.take(&begin, &end)) {
        for (const NamedFormat& n : kFormatNames)
            if (name_is(begin, end, n.name)) fmt = n.format;
    }
    DWORD rate = 0;
    _qztempo tempo = {0, 0, 0, 0, 0};
    if (fmt == QZTIMEFMT_MEASURES) {
        if (fields.take(&begin, &end)) tempo.beats_per_minute = decimal_of(begin, end);
        if (fields.take(&begin, &end)) {
            LPCWSTR slash = begin;
            while (slash < end && *slash != QZTEXT('/')) ++slash;
            tempo.beats_per_measure = number_of(begin, slash);
            if (slash < end) tempo.beat_unit = number_of(slash + 1, end);
        }
        if (fields.take(&begin, &end)) tempo.ticks_per_beat = number_of(begin, end);
    } else if (fields.take(&begin, &end)) {
        rate = number_of(begin, end);
    }
    return time_text(t, fmt, rate, &tempo, out);
}

}  // namespace

}  // namespace qz::smpte

QZ_EXTERN_C QZ_API void QZ_STDCALL QzNanoTimeToMeasures(LONGLONG nano_time, const _qztempo* tempo,
                                                        _qzmbt* mbt) {
    if (!mbt) return;
    *mbt = qz::smpte::measures_of(nano_time, qz::smpte::normalised(tempo));
}

QZ_EXTERN_C QZ_API UINT QZ_STDCALL QzNanoTimeToText(LONGLONG nano_time, LPWSTR text) {
    return QzNanoTimeToTextN(nano_time, text, QZ_NANOTIME_TEXT_MAX);
}

QZ_EXTERN_C QZ_API UINT QZ_STDCALL QzNanoTimeToTextN(LONGLONG nano_time, LPWSTR text, UINT count) {
    return qz::smpte::time_text(nano_time, QZTIMEFMT_HMSMS, 0, nullptr, {text, count});
}

QZ_EXTERN_C QZ_API UINT QZ_STDCALL QzNanoTimeToTextEx(LONGLONG nano_time, DWORD format, DWORD rate,
                                                      const _qztempo* tempo, LPWSTR text) {
    return QzNanoTimeToTextExN(nano_time, format, rate, tempo, text, QZ_NANOTIME_TEXT_MAX);
}

QZ_EXTERN_C QZ_API UINT QZ_STDCALL QzNanoTimeToTextExN(LONGLONG nano_time, DWORD format, DWORD rate,
                                                       const _qztempo* tempo, LPWSTR text,
                                                       UINT count) {
    return qz::smpte::time_text(nano_time, format, rate, tempo, {text, count});
}

QZ_EXTERN_C QZ_API UINT QZ_STDCALL QzNanoTimeToTextFormat(LONGLONG nano_time, LPCWSTR format,
                                                          LPWSTR text) {
    return QzNanoTimeToTextFormatN(nano_time, format, text, QZ_NANOTIME_TEXT_MAX);
}

QZ_EXTERN_C QZ_API UINT QZ_STDCALL QzNanoTimeToTextFormatN(LONGLONG nano_time, LPCWSTR format,
                                                           LPWSTR text, UINT count) {
    return qz::smpte::format_text(nano_time, format, {text, count});
}
