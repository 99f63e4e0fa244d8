// Rate tables and numeric helpers shared by the SMPTE timecode files.
#ifndef QZ_AUDIOFORMAT_SMPTE_INTERNAL_H
#define QZ_AUDIOFORMAT_SMPTE_INTERNAL_H

#include "qz/qzsmpte.h"

namespace qz::smpte {

// The 30-frame label layout, which drop-frame labels share.
inline constexpr DWORD kFramesPerMinute30 = 1800;
inline constexpr DWORD kFramesPerTenMinutes30 = 18000;
inline constexpr DWORD kFramesPerHour30 = 108000;
inline constexpr DWORD kFramesPerDay30 = 2592000;
// Drop-frame labels skip two frames in 54 of every 60 minutes.
inline constexpr DWORD kDroppedPerMinute = 2;
inline constexpr DWORD kDroppedPerHour = 108;
inline constexpr DWORD kFramesPerDayDrop = 24 * (kFramesPerHour30 - kDroppedPerHour);
// The first label of a drop-frame minute that exists.
inline constexpr DWORD kFirstDropFrameLabel = 2;

inline constexpr double kNanoPerSecond = 1e7;
inline constexpr double kSecondsPerNano = 1e-7;
inline constexpr double kNtscClock30 = 29.97002997002997;   // 30000 / 1001
inline constexpr double kNtscClock24 = 23.976023976023978;  // 24000 / 1001

inline bool smpte_known_rate(DWORD rate) {
    return rate >= 1 && rate <= 6;
}

// Labels per second: 25 for code 3, 24 for codes 4 and 6, and 30 for every
// other code, unknown ones included, so that stepping an unknown code uses
// the 30-frame layout.
inline DWORD smpte_label_fps(DWORD rate) {
    switch (rate) {
        case QZSMPTE_RATE_25:
            return 25;
        case QZSMPTE_RATE_24:
        case QZSMPTE_RATE_23976:
            return 24;
        default:
            return 30;
    }
}

// Frames in 24 hours of labels at a known rate; 0 for unknown codes.
inline DWORD smpte_frames_per_day(DWORD rate) {
    if (rate == QZSMPTE_RATE_2997_DROP) return kFramesPerDayDrop;
    if (!smpte_known_rate(rate)) return 0;
    return smpte_label_fps(rate) * 86400;
}

// Frames per second of the media clock; unknown codes run at 30.
inline double smpte_clock_rate(DWORD rate) {
    switch (rate) {
        case QZSMPTE_RATE_2997_DROP:
        case QZSMPTE_RATE_2997:
            return kNtscClock30;
        case QZSMPTE_RATE_25:
            return 25.0;
        case QZSMPTE_RATE_24:
            return 24.0;
        case QZSMPTE_RATE_23976:
            return kNtscClock24;
        default:
            return 30.0;
    }
}

// True for a drop-frame minute start whose frames 0 and 1 have no label.
inline bool smpte_minute_drops_labels(DWORD minutes) {
    return minutes % 10 != 0;
}

}  // namespace qz::smpte

#endif
