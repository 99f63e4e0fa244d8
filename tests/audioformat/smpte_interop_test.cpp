// SMPTE labels against FFmpeg's libavutil timecode functions: counts into
// labels and labels back into counts.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "qz/qzsmpte.h"

#if QZ_HAVE_AVUTIL
extern "C" {
#include <libavutil/log.h>
#include <libavutil/timecode.h>
}
#endif

namespace {

#if QZ_HAVE_AVUTIL

struct Rate {
    DWORD code;
    AVRational clock;
    bool drop;
    DWORD day;     // frames in 24 hours of labels
    DWORD stride;  // every frame at drop-frame, a stride at the others
};

const Rate kRates[] = {
    {QZSMPTE_RATE_2997_DROP, {30000, 1001}, true, 2589408, 1},
    {QZSMPTE_RATE_30, {30, 1}, false, 2592000, 13},
    {QZSMPTE_RATE_25, {25, 1}, false, 2160000, 13},
    {QZSMPTE_RATE_24, {24, 1}, false, 2073600, 13},
    {QZSMPTE_RATE_2997, {30000, 1001}, false, 2592000, 13},
    {QZSMPTE_RATE_23976, {24000, 1001}, false, 2073600, 13},
};

_smpteval our_record(const Rate& rate, DWORD count) {
    _smpteval t = {rate.code, 0, 0, 0, 0, 0};
    QZSMPTE_FrameCountToSMPTE(&t, count);
    return t;
}

std::string spelled(const _smpteval& t, bool drop) {
    char text[AV_TIMECODE_STR_SIZE];
    std::snprintf(text, sizeof text, "%02u:%02u:%02u%c%02u", unsigned(t.hours), unsigned(t.minutes),
                  unsigned(t.seconds), drop ? ';' : ':', unsigned(t.frames));
    return text;
}

// Whether a libavutil label spells `t`, read in place to keep the day quick.
bool spells(const char* reference, const _smpteval& t, bool drop) {
    const auto two = [reference](int at) {
        return DWORD(reference[at] - '0') * 10 + DWORD(reference[at + 1] - '0');
    };
    return std::strlen(reference) == 11 && reference[2] == ':' && reference[5] == ':' &&
           reference[8] == (drop ? ';' : ':') && two(0) == t.hours && two(3) == t.minutes &&
           two(6) == t.seconds && two(9) == t.frames;
}

void compare_labels(const Rate& rate, DWORD first, DWORD last, DWORD stride) {
    AVTimecode tc;
    const int flags = AV_TIMECODE_FLAG_24HOURSMAX | (rate.drop ? AV_TIMECODE_FLAG_DROPFRAME : 0);
    ASSERT_EQ(av_timecode_init(&tc, rate.clock, flags, 0, nullptr), 0);
    DWORD mismatches = 0;
    for (DWORD n = first; n < last; n += stride) {
        char reference[AV_TIMECODE_STR_SIZE];
        av_timecode_make_string(&tc, reference, int(n));
        const _smpteval ours = our_record(rate, n);
        if (!spells(reference, ours, rate.drop) && ++mismatches <= 5)
            ADD_FAILURE() << "rate " << rate.code << " frame " << n << ": "
                          << spelled(ours, rate.drop) << ", libavutil " << reference;
    }
    EXPECT_EQ(mismatches, 0u) << "rate " << rate.code;
}

// Past one day both wrap the hours at 24 (below 2^30, where libavutil's int
// arithmetic would overflow).
TEST(SmpteInterop, LabelsMatchLibavutilAtEveryRateAndWrapAlike) {
    for (const Rate& rate : kRates) {
        compare_labels(rate, 0, rate.day, rate.stride);
        compare_labels(rate, rate.day - 100, 400 * rate.day, 104729);
    }
}

// Our labels read by libavutil's parser and by ours give the count back.
TEST(SmpteInterop, LabelsCountLikeLibavutil) {
    av_log_set_level(AV_LOG_QUIET);
    for (const Rate& rate : kRates) {
        DWORD mismatches = 0;
        for (DWORD n = 0; n < rate.day; n += rate.drop ? 7 : 61) {
            const _smpteval t = our_record(rate, n);
            const std::string ours = spelled(t, rate.drop);
            AVTimecode tc;
            const int parsed = av_timecode_init_from_string(&tc, rate.clock, ours.c_str(), nullptr);
            const DWORD count = QZSMPTE_SMPTEToFrameCount(&t);
            if ((parsed != 0 || DWORD(tc.start) != n || count != n) && ++mismatches <= 5)
                ADD_FAILURE() << "rate " << rate.code << " label " << ours << " of frame " << n
                              << ": libavutil start " << tc.start << " (" << parsed << "), ours "
                              << count;
        }
        EXPECT_EQ(mismatches, 0u) << "rate " << rate.code;
    }
}

#else

TEST(SmpteInterop, NeedsLibavutil) {
    GTEST_SKIP() << "built without libavutil";
}

#endif

}  // namespace
