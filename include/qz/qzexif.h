/*
 * qzexif.h - CQzExifMetaDataHelper: a few EXIF tags of JPEG and TIFF files
 * read into a summary list, and a summary list written back into a JPEG
 * file as its one EXIF segment.
 *
 * The summary list is a heap-item tQZLIST (created with QZLIST_HEAPITEMS):
 * each item is a block of 12 header bytes followed by the value bytes
 * (QZMETA_SUM_TAG). The list owns the blocks; the caller creates and
 * destroys the list. Text values are held as zero-terminated UTF-16 and
 * become 8-bit text in the ANSI code page in the file.
 *
 * Tags read: Make, Model, DateTime and Artist (filed under IFD 0); the
 * rights notice (33432), DateTimeOriginal, DateTimeDigitized (IFD 1) and
 * Flash (IFD 1, type SHORT, held as a 32-bit BOOL: "the flash fired"). The
 * rights notice sits in IFD 0 of a file but is filed under IFD 1. When a
 * tag occurs twice, the first one met is kept.
 */
#ifndef QZ_QZEXIF_H
#define QZ_QZEXIF_H

#include "qz/qzdefs.h"
#include "qz/qzlist.h"
#include "qz/qzresult.h"

/* EXIF value types. */
#define QZEXIF_TYPE_BYTE 1
#define QZEXIF_TYPE_ASCII 2     /* held as zero-terminated UTF-16 */
#define QZEXIF_TYPE_SHORT 3     /* 2 bytes */
#define QZEXIF_TYPE_LONG 4      /* 4 bytes */
#define QZEXIF_TYPE_RATIONAL 5  /* 8 bytes: numerator, denominator */
#define QZEXIF_TYPE_UNDEFINED 7 /* any number of bytes */

/* Image file directories an item belongs to. */
#define QZEXIF_IFD_0TH 0
#define QZEXIF_IFD_EXIF 1
#define QZEXIF_IFD_INTEROPERABILITY 2

/*
 * The identifier of an item: 0x65 in the top byte, the IFD index in bits
 * 20-23, the tag in bits 4-19 and the type in bits 0-3. Sorting items by
 * identifier orders them by IFD, then tag, then type.
 */
#define QZEXIF_ID(ifd, tag, type)                                                \
    (0x65000000u + (((DWORD)(ifd)&0xFu) << 20) + (((DWORD)(tag)&0xFFFFu) << 4) + \
     ((DWORD)(type)&0xFu))
#define QZEXIF_ID_IFD(id) (((DWORD)(id) >> 20) & 0xFu)
#define QZEXIF_ID_TAG(id) ((WORD)(((DWORD)(id) >> 4) & 0xFFFFu))
#define QZEXIF_ID_TYPE(id) ((WORD)((DWORD)(id)&0xFu))

/* The bytes before the value in every summary item. */
#define QZMETA_SUM_TAG_HEADER_SIZE 12u

/*
 * One summary item. A block holds header_size + data_size bytes: the value
 * starts at `data` and runs past the declared array.
 */
typedef struct QZMETA_SUM_TAG {
    DWORD header_size; /* QZMETA_SUM_TAG_HEADER_SIZE */
    DWORD id;          /* QZEXIF_ID(ifd, tag, type) */
    DWORD data_size;   /* bytes of the value */
    BYTE data[1];      /* the value (data_size bytes) */
} QZMETA_SUM_TAG;

#ifdef __cplusplus
static_assert(sizeof(QZMETA_SUM_TAG) == 16, "QZMETA_SUM_TAG has one layout on every build");

class QZ_API CQzExifMetaDataHelper {
public:
    CQzExifMetaDataHelper();
    virtual ~CQzExifMetaDataHelper();

    /*
     * Reads the tags of the JPEG file `path` (its first EXIF APP1 segment)
     * into `list`, appending. S_OK or QZS_... as the last tag handled gave;
     * E_FAIL for a file without SOI, without an EXIF segment or with an
     * empty or damaged first IFD; QZE_UNSUPPORTED_FORMAT for a bad TIFF
     * header or a text tag of another type; QZE_FILE_OPEN; E_INVALIDARG for
     * a null path or list; E_OUTOFMEMORY.
     */
    HRESULT QZ_STDCALL AddExifTagsToSummaryListFromJpeg(LPCWSTR path, tQZLIST* list);
    /* The same for a TIFF file, whose TIFF data starts at byte 0. */
    HRESULT QZ_STDCALL AddExifTagsToSummaryListFromTiff(LPCWSTR path, tQZLIST* list);
    /*
     * Rewrites the JPEG file `path` with one new EXIF segment built from
     * `list` (which is sorted by identifier on the way) in place of its
     * APP0, APP1 and APP2 segments; the rest of the file is kept byte for
     * byte. Items must be of IFD 0 to 2 and of a type the writer takes
     * (ASCII, SHORT of 2 bytes, LONG of 4, RATIONAL of 8, UNDEFINED).
     * E_FAIL for an invalid item, a file without SOI, a segment length
     * below 3, a file of 4 GiB - 1 bytes or more, or an EXIF segment that
     * would pass 65,533 bytes after its length field (the file is then not
     * touched); QZE_FILE_OPEN, QZE_FILE_READ, QZE_FILE_WRITE; E_INVALIDARG
     * for a null path or list; E_OUTOFMEMORY.
     */
    HRESULT QZ_STDCALL UpdateExifTagsFromSummaryList(LPCWSTR path, tQZLIST* list);
    /*
     * Appends the tags of a 160 x 120 thumbnail: resolution 72 dpi, co-sited
     * chroma, EXIF version 0221, components YCbCr, FlashPix 0100, sRGB, the
     * pixel dimensions and the "THM" interoperability index, version 0100.
     * The first failure stops and is returned.
     */
    HRESULT QZ_STDCALL AddDefaultThumbnailExifTagsToSummaryList(tQZLIST* list);
    /*
     * Appends one item, copying `size` bytes from `data` (null: zeros).
     * E_INVALIDARG for a null list, an IFD index above 15 (the identifier
     * has four bits for it) or a type of 0 or above 10; E_FAIL for a
     * list that does not own its items; E_OUTOFMEMORY.
     */
    HRESULT QZ_STDCALL AddExifTagToSummaryList(tQZLIST* list, WORD tag, WORD ifd, WORD type,
                                               DWORD size, LPCVOID data);
    /* An ASCII item holding `text` with its terminator (null: E_INVALIDARG). */
    HRESULT QZ_STDCALL AddStringExifTagToSummaryList(tQZLIST* list, WORD tag, WORD ifd,
                                                     LPCWSTR text);
    /* A RATIONAL item: numerator, then denominator. */
    HRESULT QZ_STDCALL AddRationalExifTagToSummaryList(tQZLIST* list, WORD tag, WORD ifd,
                                                       DWORD numerator, DWORD denominator);
    /* A SHORT item. */
    HRESULT QZ_STDCALL AddShortExifTagToSummaryList(tQZLIST* list, WORD tag, WORD ifd, WORD value);
    /* A LONG item. */
    HRESULT QZ_STDCALL AddLongExifTagToSummaryList(tQZLIST* list, WORD tag, WORD ifd, DWORD value);

    /*
     * Writes the fields of `time` as EXIF date-time text,
     * "YYYY:MM:DD HH:MM:SS" (19 characters and a terminator); no time-zone
     * conversion is made. E_INVALIDARG for a null time or buffer; E_FAIL
     * for a capacity under 20 characters or a field too wide for its
     * digits (year over 9999, any other over 99).
     */
    HRESULT QZ_STDCALL SystemTimeToLocalDateTimeString(const SYSTEMTIME* time, LPWSTR buffer,
                                                       int capacity);
    /*
     * Reads EXIF date-time text as local time (the time zone's offset in
     * effect on that date) and gives the instant as a FILETIME value: 100 ns
     * ticks since 1601-01-01 00:00 UTC. The text must be exactly
     * "YYYY:MM:DD HH:MM:SS" naming a real date and time from 1601 on (no
     * leading or trailing characters, no blanks for unknown fields);
     * anything else is E_INVALIDARG and *utc becomes 0. E_INVALIDARG for a
     * null argument.
     */
    HRESULT QZ_STDCALL ParseExifLocalDateTimeStringToUtc(LPCWSTR text, LONGLONG* utc);

private:
    struct IfdWalk;
    struct Segment;
    struct EntryData;

    /* The file position of the first segment after SOI that is not APP0-APP2. */
    HRESULT FindStartOfNonExifData(HANDLE file, DWORD* start);
    /* Walks the IFD at `offset` of the TIFF data; nested Exif IFDs recurse. */
    HRESULT ParseIFD(tQZLIST* list, const BYTE* tiff, DWORD size, DWORD offset, IfdWalk* walk);
    /* Reads the TIFF data from `tiff` to `end`: header, then the 0th IFD. */
    HRESULT AddExifTagsToSummaryList(tQZLIST* list, const BYTE* tiff, const BYTE* end);
    /* Files the ASCII entry at `entry` as item `id` (first occurrence wins). */
    HRESULT AddString(tQZLIST* list, DWORD id, const BYTE* tiff, DWORD size, const BYTE* entry);
    /* Files bit 0 of the SHORT entry at `entry` as a BOOL item `id`. */
    HRESULT AddBoolean(tQZLIST* list, DWORD id, const BYTE* entry);
    /* The bytes and count an item is written with. */
    HRESULT CreateIFDEntryData(const QZMETA_SUM_TAG* item, EntryData* entry);
    /* One 12-byte entry; values over 4 bytes take the running offset. */
    HRESULT WriteIFDEntry(Segment* segment, const QZMETA_SUM_TAG* item, const EntryData* entry);
    HRESULT Write0thIFD(Segment* segment, QZMETA_SUM_TAG* const* items, DWORD count);
    HRESULT WriteExifIFD(Segment* segment, QZMETA_SUM_TAG* const* items, DWORD count);
    HRESULT WriteInteroperabilityIFD(Segment* segment, QZMETA_SUM_TAG* const* items, DWORD count);
    /* Builds the whole APP1 segment from the list. */
    HRESULT WriteExifTagsFromSummaryList(Segment* segment, tQZLIST* list);
    BOOL IsOthIFDEntry(DWORD id) const;
    BOOL IsExifIFDEntry(DWORD id) const;
    BOOL IsInteroperabilityIFDEntry(DWORD id) const;

    DWORD m_byte_order; /* of the TIFF data being read: 0 "II", 1 "MM" */
};
#endif /* __cplusplus */

#endif
