// SMPTE timecode: labels to frame counts and back.
#include "audioformat/smpte_internal.h"

namespace qz {

namespace {

using namespace qz::smpte;

struct LabelLayout {
    DWORD fps;
    DWORD per_minute;
    DWORD per_hour;
};

LabelLayout label_layout(DWORD rate) {
    const DWORD fps = smpte_label_fps(rate);
    return {fps, fps * 60, fps * 3600};
}

// Labels skipped before label number `label` of the 30-frame layout (label
// numbers count every 30-frame label, the skipped ones included).
DWORD dropped_before_label(DWORD label) {
    const DWORD in_hour = label % kFramesPerHour30;
    const DWORD minute = in_hour / kFramesPerMinute30;
    // Minute 0 of an hour counts nothing here: it and every tenth minute
    // keep their labels, so 2 per minute less 2 per ten minutes started.
    return label / kFramesPerHour30 * kDroppedPerHour +
           (minute - in_hour / kFramesPerTenMinutes30) * kDroppedPerMinute;
}

// The 30-frame label number of drop-frame count `count`: the least L with
// L = count + dropped_before_label(L). dropped_before_label never decreases
// as L grows, so iterating from no drops climbs to that fixed point; with
// the count inside one day it stops within a few rounds.
DWORD drop_frame_label_number(DWORD count) {
    DWORD dropped = 0;
    for (;;) {
        const DWORD label = count + dropped;
        const DWORD next = dropped_before_label(label);
        if (next == dropped) return label;
        dropped = next;
    }
}

void split_label(_smpteval* smpte, DWORD n, const LabelLayout& layout) {
    smpte->hours = n / layout.per_hour;
    DWORD rest = n % layout.per_hour;
    smpte->minutes = rest / layout.per_minute;
    rest -= smpte->minutes * layout.per_minute;
    smpte->seconds = rest / layout.fps;
    smpte->frames = rest - smpte->seconds * layout.fps;
}

bool is_skipped_drop_label(const _smpteval* smpte) {
    return smpte->frames < kFirstDropFrameLabel && smpte->seconds == 0 &&
           smpte_minute_drops_labels(smpte->minutes);
}

}  // namespace

}  // namespace qz

using namespace qz::smpte;

QZ_EXTERN_C QZ_API DWORD QZ_STDCALL QZSMPTE_SMPTEToFrameCount(const _smpteval* smpte) {
    if (!smpte || !smpte_known_rate(smpte->rate)) return 0;
    const DWORD fps = smpte_label_fps(smpte->rate);
    const bool drop = smpte->rate == QZSMPTE_RATE_2997_DROP;
    const DWORD frames =
        drop && qz::is_skipped_drop_label(smpte) ? kFirstDropFrameLabel : smpte->frames;
    DWORD count = (smpte->seconds + (smpte->minutes + smpte->hours * 60) * 60) * fps + frames;
    if (drop) {
        count -= smpte->hours * kDroppedPerHour +
                 (smpte->minutes - smpte->minutes / 10) * kDroppedPerMinute;
    }
    return count;
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QZSMPTE_FrameCountToSMPTE(_smpteval* smpte, DWORD frame_count) {
    if (!smpte) return;
    const DWORD rate = smpte->rate;
    const bool drop_layout = !smpte_known_rate(rate) || rate == QZSMPTE_RATE_2997_DROP;
    const qz::LabelLayout layout = qz::label_layout(drop_layout ? QZSMPTE_RATE_30 : rate);
    DWORD n;
    if (drop_layout) {
        const DWORD label = qz::drop_frame_label_number(frame_count % kFramesPerDayDrop);
        n = label % kFramesPerDay30;
    } else {
        n = frame_count % smpte_frames_per_day(rate);
    }
    qz::split_label(smpte, n, layout);
    // The fixed point never lands on a skipped label; the guard keeps the
    // result a real label whatever the count.
    if (rate == QZSMPTE_RATE_2997_DROP && qz::is_skipped_drop_label(smpte))
        smpte->frames = kFirstDropFrameLabel;
}
