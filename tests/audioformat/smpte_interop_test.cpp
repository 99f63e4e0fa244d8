// SMPTE labels against FFmpeg's libavutil timecode functions: counts into
// labels. Labels back into counts are checked frame by frame in smpte_test.
#include <gtest/gtest.h>

#include <cstdio>
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

std::string spelled(const _smpteval& t, bool drop) {
    char text[AV_TIMECODE_STR_SIZE];
    std::snprintf(text, sizeof text, "%02u:%02u:%02u%c%02u", unsigned(t.hours), unsigned(t.minutes),
                  unsigned(t.seconds), drop ? ';' : ':', unsigned(t.frames));
    return text;
}

void compare_labels(const Rate& rate, DWORD first, DWORD last, DWORD stride) {
    AVTimecode tc;
    const int flags = AV_TIMECODE_FLAG_24HOURSMAX | (rate.drop ? AV_TIMECODE_FLAG_DROPFRAME : 0);
    ASSERT_EQ(av_timecode_init(&tc, rate.clock, flags, 0, nullptr), 0);
    DWORD mismatches = 0;
    for (DWORD n = first; n < last; n += stride) {
        char reference[AV_TIMECODE_STR_SIZE];
        av_timecode_make_string(&tc, reference, int(n));
        _smpteval ours = {rate.code, 0, 0, 0, 0, 0};
        QZSMPTE_FrameCountToSMPTE(&ours, n);
        if (spelled(ours, rate.drop) != reference && ++mismatches <= 5)
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

#else

TEST(SmpteInterop, NeedsLibavutil) {
    GTEST_SKIP() << "built without libavutil";
}

#endif

}  // namespace
