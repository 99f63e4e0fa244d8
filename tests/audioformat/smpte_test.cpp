// SMPTE timecode and nano time: labels, frame counts, stepping, arithmetic,
// nano-time conversions, the typed-timecode parser and the time displays.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <utility>

#include "qz/qzsmpte.h"

namespace {

constexpr DWORD kDayFrames[7] = {0, 2592000, 2589408, 2160000, 2073600, 2592000, 2073600};

_smpteval tc(DWORD rate, DWORD h, DWORD m, DWORD s, DWORD f) {
    return {rate, h, m, s, f, 0};
}

// "HH:MM:SS:FF", with ';' before the frames at the drop-frame rate.
std::string label(const _smpteval& t) {
    char text[64];
    std::snprintf(text, sizeof text, "%02u:%02u:%02u%c%02u", unsigned(t.hours), unsigned(t.minutes),
                  unsigned(t.seconds), t.rate == QZSMPTE_RATE_2997_DROP ? ';' : ':',
                  unsigned(t.frames));
    return text;
}

// The labels of a day against their counts are walked frame by frame below;
// these are the cases outside that walk.
TEST(SmpteFrameCount, SkippedLabelsUnknownCodesAndCountsPastADay) {
    // Drop-frame: a skipped label reads as the frame 2 after it, except in
    // every tenth minute and past second 0. Unknown codes have no frames.
    const std::pair<_smpteval, DWORD> to_count[] = {
        {tc(2, 0, 1, 0, 1), 1800}, {tc(2, 0, 10, 0, 1), 17983}, {tc(2, 0, 1, 1, 1), 1829},
        {tc(0, 1, 2, 3, 4), 0},    {tc(7, 1, 2, 3, 4), 0},
    };
    for (const auto& [t, count] : to_count)
        EXPECT_EQ(QZSMPTE_SMPTEToFrameCount(&t), count) << "rate " << t.rate << " " << label(t);
    // Counts wrap into one day, the whole 32-bit range too; unknown codes
    // fall into the drop-frame layout (without ';').
    const std::pair<DWORD, _smpteval> to_label[] = {
        {2589408, tc(2, 0, 0, 0, 0)},
        {0xFFFFFFFF, tc(2, 16, 1, 25, 11)},
        {0xFFFFFFFF, tc(1, 0, 12, 56, 15)},
        {1800, tc(0, 0, 1, 0, 2)},
    };
    for (const auto& [count, want] : to_label) {
        _smpteval t = {want.rate, 99, 99, 99, 99, 0x1234};
        QZSMPTE_FrameCountToSMPTE(&t, count);
        EXPECT_EQ(label(t), label(want)) << "rate " << want.rate << " count " << count;
        EXPECT_EQ(t.reserved, 0x1234u);
    }
}

// Every frame of a day, stepped: each step reaches the label of the next
// count, which counts back to its frame; the last one steps to midnight.
TEST(SmpteFrameCount, EveryFrameOfTheDayStepsAndCountsConsistently) {
    for (DWORD rate = 1; rate <= 6; ++rate) {
        _smpteval walk = tc(rate, 0, 0, 0, 0);
        _smpteval converted = tc(rate, 0, 0, 0, 0);
        DWORD mismatches = 0;
        for (DWORD n = 0; n < kDayFrames[rate]; ++n) {
            QZSMPTE_FrameCountToSMPTE(&converted, n);
            if ((QZSMPTE_SMPTECompare(&walk, &converted) != 0 ||
                 QZSMPTE_SMPTEToFrameCount(&walk) != n) &&
                ++mismatches < 5)
                ADD_FAILURE() << "rate " << rate << " frame " << n << ": stepped to " << label(walk)
                              << ", converted " << label(converted);
            QZSMPTE_IncrementByFrame(&walk, 0);
        }
        EXPECT_EQ(mismatches, 0u) << "rate " << rate;
        EXPECT_EQ(label(walk), label(tc(rate, 0, 0, 0, 0))) << "rate " << rate;
    }
}

TEST(SmpteStep, IncrementAndDecrementCarryWithTheirOwnDropRules) {
    const struct {
        bool up;
        _smpteval from;
        const char* expected;
    } cases[] = {
        {true, tc(0, 0, 0, 0, 29), "00:00:01:00"},  // unknown codes step at 30
        // Only the low five bits of the hours step: 33 is hour 1.
        {true, tc(1, 33, 59, 59, 29), "02:00:00:00"},
        {true, tc(1, 31, 59, 59, 29), "00:00:00:00"},
        {false, tc(4, 0, 0, 0, 0), "23:59:59:23"},
        // Drop-frame: a borrow into a minute that is not a tenth adds two.
        {false, tc(2, 0, 10, 0, 0), "00:09:59;31"},
        {false, tc(2, 0, 1, 0, 0), "00:00:59;29"},
        // Without a borrow nothing is added, not even onto a skipped label.
        {false, tc(2, 0, 11, 0, 2), "00:11:00;01"},
        // 29.97 non-drop takes the same correction on the way down.
        {false, tc(5, 0, 2, 0, 0), "00:01:59:31"},
        {false, tc(1, 35, 0, 0, 0), "02:59:59:29"},
        // A field above 0x7FFFFFFF reads as negative and borrows.
        {false, tc(1, 0, 0, 5, 0x80000000u), "00:00:04:29"},
    };
    for (const auto& c : cases) {
        _smpteval t = c.from;
        if (c.up)
            QZSMPTE_IncrementByFrame(&t, 0);
        else
            QZSMPTE_DeccrementByFrame(&t, 0);
        EXPECT_EQ(label(t), c.expected)
            << (c.up ? "up from " : "down from ") << label(c.from) << " rate " << c.from.rate;
    }
}

TEST(SmpteArithmetic, AddAndSubtractWrapInTheFirstRate) {
    enum Op { Add, Subtract };
    const struct {
        Op op;
        _smpteval a;
        _smpteval b;
        const char* expected;
    } cases[] = {
        {Subtract, tc(2, 0, 10, 0, 0), tc(2, 0, 0, 0, 1), "00:09:59;29"},
        // b counts at its own rate: 20 hours at 30 fps is exactly one day at
        // 25, a whole-day difference, which lands on midnight.
        {Subtract, tc(3, 0, 0, 0, 0), tc(1, 20, 0, 0, 0), "00:00:00:00"},
        {Subtract, tc(3, 0, 0, 2, 0), tc(1, 0, 0, 1, 0), "00:00:00:20"},
        {Add, tc(2, 23, 0, 0, 0), tc(2, 2, 0, 0, 0), "01:00:00;00"},
        {Add, tc(6, 23, 0, 0, 0), tc(4, 1, 0, 0, 5), "00:00:00:05"},
        // An unknown rate in a reads as frame 0, and b's count is laid out as
        // a drop-frame label.
        {Add, tc(0, 0, 0, 5, 0), tc(1, 0, 1, 0, 0), "00:01:00:02"},
    };
    for (const auto& c : cases) {
        _smpteval a = c.a;
        if (c.op == Add)
            QZSMPTE_AddSMPTE(&a, &c.b);
        else
            QZSMPTE_SubtractSMPTE(&a, &c.b);
        EXPECT_EQ(label(a), c.expected)
            << label(c.a) << (c.op == Add ? " + " : " - ") << label(c.b);
        EXPECT_EQ(a.rate, c.a.rate);
    }
    // Subtracting from an unknown rate leaves the record as it was.
    _smpteval a = {7, 1, 2, 3, 4, 5};
    const _smpteval b = tc(1, 0, 0, 0, 1);
    QZSMPTE_SubtractSMPTE(&a, &b);
    EXPECT_EQ(label(a), "01:02:03:04");
    EXPECT_EQ(a.reserved, 5u);
}

TEST(SmpteCompare, FieldsDecideInOrderAsUnsigned) {
    const struct {
        _smpteval a;
        _smpteval b;
        int expected;
    } cases[] = {
        {tc(1, 1, 2, 3, 4), tc(1, 1, 2, 3, 4), 0},
        {tc(1, 2, 0, 0, 0), tc(1, 1, 59, 59, 29), 1},
        {tc(1, 0, 0, 1, 0), tc(1, 0, 0, 0, 29), 1},
        {tc(3, 0, 0, 1, 0), tc(1, 0, 0, 1, 0), 0},  // rates are not compared
        {tc(1, 0, 0, 0, 0x80000000u), tc(1, 0, 0, 0, 1), 1},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(QZSMPTE_SMPTECompare(&c.a, &c.b), c.expected)
            << label(c.a) << " vs " << label(c.b);
        EXPECT_EQ(QZSMPTE_SMPTECompare(&c.b, &c.a), -c.expected)
            << label(c.b) << " vs " << label(c.a);
    }
}

TEST(SmpteNano, NanoTimeToLabelAndBackRoundingUp) {
    const struct {
        DWORD rate;
        LONGLONG nanos;
        const char* expected;
    } cases[] = {
        {3, 399997, "00:00:00:00"},
        {3, 399999, "00:00:00:01"},          // within the 5e-6 frame nudge
        {0, 600000000LL, "00:01:00:02"},     // unknown: 30 fps into the drop layout
        {4, 864000000000LL, "00:00:00:00"},  // one day
        // Before zero the count keeps its low 32 bits: -29 frames at 30 fps.
        {1, -10000000, "00:12:55:17"},
        {3, -1, "00:00:00:00"},
    };
    for (const auto& c : cases) {
        _smpteval t = tc(c.rate, 9, 9, 9, 9);
        QZSMPTE_NanoToSMPTE(c.nanos, &t);
        EXPECT_EQ(label(t), c.expected) << "rate " << c.rate << " nanos " << c.nanos;
    }
    const _smpteval frame1 = tc(2, 0, 0, 0, 1), unknown = tc(0, 1, 0, 0, 0);
    EXPECT_EQ(QZSMPTE_SMPTEToNanos(&frame1), 333667);  // 333666.67 ticks
    EXPECT_EQ(QZSMPTE_SMPTEToNanos(&unknown), 0);
}

TEST(SmpteHmsf, RateCodesUseTheTimecodeClockAndOthersTheCallersRate) {
    const struct {
        DWORD rate;
        LONGLONG nanos;
        double fps;
        const char* expected;
    } cases[] = {
        {3, 10000000, 50, "00:00:01:00"},        // codes 1..6 ignore the caller's rate
        {0, 37231400000LL, 50, "01:02:03:07"},   // 1 h 2 min 3.14 s
        {0, 19990000, 1, "00:00:02:00"},         // 1.999 s at 1 fps rounds up a second
        {0, 900000000000LL, 25, "01:00:00:00"},  // 25 hours wrap to 1
        {0, 19990000, 0.005, "00:00:01:00"},     // below 0.01 fps: no rounding
        // Before zero the fields are negative: -0.98 s is -24.5 frames.
        {0, -10000000, 25, "00:00:00:4294967272"},
    };
    for (const auto& c : cases) {
        _smpteval t = tc(c.rate, 9, 9, 9, 9);
        QzNanoTimeToHMSF(c.nanos, &t, c.fps);
        EXPECT_EQ(label(t), c.expected) << c.nanos << " ticks at " << c.fps << " fps";
    }
    struct Back {
        _smpteval t;
        double fps;
        LONGLONG nanos;
    };
    const Back back[] = {
        {tc(3, 0, 0, 0, 1), 50, 400000},   {tc(2, 1, 0, 0, 0), 30, 35999964000LL},
        {tc(0, 0, 0, 0, 1), 3, 3333333},  // 3333333.33 rounds to nearest
        {tc(0, 0, 0, 0, 2), 3, 6666667},   {tc(0, 0, 0, 0, 0), 0, 0},  // 0/0
        {tc(0, 0, 0, 0, 1), 0, INT64_MAX},                             // 1/0
    };
    for (const auto& b : back)
        EXPECT_EQ(QzHMSFToNanoTime(&b.t, b.fps), b.nanos) << label(b.t) << " at " << b.fps;
    // The SMPTE-like form ignores the record's rate code and rounds up.
    const Back like[] = {{tc(3, 0, 0, 0, 1), 50, 200000},
                         {tc(0, 0, 0, 0, 0), 0, 0},
                         {tc(0, 0, 0, 0, 1), 0, INT64_MAX},
                         {tc(0, 0, 0, 0, 1), -1, -9999999}};
    for (const auto& b : like)
        EXPECT_EQ(QZSMPTE_SmpteLikeToNanos(b.fps, &b.t), b.nanos) << label(b.t) << " at " << b.fps;
}

TEST(SmpteText, TypedTimecodesFillTheLabelFromTheRight) {
    const struct {
        DWORD rate;
        const WCHAR* text;
        const char* expected;
        HRESULT hr;
    } cases[] = {
        {0, QZTEXT("12345"), "00:01:23:45", S_OK},  // pairs from the right
        {1, QZTEXT("123:4"), "00:01:23:04", S_OK},
        {1, QZTEXT(" 10.20/30 15"), "10:20:30:15", S_OK},
        {1, QZTEXT("1:2:3:4:5"), "01:02:03:04", S_OK},  // first four numbers
        // A separator after the last digit is a zero field; spaces are not.
        {1, QZTEXT("1:2 :"), "00:01:02:00", S_OK},
        {1, QZTEXT("1:2  "), "00:00:01:02", S_OK},
        // Carries at the label rate; hours wrap at 24.
        {1, QZTEXT("99:99:99:99"), "04:40:42:09", S_OK},
        {0, QZTEXT("99:99:99:99"), "99:99:99:99", S_OK},  // unknown codes: as typed
        {2, QZTEXT("00:01:00;00"), "00:01:00;00", S_OK},  // skipped label kept
        {1,
         QZTEXT("1\x0661"
                "2"),
         "00:00:01:02", S_OK},  // only 0-9 are digits
        {1, QZTEXT("-1:+2h"), "00:01:02:00", S_OK},  // signs and letters separate
        {1, QZTEXT("::"), "00:00:00:00", S_FALSE},
        {1, nullptr, "00:00:00:00", S_FALSE},
    };
    for (const auto& c : cases) {
        _smpteval t = {c.rate, 7, 7, 7, 7, 7};
        EXPECT_EQ(QZSMPTE_TextToSMPTE(c.text, &t), c.hr) << c.expected;
        EXPECT_EQ(label(t), c.expected);
        EXPECT_EQ(t.reserved, 0u);
    }
    EXPECT_EQ(QZSMPTE_TextToSMPTE(QZTEXT("1"), nullptr), E_POINTER);
    // A long odd run pairs from the right, 7 77 77 77 ...: the first four count
    // (07:77:77:77 carried at 30 fps); the trailing separators come too late.
    std::basic_string<WCHAR> text(200001, QZTEXT('7'));
    text += QZTEXT("::::");
    _smpteval t = tc(1, 0, 0, 0, 0);
    EXPECT_EQ(QZSMPTE_TextToSMPTE(text.c_str(), &t), S_OK);
    EXPECT_EQ(label(t), "08:18:19:17");
}

// ---- nano time as text ----

std::string ascii(const WCHAR* text) {
    std::string s;
    for (; *text; ++text) s += char(*text);
    return s;
}

TEST(NanoTimeText, EachDisplayShowsTheRulerText) {
    const _qztempo fastest = {1000, 1, 64, 9999, 0};
    // Out of range fields take the neutral 4/4 at 120 with 960 ticks.
    const _qztempo invalid = {std::numeric_limits<double>::quiet_NaN(), 0, 3, 10000, 0};
    const struct {
        DWORD format;
        DWORD rate;
        const _qztempo* tempo;
        LONGLONG nanos;
        const char* expected;
    } cases[] = {
        {QZTIMEFMT_HMSMS, 0, nullptr, 9995000, "00:00:01.000"},  // halves round up
        {QZTIMEFMT_HMSMS, 0, nullptr, 9994999, "00:00:00.999"},
        {QZTIMEFMT_HMSMS, 0, nullptr, -4999, "00:00:00.000"},  // no "-0"
        {QZTIMEFMT_HMSMS, 0, nullptr, -5000, "-00:00:00.001"},
        {QZTIMEFMT_HMSMS, 0, nullptr, 899999995000LL, "25:00:00.000"},  // no wrap
        {QZTIMEFMT_HMSMS, 0, nullptr, INT64_MIN, "-256204778:48:05.478"},
        {99, 0, nullptr, 37234560000LL, "01:02:03.456"},  // unknown format
        {QZTIMEFMT_SECONDS, 0, nullptr, 37234555000LL, "3723.456"},
        // Drop-frame: the times of frames 17982 and 1800, and just before.
        {QZTIMEFMT_SMPTE, 2, nullptr, 5999994000LL, "00:10:00;00"},
        // The label's 5e-6 frame nudge is 1.67 ticks at 29.97.
        {QZTIMEFMT_SMPTE, 2, nullptr, 5999993999LL, "00:10:00;00"},
        {QZTIMEFMT_SMPTE, 2, nullptr, 5999993998LL, "00:09:59;29"},
        {QZTIMEFMT_SMPTE, 3, nullptr, 900000000000LL, "01:00:00:00"},  // wraps at 24 h
        {QZTIMEFMT_SMPTE, 3, nullptr, -399999, "-00:00:00:01"},
        {QZTIMEFMT_SMPTE, 7, nullptr, 600000000, "00:01:00:00"},  // unknown: 30 non-drop
        {QZTIMEFMT_SMPTE, 4, nullptr, -416667, "-00:00:00:01"},
        // Whole days are dropped exactly, far beyond 2^32 frames too.
        {QZTIMEFMT_SMPTE, 1, nullptr, INT64_MIN, "-02:48:05:14"},
        {QZTIMEFMT_SMPTE, 2, nullptr, INT64_MIN, "-19:00:23;17"},
        {QZTIMEFMT_FRAMES, 6, nullptr, INT64_MIN, "-22113978909541"},
        {QZTIMEFMT_SAMPLES, 44100, nullptr, 10000000, "44100"},
        {QZTIMEFMT_SAMPLES, 2, nullptr, 2500000, "1"},  // half a sample rounds up
        {QZTIMEFMT_SAMPLES, 2, nullptr, -2499999, "0"},
        {QZTIMEFMT_SAMPLES, 0, nullptr, 10000000, "48000"},
        {QZTIMEFMT_MEASURES, 0, nullptr, 4999999, "1:2:000"},  // 959.9998 ticks
        {QZTIMEFMT_MEASURES, 0, nullptr, 2604, "1:1:000"},     // 0.49997 tick
        {QZTIMEFMT_MEASURES, 0, nullptr, 2605, "1:1:001"},
        {QZTIMEFMT_MEASURES, 0, nullptr, -5000000, "0:4:000"},
        {QZTIMEFMT_MEASURES, 0, nullptr, -25000000, "-1:4:000"},
        {QZTIMEFMT_MEASURES, 0, &invalid, 25000000, "2:2:000"},
        {QZTIMEFMT_MEASURES, 0, nullptr, INT64_MIN, "-461168601842:2:043"},
        {QZTIMEFMT_MEASURES, 0, &fastest, INT64_MAX, "245956587649461:1:6881"},
    };
    for (const auto& c : cases) {
        WCHAR text[QZ_NANOTIME_TEXT_MAX];
        const UINT n = QzNanoTimeToTextEx(c.nanos, c.format, c.rate, c.tempo, text);
        EXPECT_EQ(ascii(text), c.expected)
            << "format " << c.format << " rate " << c.rate << " " << c.nanos;
        EXPECT_EQ(n, std::string(c.expected).size()) << c.expected;
    }
    WCHAR text[QZ_NANOTIME_TEXT_MAX];
    QzNanoTimeToText(-37234560000LL, text);
    EXPECT_EQ(ascii(text), "-01:02:03.456");
}

TEST(NanoTimeText, FormatTextsNameTheDisplayAndItsParameters) {
    const struct {
        const WCHAR* format;
        LONGLONG nanos;
        const char* expected;
    } cases[] = {
        {QZTEXT("SMPTE:2"), 5999994000LL, "00:10:00;00"},
        {QZTEXT("smpte"), 5999994000LL, "00:09:59:29"},  // code 1
        {QZTEXT("frames:3"), 10000000, "25"},
        {QZTEXT("samples:44100"), 10000000, "44100"},
        {QZTEXT("samples:99999999999"), 1, "1"},  // clamped to one per tick
        {QZTEXT("samples:4410x"), 10000000, "48000"},
        {QZTEXT("measures:92.5:3/4:480:9"), 100000000, "6:1:200"},
        {QZTEXT("measures:120:6/8"), 17500000, "2:2:000"},
        {QZTEXT("measures:60"), 10000000, "1:2:000"},
        {QZTEXT("measures::3"), 15000000, "2:1:000"},
        {QZTEXT("measures:1.2.3:/:"), 5000000, "1:2:000"},
        {nullptr, 9995000, "00:00:01.000"},
    };
    for (const auto& c : cases) {
        WCHAR text[QZ_NANOTIME_TEXT_MAX];
        QzNanoTimeToTextFormat(c.nanos, c.format, text);
        EXPECT_EQ(ascii(text), c.expected) << (c.format ? ascii(c.format) : "(null)");
    }
}

TEST(NanoTimeText, CountedFormsCutTheTextAndWriteNothingPastTheCount) {
    constexpr WCHAR kSentinel = 0xBEEF;
    const std::pair<UINT, std::string> cases[] = {
        {0, ""}, {1, ""}, {2, "-"}, {6, "-00:0"}, {14, "-00:00:01.000"}};
    for (int form = 0; form < 3; ++form) {
        for (const auto& [count, expected] : cases) {
            WCHAR text[20];
            std::fill(std::begin(text), std::end(text), kSentinel);
            const LONGLONG t = -9995000;
            const UINT n = form == 0   ? QzNanoTimeToTextN(t, text, count)
                           : form == 1 ? QzNanoTimeToTextExN(t, 0, 0, nullptr, text, count)
                                       : QzNanoTimeToTextFormatN(t, QZTEXT("hms"), text, count);
            EXPECT_EQ(n, expected.size()) << "form " << form << " count " << count;
            if (count) {
                EXPECT_EQ(ascii(text), expected) << "form " << form << " count " << count;
            }
            for (size_t i = count; i < 20; ++i)
                EXPECT_EQ(text[i], kSentinel) << "form " << form << " count " << count;
        }
    }
    EXPECT_EQ(QzNanoTimeToTextN(1, nullptr, 10), 0u);
}

TEST(NanoTimeMeasures, PositionsRoundDownThroughZero) {
    const _qztempo three_four = {90, 3, 4, 480, 0};
    const struct {
        const _qztempo* tempo;
        LONGLONG nanos;
        const char* expected;  // measure beat tick
    } cases[] = {
        {nullptr, -1, "0 0 0"},  // rounds to tick 0
        {nullptr, -2605, "-1 3 959"},
        {&three_four, 20000000 + 13889, "1 0 1"},  // 2 s is one 3/4 bar at 90
    };
    for (const auto& c : cases) {
        _qzmbt p = {7, 7, 7};
        QzNanoTimeToMeasures(c.nanos, c.tempo, &p);
        EXPECT_EQ(
            std::to_string(p.measure) + " " + std::to_string(p.beat) + " " + std::to_string(p.tick),
            c.expected)
            << c.nanos;
    }
    QzNanoTimeToMeasures(1, nullptr, nullptr);
}

TEST(SmpteNullRecords, AreIgnored) {
    const _smpteval t = tc(1, 1, 0, 0, 0);
    _smpteval a = t;
    EXPECT_EQ(QZSMPTE_SMPTEToFrameCount(nullptr), 0u);
    QZSMPTE_FrameCountToSMPTE(nullptr, 5);
    QZSMPTE_AddSMPTE(&a, nullptr);
    QZSMPTE_SubtractSMPTE(&a, nullptr);
    EXPECT_EQ(label(a), "01:00:00:00");
    EXPECT_EQ(QZSMPTE_SMPTECompare(nullptr, &t), -1);
    EXPECT_EQ(QZSMPTE_SMPTECompare(&t, nullptr), 1);
    QZSMPTE_IncrementByFrame(nullptr, 0);
    QZSMPTE_NanoToSMPTE(1, nullptr);
    EXPECT_EQ(QZSMPTE_SMPTEToNanos(nullptr), 0);
    EXPECT_EQ(QzHMSFToNanoTime(nullptr, 25), 0);
}

}  // namespace
