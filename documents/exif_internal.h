/*
 * exif_internal.h - what the EXIF reader, writer and summary items share:
 * the tag numbers, the JPEG markers and the summary-item helpers.
 */
#ifndef QZ_DOCUMENTS_EXIF_INTERNAL_H
#define QZ_DOCUMENTS_EXIF_INTERNAL_H

#include <cstdint>

#include "qz/qzexif.h"

namespace qz::exif {

// Tags the reader takes, and those the writer adds itself.
constexpr WORD kTagMake = 271;
constexpr WORD kTagModel = 272;
constexpr WORD kTagDateTime = 306;
constexpr WORD kTagArtist = 315;
constexpr WORD kTagRightsNotice = 33432;
constexpr WORD kTagExifIfdPointer = 34665;
constexpr WORD kTagDateTimeOriginal = 36867;
constexpr WORD kTagDateTimeDigitized = 36868;
constexpr WORD kTagFlash = 37385;
constexpr WORD kTagInteroperabilityIfdPointer = 40965;

// JPEG markers, as the big-endian load of their two bytes.
constexpr uint16_t kMarkerSoi = 0xFFD8;
constexpr uint16_t kMarkerApp0 = 0xFFE0;
constexpr uint16_t kMarkerApp1 = 0xFFE1;
constexpr uint16_t kMarkerApp2 = 0xFFE2;
// "Exif" and two zero bytes open the APP1 segment that carries TIFF data.
constexpr BYTE kExifIdentifier[6] = {'E', 'x', 'i', 'f', 0, 0};

// TIFF: byte-order marks, the magic number, and the sizes of the parts.
constexpr uint16_t kTiffLittle = 0x4949;  // "II"
constexpr uint16_t kTiffBig = 0x4D4D;     // "MM"
constexpr uint16_t kTiffMagic = 42;
constexpr DWORD kTiffHeaderSize = 8;
constexpr DWORD kIfdEntrySize = 12;

constexpr DWORD kItemHeaderSize = QZMETA_SUM_TAG_HEADER_SIZE;
constexpr DWORD kIdSignature = 0x65000000u;
constexpr DWORD kMaxIfdInId = 15;  // four bits of the identifier

inline constexpr DWORD make_id(DWORD ifd, DWORD tag, DWORD type) {
    return QZEXIF_ID(ifd, tag, type);
}

// Types 1 to 10 are EXIF types; the others are not.
inline constexpr bool is_valid_type(DWORD type) {
    return type >= 1 && type <= 10;
}

// Appends an item with a copy of `size` bytes of `data` (null: zeros).
HRESULT append_item(tQZLIST* list, DWORD id, const void* data, DWORD size);
// The first item of the list with identifier `id`, or null.
const QZMETA_SUM_TAG* find_item(const tQZLIST* list, DWORD id);
// The item in slot i of a summary list.
inline QZMETA_SUM_TAG* item_at(const tQZLIST* list, LONG i) {
    return static_cast<QZMETA_SUM_TAG*>(QZLIST_ITEMPTR(list, i));
}

}  // namespace qz::exif

#endif
