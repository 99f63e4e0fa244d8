/*
 * qzwaveformat.h - the library's audio format record and its sample types.
 *
 * Every audio path of the library describes a stream with one fixed-layout
 * record, _qzwaveformat, that names the sample encoding by a QZSAMPLETYPE.
 * Formats outside the enumeration (codecs, odd bit depths) are carried as
 * "foreign" records that keep their format tag, bit depth, byte rate and
 * codec bytes. Microsoft WAVEFORMATEX / WAVEFORMATEXTENSIBLE structures are
 * produced and read only at the edges, by the conversions below.
 *
 * Nothing here fails: unknown encodings become foreign records, bad block
 * sizes are repaired or recomputed, extra bytes are cut to the room given
 * (at most 1024), and the only allocating calls return null when memory is
 * short. Null record or structure pointers make the calls do nothing and
 * return the neutral value they name.
 *
 * What a WAVEFORMATEX holds. No call reads a byte of a structure past
 * these, and every structure the library writes holds at least these:
 *  - WAVE_FORMAT_PCM (1) and WAVE_FORMAT_IEEE_FLOAT (3): the 18 bytes,
 *    whatever cbSize says. For these two tags cbSize is no length: when a
 *    foreign record of either tag is written out, its codec bytes go from
 *    offset 16, over cbSize, and their count is added to the value they
 *    leave there (the layout hosts expect). Bytes past the 18 are kept in
 *    the buffer written but never read back, not even by a clone.
 *  - WAVE_FORMAT_EXTENSIBLE: the 40 extensible bytes whatever cbSize says,
 *    then cbSize - 22 codec bytes when cbSize is above 22.
 *  - any other tag: the 18 bytes, then cbSize codec bytes.
 * A structure passed in must hold as much.
 *
 * This header is C++ only: the record has member functions.
 */
#ifndef QZ_QZWAVEFORMAT_H
#define QZ_QZWAVEFORMAT_H

#include "qz/qzdefs.h"

#ifdef __cplusplus

/* ---- sample types ------------------------------------------------------------ */

/* The sample encoding of a record; 0 means foreign (not in this table). */
enum QZSAMPLETYPE : DWORD {
    QZST_NONE = 0,
    QZST_PCM8 = 16,      /* 8-bit PCM, unsigned (tag 1) */
    QZST_PCM16 = 17,     /* 16-bit PCM (tag 1) */
    QZST_PCM24 = 18,     /* 24-bit packed PCM (tag 1) */
    QZST_PCM32 = 19,     /* 32-bit integer PCM (tag 1) */
    QZST_FLOAT32 = 32,   /* IEEE float (tag 3) */
    QZST_FLOAT64 = 33,   /* IEEE double (tag 3) */
    QZST_PCM24IN32 = 48, /* 24-bit samples in 32-bit containers (tag 0xFE00) */
    QZST_PCM8S = 49,     /* 8-bit PCM, signed (tag 0xFE01) */
    QZST_PCM16BE = 64,   /* 16-bit big-endian PCM (tag 0xFE02) */
    QZST_PCM24BE = 65,   /* 24-bit big-endian PCM (tag 0xFE02) */
    QZST_PCM32BE = 66,   /* 32-bit big-endian PCM (tag 0xFE02) */
    QZST_RA16 = 128,     /* 16-bit, tag 0xFE03 (no tag or width back out) */
    QZST_RA24 = 129,     /* 24-bit, tag 0xFE03 (no tag or width back out) */
};

/* The library's private wave format tags. */
#define QZWAVE_FORMAT_PCM24IN32 0xFE00
#define QZWAVE_FORMAT_PCM_SIGNED 0xFE01
#define QZWAVE_FORMAT_PCM_BIGENDIAN 0xFE02
#define QZWAVE_FORMAT_RA 0xFE03

/*
 * The form a record takes when it is turned into a Microsoft structure.
 * ASSOURCE: extensible when the record came from one (or its channel mask
 *   is neither 0 nor the default) and the destination has 40 bytes.
 * ASNEEDED: extensible when the mask is set and (more than two channels or
 *   the mask is not the default) and the destination has 40 bytes.
 * PLAIN: never extensible; the mask is dropped.
 * MULTICHANNEL: extensible for more than two channels, else as ASNEEDED.
 * EXTENSIBLE: always extensible.
 * MULTICHANNEL and EXTENSIBLE write the 40-byte form whatever room the
 * caller names: the destination must hold 40 bytes. Unknown values act as
 * ASNEEDED (and as PLAIN when an allocation is sized).
 */
enum QZWAVEFORMAT_COPY_DEST : DWORD {
    QZWFCD_ASSOURCE = 0,
    QZWFCD_ASNEEDED = 1,
    QZWFCD_PLAIN = 2,
    QZWFCD_MULTICHANNEL = 3,
    QZWFCD_EXTENSIBLE = 4,
};

/* ---- the record ---------------------------------------------------------------- */

#define QZWAVEFORMAT_BASE_SIZE 32u   /* the fixed part, without extraSize */
#define QZWAVEFORMAT_MAX_EXTRA 1024u /* extra bytes a record can carry */
#define QZWAVEFORMAT_MAX_SIZE (QZWAVEFORMAT_BASE_SIZE + 2u + QZWAVEFORMAT_MAX_EXTRA)
/* The size of the library's own temporary records (94 extra bytes). */
#define QZWAVEFORMAT_TEMP_SIZE 128u

#define QZWF_FOREIGN 0x08u    /* formatTag, bitsPerSample, avgBytesPerSec rule */
#define QZWF_EXTENSIBLE 0x10u /* made from a WAVEFORMATEXTENSIBLE */

/*
 * The format record. Its bytes are stored verbatim by callers, so the
 * layout is fixed: 32 bytes, then extraSize and the extra bytes, which are
 * present only when size is at least 34. A record may live in a smaller
 * buffer than this declaration (128 bytes is common): every operation that
 * fills one takes the buffer's capacity and never touches bytes past it.
 */
struct QZ_API _qzwaveformat {
    DWORD size;           /* bytes in use: 32, or 32 + extraSize */
    DWORD sampleType;     /* a QZSAMPLETYPE; 0 when foreign */
    DWORD samplesPerSec;  /* frames per second */
    WORD channels;        /* channel count */
    WORD blockAlign;      /* bytes per frame */
    DWORD channelMask;    /* speaker mask; 0: the default for the count */
    DWORD flags;          /* QZWF_FOREIGN, QZWF_EXTENSIBLE */
    WORD formatTag;       /* foreign records only */
    WORD bitsPerSample;   /* foreign records only */
    DWORD avgBytesPerSec; /* byte rate */
    WORD extraSize;       /* count of extra bytes (size >= 34 only) */
    BYTE extra[QZWAVEFORMAT_MAX_EXTRA];

    /*
     * Fills a record of a known sample type. `size` is the capacity of the
     * record's buffer: below 33 only the 32-byte part is touched and size
     * becomes 32; otherwise `size` bytes (at most the largest record) are
     * cleared and size keeps that value. blockAlign = bytes per sample x
     * channels, in 16 bits; avgBytesPerSec = blockAlign x rate.
     */
    void Init(DWORD samplesPerSec, QZSAMPLETYPE type, UINT channels, DWORD channelMask, DWORD size);
    /*
     * Fills a record from WAVEFORMATEX fields. PCM with 20 bits counts as 24;
     * a tag and width outside the enumeration make a foreign record.
     * blockAlign = channels x bits / 8.
     */
    void InitAsWfx(WORD formatTag, DWORD samplesPerSec, WORD bitsPerSample, WORD channels,
                   DWORD channelMask, DWORD size);
    /*
     * Reads a structure into the record (size: capacity of the record's
     * buffer, as above). PCM block sizes are repaired, extensible headers
     * with an empty sub-format are accepted when their numbers agree, and
     * anything else becomes foreign with its extra bytes, cut to the room.
     * Afterwards size is 32 + extraSize (32 when the buffer had no room).
     */
    void Init(DWORD size, const WAVEFORMATEX& wfx);
    /* Recomputes blockAlign and the byte rate of a known type; returns blockAlign. */
    DWORD UpdateBlockAlign();
    /* The stored tag of a foreign record, else the tag of the sample type. */
    WORD FormatTag() const;
    /* The stored width of a foreign record, else that of the sample type. */
    WORD BitsPerSample() const;
    /* BitsPerSample() / 8, rounded down (a 12-bit format gives 1). */
    WORD BytesPerSample() const;
    /* True for foreign records, whether or not their data is compressed. */
    bool IsCompressed() const;
    /*
     * Same sample type, rate, channels, foreign bit and mask (0 counting as
     * the default); foreign records must also agree on tag, byte rate, bits
     * and extra bytes. blockAlign and the extensible flag are not compared.
     */
    bool operator==(const _qzwaveformat& other) const;
    /* The record against a structure, by the same rules as above. */
    bool operator==(const WAVEFORMATEX& wfx) const;
};

static_assert(sizeof(WAVEFORMATEX) == 18, "WAVEFORMATEX is 18 packed bytes");

/* ---- Microsoft structures built from a record, for one call ---------------------- */

/* A plain 18-byte WAVEFORMATEX of a record (never extensible, no extra bytes). */
class QZ_API _qzwaveformat_wfxcopyhelper {
public:
    explicit _qzwaveformat_wfxcopyhelper(const _qzwaveformat& rec);
    const WAVEFORMATEX* wfx() const;
    operator const WAVEFORMATEX*() const { return wfx(); }

private:
    WAVEFORMATEX m_wfx;
};

/*
 * A holder big enough for any structure the library writes: the 40
 * extensible bytes and the largest extra block.
 */
class QZ_API _qzwaveformat_wfxplus {
public:
    _qzwaveformat_wfxplus();
    /* Re-forms `wfx` through a record for `dest`; null clears the holder. */
    const WAVEFORMATEX* Init(const WAVEFORMATEX* wfx, QZWAVEFORMAT_COPY_DEST dest);
    /* Writes the record in the form `dest` asks for. */
    const WAVEFORMATEX* Init(const _qzwaveformat& rec, QZWAVEFORMAT_COPY_DEST dest);
    const WAVEFORMATEX* wfx() const;
    /* The bytes of the structure held, by the rule at the top (at most kRoom). */
    DWORD Size() const;
    operator const WAVEFORMATEX*() const { return wfx(); }

    static constexpr DWORD kRoom = 40 + QZWAVEFORMAT_MAX_EXTRA;

protected:
    alignas(4) BYTE m_bytes[kRoom];
};

/* The record as its source form (QZWFCD_ASSOURCE): extensible when it came from one. */
class QZ_API _qzwaveformat_wfxecopyhelper : public _qzwaveformat_wfxplus {
public:
    explicit _qzwaveformat_wfxecopyhelper(const _qzwaveformat& rec);
};

/* ---- queries on structures (plain exports) ---------------------------------------- */

QZ_EXTERN_C_BEGIN

/*
 * The sample type of a format tag and width: tag 1 (8/16/20/24/32 bits),
 * 0xFE01 (as tag 1, 8 bits signed), 3 (32/64), 0xFE00 (24 or 32), 0xFE02
 * (8 bits as PCM8, 16/24/32 big-endian), 0xFE03 (16/24); else 0.
 */
QZ_API QZSAMPLETYPE QZ_STDCALL QzAudio_GetSampleType2(UINT formatTag, int bits);
/*
 * The sample type of a structure. An extensible one needs a sub-format of
 * the wave-tag family (the tag in Data1); 32-bit PCM with 24 valid bits is
 * QZST_PCM24IN32. Null gives 0.
 */
QZ_API QZSAMPLETYPE QZ_STDCALL QzAudio_GetSampleType(const WAVEFORMATEX* wfx);
/*
 * The wave tag: wFormatTag, or for an extensible structure (cbSize >= 22)
 * the tag of its sub-format, 0 when the sub-format is not a wave tag.
 * Null gives 0.
 */
QZ_API WORD QZ_STDCALL QzAudio_GetWaveFormatTag(const WAVEFORMATEX* wfx);
/*
 * TRUE with *tag = 1 or 3 for an extensible structure (cbSize >= 22) with
 * the PCM or IEEE-float sub-format; FALSE otherwise. tag may be null.
 */
QZ_API BOOL QZ_STDCALL QzAudio_GetFormatTagExtensible(WAVEFORMATEXTENSIBLE* wfx, DWORD* tag);
/*
 * TRUE unless the structure is PCM, float or a private PCM tag
 * (0xFE00-0xFE02) whose nBlockAlign is (bits / 8) x channels, or an
 * extensible PCM or float one. Null gives TRUE.
 */
QZ_API BOOL QZ_STDCALL QzAudio_IsCompressed(const WAVEFORMATEX* wfx);
/* FALSE for the PCM and float sub-formats with cbSize >= 22; else TRUE. */
QZ_API BOOL QZ_STDCALL QzAudio_IsCompressedExtensible(WAVEFORMATEXTENSIBLE* wfx);
/*
 * Fills a plain structure for a sample type: tag and bits of the type,
 * blockAlign (bits / 8) x channels, cbSize 0.
 */
QZ_API void QZ_STDCALL QzAudio_InitWfx(WAVEFORMATEX* wfx, DWORD samplesPerSec, QZSAMPLETYPE type,
                                       DWORD channels);
/*
 * Fills a structure of `room` bytes: the extensible form when the mask is
 * set, (more than two channels or not the default mask) and room >= 40; a
 * mask with more bits than channels is written as 0. Otherwise plain.
 */
QZ_API void QZ_STDCALL QzAudio_InitWfxFlex(WAVEFORMATEX* wfx, DWORD tag, DWORD samplesPerSec,
                                           DWORD bits, DWORD channels, DWORD channelMask,
                                           UINT room);
/* PCM only: 20 bits become 24, nBlockAlign = (bits / 8) x channels. TRUE if changed. */
QZ_API BOOL QZ_STDCALL QzAudio_FixBadWfx(WAVEFORMATEX* wfx);
/*
 * Re-forms `src` into `dst` (room bytes) through a 128-byte temporary
 * record, as QzAudio_GeneralCopyWfx does.
 */
QZ_API void QZ_STDCALL QzAudio_CopyWfx(WAVEFORMATEX* dst, UINT room, const WAVEFORMATEX* src,
                                       QZWAVEFORMAT_COPY_DEST dest);
/* QzAudio_CopyWfx with a 40-byte room. */
QZ_API void QZ_STDCALL QzAudio_CopyWfExt(WAVEFORMATEXTENSIBLE* dst, const WAVEFORMATEX* src,
                                         QZWAVEFORMAT_COPY_DEST dest);
/* Bits, bytes and tag of types 16..66; 0 for every other value (128, 129 too). */
QZ_API UINT QZ_STDCALL QzAudio_BitsFromSampleType(QZSAMPLETYPE type);
QZ_API UINT QZ_STDCALL QzAudio_BytesFromSampleType(QZSAMPLETYPE type);
QZ_API WORD QZ_STDCALL QzAudio_FormatTagFromSampleType(QZSAMPLETYPE type);

QZ_EXTERN_C_END

/* ---- conversions with records (typed exports) -------------------------------------- */

/*
 * Writes the record into `dst` (room bytes) in the form `dest` asks for.
 * Foreign records keep their tag, byte rate and block size, and as many
 * extra bytes as the room holds. Returns dst.
 */
QZ_API WAVEFORMATEX* QZ_STDCALL QzAudio_GeneralCopyWfx(WAVEFORMATEX* dst, UINT room,
                                                       const _qzwaveformat& rec,
                                                       QZWAVEFORMAT_COPY_DEST dest);
/*
 * Copies a record into a buffer of `room` bytes (0: 32; at least 32, at
 * most the largest record); extra bytes that do not fit are dropped
 * whole. `dest` is not used. Returns dst.
 */
QZ_API _qzwaveformat* QZ_STDCALL QzAudio_GeneralCopyQzWaveFormat(_qzwaveformat* dst, UINT room,
                                                                 const _qzwaveformat& src,
                                                                 QZWAVEFORMAT_COPY_DEST dest);
/*
 * A new structure for the record, sized for `dest` (18 or 40 bytes plus
 * extraSize), from zeroed, locked, movable global memory: free it with
 * GlobalUnlock and GlobalFree(GlobalHandle(p)). Null when memory is short
 * or the record pointer is null.
 */
QZ_API WAVEFORMATEX* QZ_STDCALL QzAudio_AllocAndCopyWfx(const _qzwaveformat& rec,
                                                        QZWAVEFORMAT_COPY_DEST dest);
QZ_API WAVEFORMATEX* QZ_STDCALL QzAudio_AllocAndCopyWfx(const _qzwaveformat* rec,
                                                        QZWAVEFORMAT_COPY_DEST dest);
/*
 * A copy of the structure in global memory as above: cloned byte for byte
 * when `dest` keeps its form (ASSOURCE; EXTENSIBLE of an extensible one;
 * ASNEEDED or PLAIN of a plain one), as many bytes as the structure holds
 * by the rule at the top (18 for PCM and float; at least 40 for an
 * extensible one; else 18 + cbSize), else re-formed
 * through a 128-byte record. Null for a null structure. This form is the
 * plain (extern "C") export; the record forms above are its C++ overloads.
 */
QZ_EXTERN_C QZ_API WAVEFORMATEX* QZ_STDCALL QzAudio_AllocAndCopyWfx(const WAVEFORMATEX* wfx,
                                                                    QZWAVEFORMAT_COPY_DEST dest);

/* ---- texts ------------------------------------------------------------------------ */

/*
 * The localised name of a sample type ("16 Bit", "32 Bit (IEEE Float)",
 * "24 Bit (Unpacked)", ...). The buffer (cch characters) is first emptied.
 * Texts with a width are formatted into the buffer, which is returned;
 * fixed texts (24-in-32, signed 8-bit, and the "Other Format" placeholder
 * of foreign records) are returned as the language's own string. Unknown
 * values return the empty buffer. The record forms use its sampleType.
 */
QZ_API const WCHAR* QZ_STDCALL QzAudio_GetSampleTypeText(QZSAMPLETYPE type, WCHAR* buf, UINT cch);
QZ_API const WCHAR* QZ_STDCALL QzAudio_GetSampleTypeText(const _qzwaveformat* rec, WCHAR* buf,
                                                         UINT cch);
/*
 * The sample width alone ("16 Bit"; "24 Bit" for 24-in-32). Foreign
 * records (type 0) give the placeholder when `placeholder` is TRUE and the
 * empty buffer when it is FALSE, for lists that leave the column blank.
 */
QZ_API const WCHAR* QZ_STDCALL QzAudio_GetBitDepthText(QZSAMPLETYPE type, WCHAR* buf, UINT cch,
                                                       BOOL placeholder);
QZ_API const WCHAR* QZ_STDCALL QzAudio_GetBitDepthText(const _qzwaveformat* rec, WCHAR* buf,
                                                       UINT cch, BOOL placeholder);

#endif /* __cplusplus */

#endif /* QZ_QZWAVEFORMAT_H */
