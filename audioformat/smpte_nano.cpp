// SMPTE timecode and nano time: labels to 100-ns ticks and back.
#include <cmath>
#include <cstdint>

#include "audioformat/smpte_internal.h"

namespace qz {

namespace {

// A frame count of a nano time is nudged up by this much of a frame before
// truncation, so that a time produced from a label (which rounds up by
// almost a tick) does not fall just short of its frame.
constexpr double kFrameNudge = 5e-6;
// Label to nano time rounds up by just under a tick.
constexpr double kTickRoundUp = 0.999;
// Below this caller rate a frame is too long to round to.
constexpr double kMinimumRoundingRate = 0.01;

// Truncates toward zero like a C cast, but defined for every double: NaN
// gives 0 and values past the 64-bit range saturate.
LONGLONG truncate_to_int64(double value) {
    constexpr double kTwoTo63 = 9223372036854775808.0;
    if (std::isnan(value)) return 0;
    if (value >= kTwoTo63) return INT64_MAX;
    if (value < -kTwoTo63) return INT64_MIN;
    return static_cast<LONGLONG>(value);
}

// A field from a truncated value; negative values keep their two's
// complement bits.
DWORD field_from(double value) {
    return DWORD(ULONGLONG(truncate_to_int64(value)));
}

DWORD total_seconds(const _smpteval* smpte) {
    return (smpte->hours * 60 + smpte->minutes) * 60 + smpte->seconds;
}

}  // namespace

}  // namespace qz

using namespace qz::smpte;

QZ_EXTERN_C QZ_API void QZ_STDCALL QZSMPTE_NanoToSMPTE(LONGLONG nano_time, _smpteval* smpte) {
    if (!smpte) return;
    const double clock = smpte_clock_rate(smpte->rate);
    // |nano_time| * 30 / 1e7 stays far inside 64 bits, so no saturation
    // happens here; the count keeps its low 32 bits.
    const LONGLONG count =
        qz::truncate_to_int64(clock * double(nano_time) / kNanoPerSecond + qz::kFrameNudge);
    QZSMPTE_FrameCountToSMPTE(smpte, DWORD(ULONGLONG(count)));
}

QZ_EXTERN_C QZ_API LONGLONG QZ_STDCALL QZSMPTE_SMPTEToNanos(const _smpteval* smpte) {
    if (!smpte) return 0;
    const double count = QZSMPTE_SMPTEToFrameCount(smpte);
    return qz::truncate_to_int64(count / smpte_clock_rate(smpte->rate) * kNanoPerSecond +
                                 qz::kTickRoundUp);
}

QZ_EXTERN_C QZ_API LONGLONG QZ_STDCALL QZSMPTE_SmpteLikeToNanos(double frames_per_second,
                                                                const _smpteval* smpte) {
    if (!smpte) return 0;
    const double frames = double(qz::total_seconds(smpte)) * frames_per_second + smpte->frames;
    return qz::truncate_to_int64(frames / frames_per_second * kNanoPerSecond + qz::kTickRoundUp);
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QzNanoTimeToHMSF(LONGLONG nano_time, _smpteval* smpte,
                                                    double frames_per_second) {
    if (!smpte) return;
    if (smpte_known_rate(smpte->rate)) {
        QZSMPTE_NanoToSMPTE(nano_time, smpte);
        return;
    }
    // Scaled by 1e-7 rather than divided by 1e7: the two can differ in the
    // last bit, which the truncations below can show, so keep the product.
    double seconds = double(nano_time) * kSecondsPerNano;
    // Round to the nearest frame; a rate below 0.01 (or not a number) has
    // frames too long for that to mean anything.
    if (frames_per_second >= qz::kMinimumRoundingRate) seconds += 0.5 / frames_per_second;
    // |seconds| < 2^63 / 1e7, so the hour count fits easily.
    const LONGLONG hours = qz::truncate_to_int64(seconds / 3600);
    seconds -= double(hours) * 3600;
    smpte->hours = DWORD(ULONGLONG(hours % 24));
    const LONGLONG minutes = qz::truncate_to_int64(seconds / 60);
    seconds -= double(minutes) * 60;
    smpte->minutes = DWORD(ULONGLONG(minutes));
    const LONGLONG whole = qz::truncate_to_int64(seconds);
    smpte->seconds = DWORD(ULONGLONG(whole));
    smpte->frames = qz::field_from((seconds - double(whole)) * frames_per_second);
}

QZ_EXTERN_C QZ_API LONGLONG QZ_STDCALL QzHMSFToNanoTime(const _smpteval* smpte,
                                                        double frames_per_second) {
    if (!smpte) return 0;
    if (smpte_known_rate(smpte->rate)) return QZSMPTE_SMPTEToNanos(smpte);
    const double seconds = double(qz::total_seconds(smpte)) + smpte->frames / frames_per_second;
    return qz::truncate_to_int64(seconds * kNanoPerSecond + 0.5);
}
