/*
 * qzsmpte.h - SMPTE timecode and nano time.
 *
 * Media time in this library is nano time: a signed 64-bit count of
 * 100-nanosecond ticks, 10,000,000 per second. A timecode is the record
 * _smpteval: a frame-rate code and the hours, minutes, seconds and frames
 * of a label. The functions here convert timecodes to and from frame counts
 * and nano time, step them by one frame, add, subtract, compare and parse
 * them, and show nano time as a time ruler does (clock time, timecode,
 * frames, samples, measures at a tempo). None of them allocates, none
 * fails: an unknown rate code or an
 * out-of-range field gives a neutral or wrapped value as each function
 * says, and a null record is ignored (results read as zero).
 *
 * Rate codes (the `rate` field):
 *
 *   code  labels                  clock (frames/s)      frames in 24 hours
 *   1     30 non-drop             30                    2592000
 *   2     29.97 drop-frame        30000/1001            2589408
 *   3     25                      25                    2160000
 *   4     24                      24                    2073600
 *   5     29.97 non-drop          30000/1001            2592000
 *   6     23.976                  24000/1001            2073600
 *
 * Drop-frame labels count at 30 per second but skip frames 0 and 1 at the
 * start of every minute that is not a multiple of ten: 00:00:59;29 is
 * followed by 00:01:00;02, which keeps the labels within a few frames of the
 * 29.97 clock (108 labels are skipped per hour).
 */
#ifndef QZ_QZSMPTE_H
#define QZ_QZSMPTE_H

#include "qz/qzdefs.h"
#include "qz/qzresult.h"

#define QZSMPTE_RATE_30 1        /* 30 fps, non-drop */
#define QZSMPTE_RATE_2997_DROP 2 /* 29.97 fps, drop-frame labels */
#define QZSMPTE_RATE_25 3        /* 25 fps */
#define QZSMPTE_RATE_24 4        /* 24 fps */
#define QZSMPTE_RATE_2997 5      /* 29.97 fps, non-drop labels */
#define QZSMPTE_RATE_23976 6     /* 23.976 fps, 24 labels per second */

/* Nano-time ticks per second. */
#define QZ_NANOTIME_PER_SECOND 10000000

/* A timecode: six 32-bit fields, 24 bytes on every build. */
typedef struct _smpteval {
    DWORD rate;     /* rate code (above); no function here changes it */
    DWORD hours;    /* 0..23; stepping uses only the low five bits */
    DWORD minutes;  /* 0..59 */
    DWORD seconds;  /* 0..59 */
    DWORD frames;   /* 0..nominal frames per second - 1 */
    DWORD reserved; /* cleared by QZSMPTE_TextToSMPTE, otherwise untouched */
} _smpteval;

#ifdef __cplusplus
static_assert(sizeof(_smpteval) == 24, "_smpteval is six 32-bit fields");
#endif

/* ---- nano time as text ---------------------------------------------------------- */

/*
 * Time displays, as a time ruler shows them. Every display shows the
 * magnitude of the time and puts "-" before it when the time is below zero
 * and the text shows something other than zero, so a time that rounds to
 * zero never reads "-0" (measures differ, see QZTIMEFMT_MEASURES).
 *
 *   QZTIMEFMT_HMSMS     hours:minutes:seconds.milliseconds, "01:02:03.456".
 *                       Rounded to the nearest millisecond, halves away
 *                       from zero (0.9995 s is "00:00:01.000"). Hours have
 *                       at least two digits and do not wrap ("25:00:00.000").
 *   QZTIMEFMT_SECONDS   seconds.milliseconds, "3723.456", rounded likewise.
 *   QZTIMEFMT_SMPTE     the timecode label at a rate code, "00:10:00;00",
 *                       with ";" before the frames at the drop-frame rate and
 *                       ":" otherwise: QZSMPTE_NanoToSMPTE of the magnitude,
 *                       so the frame is the one the time falls in. Labels
 *                       wrap at 24 hours as timecodes do (25 h at 25 fps is
 *                       "01:00:00:00").
 *   QZTIMEFMT_FRAMES    the frame count at a rate code's clock, "17982",
 *                       counted like the timecode labels but never wrapped.
 *   QZTIMEFMT_SAMPLES   the sample count at a sample rate, "44100", rounded
 *                       to the nearest sample, halves away from zero.
 *   QZTIMEFMT_MEASURES  measure:beat:tick at a tempo, "2:3:480", rounded to
 *                       the nearest tick. Measures and beats count from 1
 *                       (time zero is "1:1:000"), ticks from 0 with at least
 *                       three digits. Measures count on through zero the
 *                       way a bar ruler does: one beat before zero in 4/4 is
 *                       "0:4:000", and the measure before measure 0 is -1.
 *
 * Any other format value shows as QZTIMEFMT_HMSMS.
 */
#define QZTIMEFMT_HMSMS 0
#define QZTIMEFMT_SECONDS 1
#define QZTIMEFMT_SMPTE 2
#define QZTIMEFMT_FRAMES 3
#define QZTIMEFMT_SAMPLES 4
#define QZTIMEFMT_MEASURES 5

/*
 * Every text fits in this many WCHARs, the terminating zero included: the
 * buffer size the forms without a count rely on.
 */
#define QZ_NANOTIME_TEXT_MAX 32

/* The sample rate used when a caller gives 0, and the highest one used. */
#define QZ_NANOTIME_DEFAULT_SAMPLE_RATE 48000
#define QZ_NANOTIME_MAX_SAMPLE_RATE 10000000

/*
 * A tempo and time signature for measures. 24 bytes on every build.
 *
 * The tempo counts quarter notes per minute, as a MIDI tempo does; a beat
 * is one note of the beat unit, so 6/8 at 120 has beats of 0.25 s. Each
 * field outside its range takes its neutral value instead:
 *
 *   field              range                       neutral
 *   beats_per_minute   1..1000 (not NaN)           120
 *   beats_per_measure  1..99                       4
 *   beat_unit          1, 2, 4, 8, 16, 32 or 64    4
 *   ticks_per_beat     1..9999                     960
 *
 * A null tempo is the neutral one, 4/4 at 120 with 960 ticks per beat.
 */
typedef struct _qztempo {
    double beats_per_minute; /* quarter notes per minute */
    DWORD beats_per_measure; /* upper number of the time signature */
    DWORD beat_unit;         /* lower number of the time signature */
    DWORD ticks_per_beat;    /* resolution of a beat */
    DWORD reserved;          /* not read */
} _qztempo;

/* A position in measures: 16 bytes on every build. */
typedef struct _qzmbt {
    LONGLONG measure; /* from 0 at time zero; negative before it */
    DWORD beat;       /* 0..beats_per_measure - 1 */
    DWORD tick;       /* 0..ticks_per_beat - 1 */
} _qzmbt;

#ifdef __cplusplus
static_assert(sizeof(_qztempo) == 24, "_qztempo has a fixed layout");
static_assert(sizeof(_qzmbt) == 16, "_qzmbt has a fixed layout");
#endif

QZ_EXTERN_C_BEGIN

/*
 * The frame count of a timecode: frames since 00:00:00:00 at the record's
 * rate. Rate codes outside 1..6 (and a null record) give 0. At the
 * drop-frame rate a label that does not exist (frame 0 or 1 of a minute
 * that is not a multiple of ten) reads as the frame 2 that follows it.
 * Fields are not range-checked; the arithmetic is unsigned 32-bit.
 */
QZ_API DWORD QZ_STDCALL QZSMPTE_SMPTEToFrameCount(const _smpteval* smpte);

/*
 * Sets hours, minutes, seconds and frames of `smpte` to the label of frame
 * `frame_count` at the record's rate, wrapping the count into 24 hours.
 * Rate codes other than 1 and 3..6 (so 2, but also 0 and codes above 6)
 * use the drop-frame layout. Rate and reserved are kept.
 */
QZ_API void QZ_STDCALL QZSMPTE_FrameCountToSMPTE(_smpteval* smpte, DWORD frame_count);

/*
 * a = a + b. Both are read as frame counts at their own rates; the sum is
 * wrapped into 24 hours of a's rate and written as a label at a's rate.
 * With an unknown rate code in a, a reads as frame 0 and the sum (b's
 * count) is laid out as a drop-frame label. A null argument does nothing.
 */
QZ_API void QZ_STDCALL QZSMPTE_AddSMPTE(_smpteval* a, const _smpteval* b);

/*
 * a = a - b, read as for QZSMPTE_AddSMPTE; a negative difference wraps
 * back from the end of the 24 hours (00:00:00:00 - 1 frame is the last
 * frame of the day). When a's rate code is outside 1..6 there is no
 * 24-hour length to wrap by, and a is left unchanged. A null argument does
 * nothing.
 */
QZ_API void QZ_STDCALL QZSMPTE_SubtractSMPTE(_smpteval* a, const _smpteval* b);

/*
 * Compares hours, then minutes, seconds and frames as unsigned numbers:
 * 1 when a is later, -1 when earlier, 0 when the labels are equal. Rates
 * are not compared. A null record sorts before any other; two nulls are
 * equal.
 */
QZ_API int QZ_STDCALL QZSMPTE_SMPTECompare(const _smpteval* a, const _smpteval* b);

/*
 * Steps the label one frame forward, carrying frames into seconds at the
 * rate's nominal frames per second (25 for code 3, 24 for codes 4 and 6,
 * 30 for every other code), seconds into minutes and minutes into hours;
 * 23:59:59 and the last frame step to 00:00:00:00. At the drop-frame rate
 * a new minute that is not a multiple of ten starts at frame 2. Only the
 * low five bits of hours take part. `reserved` is not used.
 */
QZ_API void QZ_STDCALL QZSMPTE_IncrementByFrame(_smpteval* smpte, DWORD reserved);

/*
 * Steps the label one frame back, borrowing the same way:
 * 00:00:00:00 steps to 23:59:59 and frame 29, 24 or 23. For codes 2 and 5
 * alike, when the step borrows from the seconds and the resulting minute
 * is not a multiple of ten, the frames are then raised by two:
 * 00:10:00;00 steps back to 00:09:59;31, 00:00:00;00 to 23:59:59;31, and
 * 00:11:00;02 to 00:11:00;01. So this is not the inverse of
 * QZSMPTE_IncrementByFrame; the exact results are kept because callers rely
 * on them. `reserved` is not used.
 */
QZ_API void QZ_STDCALL QZSMPTE_DeccrementByFrame(_smpteval* smpte, DWORD reserved);

/*
 * Sets the label of `smpte` to the frame at nano time `nano_time`: the
 * frame count is the time times the rate's clock (30 fps for unknown
 * codes), plus 5e-6 of a frame, truncated. A time before zero has a
 * negative count, which is taken modulo 2^32 as an unsigned count and so
 * does not land on the end of the previous day.
 */
QZ_API void QZ_STDCALL QZSMPTE_NanoToSMPTE(LONGLONG nano_time, _smpteval* smpte);

/*
 * The nano time of a timecode: its frame count divided by the rate's clock,
 * plus 0.999 of a tick, truncated. Rounding up this way makes
 * QZSMPTE_NanoToSMPTE of the result land on the same frame. Unknown rate
 * codes and a null record give 0.
 */
QZ_API LONGLONG QZ_STDCALL QZSMPTE_SMPTEToNanos(const _smpteval* smpte);

/*
 * The nano time of hours, minutes, seconds and frames at any frame rate
 * `frames_per_second`, ignoring the record's rate code; like
 * QZSMPTE_SMPTEToNanos it adds 0.999 of a tick before truncating. A rate
 * that is zero, negative or not a number gives a time clamped to the 64-bit
 * range (0 when not a number). A null record gives 0.
 */
QZ_API LONGLONG QZ_STDCALL QZSMPTE_SmpteLikeToNanos(double frames_per_second,
                                                    const _smpteval* smpte);

/*
 * Parses a typed timecode into hours, minutes, seconds and frames, keeping
 * the rate and clearing `reserved`. Numbers are runs of the digits 0..9;
 * anything else separates them. Long runs split into pairs from the right
 * (010203 reads as 01 02 03, 12345 as 1 23 45). The numbers fill the
 * fields from the right, the last one being the frames: "5" is 5 frames,
 * "1:2:3" is 00:01:02:03; of more than four numbers the first four are
 * used. A separator after the last digit adds a zero field ("1:2:" is
 * 00:01:02:00); trailing spaces do not. For rate codes 1..6 the frames then
 * carry into the seconds at the nominal frames per second, seconds into
 * minutes, minutes into hours, and hours wrap at 24 ("0:0:0:40" at code 3 is
 * 00:00:01:15). Drop-frame labels that do not exist are kept as typed.
 *
 * S_OK when a number was read; S_FALSE when the text (or a null text) holds
 * no digit, which leaves a zero label; E_POINTER for a null record.
 */
QZ_API HRESULT QZ_STDCALL QZSMPTE_TextToSMPTE(LPCWSTR text, _smpteval* smpte);

/*
 * The label of nano time `nano_time`. For rate codes 1..6 this is
 * QZSMPTE_NanoToSMPTE. For any other code the caller's rate is used: the
 * time is rounded to the nearest frame when `frames_per_second` is at least
 * 0.01, hours wrap at 24, and the frames are the fraction of the second
 * times the rate, truncated. A time before zero gives negative fields,
 * stored in the unsigned fields as two's complement. A null record does
 * nothing.
 */
QZ_API void QZ_STDCALL QzNanoTimeToHMSF(LONGLONG nano_time, _smpteval* smpte,
                                        double frames_per_second);

/*
 * The nano time of a label. For rate codes 1..6 this is
 * QZSMPTE_SMPTEToNanos. For any other code the frames count at the caller's
 * rate and the time is rounded to the nearest tick; a rate of zero or not a
 * number gives a time clamped to the 64-bit range (0 when not a number). A
 * null record gives 0.
 */
QZ_API LONGLONG QZ_STDCALL QzHMSFToNanoTime(const _smpteval* smpte, double frames_per_second);

/*
 * The position of nano time `nano_time` at `tempo` (null: the neutral
 * tempo), rounded to the nearest tick, halves up. Positions count from zero
 * and run on below zero the way a bar ruler does: the measure is rounded
 * down and beat and tick are what lies past its start, so one beat before
 * zero in 4/4 is measure -1, beat 3, tick 0. A whole-number tempo is
 * counted exactly at any time; a tempo with a fraction is counted in
 * floating point, exact to the tick for over a thousand years of time and
 * off by a few ticks beyond. A null `mbt` does nothing.
 */
QZ_API void QZ_STDCALL QzNanoTimeToMeasures(LONGLONG nano_time, const _qztempo* tempo, _qzmbt* mbt);

/*
 * The text forms below write the display of `nano_time` into `text` and
 * return the number of characters written, the terminating zero not
 * counted. The forms ending in N write at most `count` WCHARs: a text that
 * does not fit is cut after count - 1 characters and still ends in a zero;
 * a count of 0 or a null `text` writes nothing and returns 0. The forms
 * without a count take a buffer of at least QZ_NANOTIME_TEXT_MAX WCHARs.
 */

/* The default display, QZTIMEFMT_HMSMS: "01:02:03.456". */
QZ_API UINT QZ_STDCALL QzNanoTimeToText(LONGLONG nano_time, LPWSTR text);
QZ_API UINT QZ_STDCALL QzNanoTimeToTextN(LONGLONG nano_time, LPWSTR text, UINT count);

/*
 * The display `format` (QZTIMEFMT_*). `rate` is the rate code for
 * QZTIMEFMT_SMPTE and QZTIMEFMT_FRAMES (codes outside 1..6 show as code 1,
 * 30 fps) and the sample rate in Hz for QZTIMEFMT_SAMPLES (0 is
 * QZ_NANOTIME_DEFAULT_SAMPLE_RATE, rates above QZ_NANOTIME_MAX_SAMPLE_RATE
 * count as that rate); other formats ignore it. `tempo` is read for
 * QZTIMEFMT_MEASURES only, null being the neutral tempo.
 */
QZ_API UINT QZ_STDCALL QzNanoTimeToTextEx(LONGLONG nano_time, DWORD format, DWORD rate,
                                          const _qztempo* tempo, LPWSTR text);
QZ_API UINT QZ_STDCALL QzNanoTimeToTextExN(LONGLONG nano_time, DWORD format, DWORD rate,
                                           const _qztempo* tempo, LPWSTR text, UINT count);

/*
 * The display named by the text `format`, the way a host keeps a user's
 * choice in its settings: a name and its parameters, separated by ':',
 * names in any letter case.
 *
 *   "hms"                             QZTIMEFMT_HMSMS
 *   "seconds"                         QZTIMEFMT_SECONDS
 *   "smpte[:CODE]"                    QZTIMEFMT_SMPTE at rate code CODE
 *   "frames[:CODE]"                   QZTIMEFMT_FRAMES at rate code CODE
 *   "samples[:RATE]"                  QZTIMEFMT_SAMPLES at RATE Hz
 *   "measures[:BPM[:B/U[:TICKS]]]"    QZTIMEFMT_MEASURES; BPM may have a
 *                                     fraction ("measures:92.5:6/8:480")
 *
 * Numbers are decimal digits. A parameter that is missing, empty or not a
 * number takes the neutral value of QzNanoTimeToTextEx (and of _qztempo);
 * parameters past the last one are ignored. A null, empty or unknown name
 * shows as "hms".
 */
QZ_API UINT QZ_STDCALL QzNanoTimeToTextFormat(LONGLONG nano_time, LPCWSTR format, LPWSTR text);
QZ_API UINT QZ_STDCALL QzNanoTimeToTextFormatN(LONGLONG nano_time, LPCWSTR format, LPWSTR text,
                                               UINT count);

QZ_EXTERN_C_END

#endif
