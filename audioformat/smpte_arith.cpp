// SMPTE timecode: adding, subtracting, comparing and stepping labels.
#include "audioformat/smpte_internal.h"

namespace qz {

namespace {

int compare_field(DWORD a, DWORD b) {
    return a > b ? 1 : (a < b ? -1 : 0);
}

// The hour after `hours`, wrapping at 24; only the low five bits count.
DWORD next_hour(DWORD hours) {
    const DWORD next = (hours & 31) + 1;
    return next > 23 ? 0 : next;
}

DWORD previous_hour(DWORD hours) {
    const DWORD low = hours & 31;
    return low == 0 ? 23 : low - 1;
}

}  // namespace

}  // namespace qz

using namespace qz::smpte;

QZ_EXTERN_C QZ_API void QZ_STDCALL QZSMPTE_AddSMPTE(_smpteval* a, const _smpteval* b) {
    if (!a || !b) return;
    DWORD sum = QZSMPTE_SMPTEToFrameCount(a) + QZSMPTE_SMPTEToFrameCount(b);
    // An unknown rate has no day length; the label conversion wraps the sum
    // into its drop-frame day instead.
    if (const DWORD day = smpte_frames_per_day(a->rate)) sum %= day;
    QZSMPTE_FrameCountToSMPTE(a, sum);
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QZSMPTE_SubtractSMPTE(_smpteval* a, const _smpteval* b) {
    if (!a || !b) return;
    const LONGLONG day = smpte_frames_per_day(a->rate);
    if (day == 0) return;  // no day to wrap a negative difference into
    const LONGLONG difference =
        LONGLONG(QZSMPTE_SMPTEToFrameCount(a)) - LONGLONG(QZSMPTE_SMPTEToFrameCount(b));
    // A negative difference that is a whole number of days gives `day`
    // itself, which the label conversion wraps to 00:00:00:00.
    const LONGLONG wrapped = difference >= 0 ? difference % day : day - (-difference) % day;
    QZSMPTE_FrameCountToSMPTE(a, DWORD(wrapped));
}

QZ_EXTERN_C QZ_API int QZ_STDCALL QZSMPTE_SMPTECompare(const _smpteval* a, const _smpteval* b) {
    if (!a || !b) return a ? 1 : (b ? -1 : 0);
    if (int c = qz::compare_field(a->hours, b->hours)) return c;
    if (int c = qz::compare_field(a->minutes, b->minutes)) return c;
    if (int c = qz::compare_field(a->seconds, b->seconds)) return c;
    return qz::compare_field(a->frames, b->frames);
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QZSMPTE_IncrementByFrame(_smpteval* smpte, DWORD) {
    if (!smpte) return;
    const DWORD limit = smpte_label_fps(smpte->rate) - 1;
    if (++smpte->frames <= limit) return;
    smpte->frames = 0;
    if (++smpte->seconds < 60) return;
    smpte->seconds = 0;
    ++smpte->minutes;
    if (smpte->rate == QZSMPTE_RATE_2997_DROP && smpte_minute_drops_labels(smpte->minutes))
        smpte->frames += kFirstDropFrameLabel;
    if (smpte->minutes < 60) return;
    smpte->minutes = 0;
    smpte->hours = qz::next_hour(smpte->hours);
}

// Fields are read as signed 32-bit values, so a field above 0x7FFFFFFF
// counts as negative and borrows like 0 does.
QZ_EXTERN_C QZ_API void QZ_STDCALL QZSMPTE_DeccrementByFrame(_smpteval* smpte, DWORD) {
    if (!smpte) return;
    const DWORD limit = smpte_label_fps(smpte->rate) - 1;
    if (LONGLONG(LONG(smpte->frames)) - 1 >= 0) {
        --smpte->frames;
        return;
    }
    smpte->frames = limit;
    if (LONGLONG(LONG(smpte->seconds)) - 1 >= 0) {
        --smpte->seconds;
        return;
    }
    smpte->seconds = 59;
    if (LONGLONG(LONG(smpte->minutes)) - 1 >= 0) {
        --smpte->minutes;
    } else {
        smpte->minutes = 59;
        smpte->hours = qz::previous_hour(smpte->hours);
    }
    // Code 5 takes the drop-frame correction here too, although its labels
    // do not drop; hosts depend on these exact steps.
    const bool drop_step =
        smpte->rate == QZSMPTE_RATE_2997_DROP || smpte->rate == QZSMPTE_RATE_2997;
    if (drop_step && smpte_minute_drops_labels(smpte->minutes))
        smpte->frames += kFirstDropFrameLabel;
}
