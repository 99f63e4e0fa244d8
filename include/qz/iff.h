/*
 * iff.h - big-endian IFF chunk I/O and AIFF / AIFF-C sound files on a
 * Win32 file handle.
 *
 * An IFF file is a "FORM" container: a 12-byte file header ("FORM", size,
 * form type) followed by chunks, each a four-character id, a 32-bit size
 * that leaves out the pad byte, the body, and one zero pad byte after an
 * odd body, so every chunk starts on an even offset. Every integer in the
 * file is big-endian; the functions swap them on the way in and out, so
 * callers see host values.
 *
 * Four-character codes are 32-bit values whose most significant byte is
 * the first character, the big-endian word read from the file: "FORM" is
 * 0x464F524D, "AIFF" 0x41494646, "AIFC" 0x41494643, "COMM" 0x434F4D4D,
 * "SSND" 0x53534E44, "MARK" 0x4D41524B. (The riff_ functions hold the same
 * characters the other way round.)
 *
 * Like riff_, the functions work directly on the handle's file pointer,
 * with no buffering and no state of their own; the position after each
 * call is part of its contract. Positions are 32-bit offsets. One handle
 * must not be used by two threads at once.
 *
 * The remaining budget: iff_FindChunkHeader takes a pointer to the number
 * of bytes left in the enclosing body from the position (for the top
 * level, usually the FORM size). A search stops with QZE_NOT_FOUND
 * (0x8004E00A) once fewer than 8 bytes are left. The count is not
 * clamped: a body longer than the budget wraps it, and the search then
 * runs on to the end of the file, where it ends with QZE_FILE_READ.
 *
 * Failures of the platform layer: a read that returns fewer bytes than
 * asked gives QZE_FILE_READ (0x8004E008), a failed write QZE_FILE_WRITE
 * (0x8004E009). A seek that fails counts as a failure of the read or
 * write it serves. Output pointers are written only on success unless a
 * function says otherwise.
 *
 * Typical use: open the file with CreateFileW and call iff_GetAIFFWfx for
 * the sample format and the place of the samples, or iff_FindChunkFromStart
 * / iff_FindMarker for other chunks. A writer writes the file header with
 * iff_WriteFileID, then its chunk headers with iff_WriteChunk and the
 * fields with iff_WriteDWORD / iff_WriteWORD.
 */
#ifndef QZ_IFF_H
#define QZ_IFF_H

#include "qz/qzdefs.h"
#include "qz/qzresult.h"

/*
 * The wave format tags iff_GetAIFFWfx writes for AIFF samples besides
 * plain PCM (1, for AIFF-C "sowt"). These are the library's private tags,
 * named the same way in qz/qzwaveformat.h, whose format record maps them
 * to its sample types.
 */
#define QZWAVE_FORMAT_PCM_SIGNED 0xFE01    /* 8-bit samples, signed */
#define QZWAVE_FORMAT_PCM_BIGENDIAN 0xFE02 /* 16-, 24- or 32-bit big-endian PCM */

/* A chunk header with both fields in host order. */
typedef struct tQZIFFCHUNK {
    DWORD ckID;
    DWORD ckSize; /* data bytes, pad byte excluded */
} QZIFFCHUNK, *LPQZIFFCHUNK;

/*
 * The fixed part of a marker entry of an AIFF "MARK" chunk, laid out as
 * in the file (2-byte packing): the id, the position in sample frames
 * and the length byte of the marker's name, which follows in the file.
 */
#pragma pack(push, 2)
typedef struct tQZAIFFMARKER {
    WORD wId;
    DWORD dwPosition;
    BYTE cbName;
} QZAIFFMARKER, *LPQZAIFFMARKER;
#pragma pack(pop)

#ifdef __cplusplus
static_assert(sizeof(QZIFFCHUNK) == 8, "the IFF chunk header is 8 bytes");
static_assert(sizeof(QZAIFFMARKER) == 8, "the marker entry is 7 bytes and one of packing");
#endif

QZ_EXTERN_C_BEGIN

/* ---- byte order and single fields ---------------------------------------- */

/* Swaps the two bytes of each of `count` 16-bit words at `buffer` in place. */
QZ_API void QZ_STDCALL iff_ByteSwap16(LPVOID buffer, DWORD count);

/* Reverses the four bytes of each of `count` 32-bit words at `buffer` in place. */
QZ_API void QZ_STDCALL iff_ByteSwap32(LPVOID buffer, DWORD count);

/* Reads a big-endian 32-bit / 16-bit value at the position into *value. */
QZ_API HRESULT QZ_STDCALL iff_ReadDWORD(HANDLE file, DWORD* value);
QZ_API HRESULT QZ_STDCALL iff_ReadWORD(HANDLE file, WORD* value);

/* Writes `value` big-endian at the position: 4 / 2 bytes. */
QZ_API HRESULT QZ_STDCALL iff_WriteDWORD(HANDLE file, DWORD value);
QZ_API HRESULT QZ_STDCALL iff_WriteWORD(HANDLE file, WORD value);

/* The same two writers under the names the AIFF writers use. */
QZ_API HRESULT QZ_STDCALL aiff_WriteByteSwap16(HANDLE file, WORD value);
QZ_API HRESULT QZ_STDCALL aiff_WriteByteSwap32(HANDLE file, DWORD value);

/* ---- headers -------------------------------------------------------------- */

/*
 * Reads a chunk header (8 bytes) at the position into *header.
 * E_INVALIDARG for a null header.
 */
QZ_API HRESULT QZ_STDCALL iff_ReadChunkHdr(HANDLE file, QZIFFCHUNK* header);

/* Writes a chunk header: the id, then the size, big-endian. E_INVALIDARG for null. */
QZ_API HRESULT QZ_STDCALL iff_WriteChunk(HANDLE file, const QZIFFCHUNK* header);

/*
 * Reads the file header at the position: the chunk header into *header
 * (written whenever its 8 bytes arrived), then, when its id is "FORM",
 * the form type into *form_type. QZE_CORRUPT_OR_UNKNOWN (0x8004E00B) when
 * the id is not "FORM" (the position is then after the 8 bytes).
 * E_INVALIDARG when either pointer is null.
 */
QZ_API HRESULT QZ_STDCALL iff_ReadFormType(HANDLE file, QZIFFCHUNK* header, DWORD* form_type);

/* Writes a file header at the position: "FORM", `size`, the form type. */
QZ_API HRESULT QZ_STDCALL iff_WriteFileID(HANDLE file, DWORD form_type, DWORD size);

/* ---- walking -------------------------------------------------------------- */

/*
 * Seeks forward by `size` plus one when it is odd and returns that amount
 * (its low 32 bits), not a result code. A failed seek is not reported.
 */
QZ_API DWORD QZ_STDCALL iff_SkipChunk(HANDLE file, DWORD size);

/*
 * Walks sibling chunks from the position until one has `id`, leaving the
 * position at its first body byte; *size (optional) is its size field.
 * There is no budget: a missing chunk ends in QZE_FILE_READ at the end of
 * the file.
 */
QZ_API HRESULT QZ_STDCALL iff_SeekChunkHeader(HANDLE file, DWORD id, DWORD* size);

/*
 * Clears *size (optional), rewinds and reads the file header
 * (QZE_FILE_READ when its first 8 bytes are short, QZE_NO_RIFF_HEADER
 * (0x8004E080) when the id is not "FORM" or the form type is short), then
 * iff_SeekChunkHeader from offset 12. Any failure of that search is
 * reported as QZE_NOT_FOUND.
 */
QZ_API HRESULT QZ_STDCALL iff_FindChunkFromStart(HANDLE file, DWORD id, DWORD* size);

/*
 * Walks sibling chunks from the position with the budget *remaining
 * (required; E_INVALIDARG when null) until one has `id`, leaving the
 * position at its first body byte. *size (optional) is its size field and
 * *remaining the budget after its header, still counting its body, except
 * that a budget of exactly 0 there is not stored (the caller's count stays
 * as it was). QZE_NOT_FOUND when fewer than 8 bytes are left (the count
 * reached is stored); QZE_FILE_READ on a short read (the count is left as
 * it was). The budget wraps rather than clamps (see above).
 */
QZ_API HRESULT QZ_STDCALL iff_FindChunkHeader(HANDLE file, DWORD id, DWORD* size, DWORD* remaining);

/* ---- AIFF ----------------------------------------------------------------- */

/*
 * Finds "MARK" with iff_FindChunkFromStart (its failures are returned) and
 * the marker `id` in it. Each entry's fixed part is read into *marker
 * (required; E_INVALIDARG), which after a failure holds the last entry
 * read. On success the position is at the marker's name, after its
 * length byte. QZE_NOT_FOUND when the chunk is empty, holds no markers,
 * the marker count runs out or the next entry would not fit in the
 * chunk's size; QZE_NO_RIFF_HEADER when an entry is cut short by the end
 * of the file; QZE_FILE_READ when the marker count is.
 */
QZ_API HRESULT QZ_STDCALL iff_FindMarker(HANDLE file, WORD id, QZAIFFMARKER* marker);

/*
 * Tells whether the file is an AIFF or an AIFF-C file this library reads.
 * Rewinds and reads the file header; *form_size (optional) is the FORM
 * size. Form type "AIFF": TRUE. Form type "AIFC": *compressed (optional)
 * becomes TRUE, and the compression type of "COMM" (found with the FORM
 * size as the budget) decides: "NONE" gives TRUE, "sowt" (byte-swapped,
 * little-endian samples) gives TRUE and sets *little_endian (optional);
 * anything else, or a "COMM" missing or shorter than 22 bytes, FALSE. Any
 * other file: FALSE. The outputs given are cleared first. On TRUE the
 * position is at offset 12. Never fails otherwise: it returns a BOOL.
 */
QZ_API BOOL QZ_STDCALL iff_IsAIFFFileEx(HANDLE file, DWORD* form_size, BOOL* compressed,
                                        BOOL* little_endian);

/* iff_IsAIFFFileEx without the two flags. */
QZ_API BOOL QZ_STDCALL iff_IsAIFFFile(HANDLE file, DWORD* form_size);

/*
 * Reads the sample format of an AIFF or AIFF-C file as a WAVEFORMATEX.
 * QZE_CORRUPT_OR_UNKNOWN when iff_IsAIFFFileEx rejects the file. Then:
 *
 *   - "COMM" (the first 18 bytes, 22 for AIFF-C) gives the channels, the
 *     bits per sample and the rate (aiff_ConvertRate). The format tag is
 *     QZWAVE_FORMAT_PCM_SIGNED for 8-bit samples, else 1 (WAVE_FORMAT_PCM)
 *     for AIFF-C "sowt" and QZWAVE_FORMAT_PCM_BIGENDIAN otherwise. Block
 *     align is (bits / 8) x channels, the byte rate block align x rate;
 *     after that a block align of 0 becomes 1. cbSize is 0.
 *   - "SSND" gives the samples: *frames (optional) becomes the smaller of
 *     the frames its bytes hold (its size less its 8-byte offset and
 *     block-size fields and less the offset, 0 when those run past it)
 *     and the frame count of "COMM"; *data_position (optional) the offset
 *     of the first sample (after the two fields, plus the offset).
 *
 * Both chunks are searched from offset 12 with the FORM size as the
 * budget; their search failures are returned unchanged, and a short read
 * of either gives QZE_FILE_READ. The position ends after the two "SSND"
 * fields. `wfx` may be null when only the other outputs are wanted.
 */
QZ_API HRESULT QZ_STDCALL iff_GetAIFFWfx(HANDLE file, WAVEFORMATEX* wfx, DWORD* frames,
                                         DWORD* data_position);

/*
 * Removes a top-level chunk from an AIFF or AIFF-C file, moves everything
 * after it down, shrinks the file and lowers the FORM size by the bytes
 * removed. The tail moves through one zeroed heap block of at most 4096
 * bytes. *removed (optional; cleared first) becomes the span removed:
 * header, body and pad. QZE_CORRUPT_OR_UNKNOWN for a file iff_IsAIFFFileEx
 * rejects, or for a chunk that claims more bytes than the file holds or
 * than the FORM size covers (nothing moves then); the search's failure
 * unchanged (QZE_NOT_FOUND when absent); E_OUTOFMEMORY; QZE_FILE_READ /
 * QZE_FILE_WRITE while moving; QZE_FILE_WRITE when the file cannot be
 * cut or the size written (the size is still lowered after a failed cut).
 */
QZ_API HRESULT QZ_STDCALL iff_DeleteChunk(HANDLE file, DWORD id, DWORD* removed);

/* ---- the 80-bit extended sample rate of "COMM" ----------------------------- */

/*
 * Turns an 80-bit extended rate into an integer: `exponent` is the sign
 * and exponent word, `mantissa` the four mantissa words, most significant
 * first, all in host order (a null mantissa reads as zeros). A negative
 * rate gives 44100. Doubling stops once the value passes 96000, so rates
 * up to 192000 convert exactly and larger ones give the first doubling
 * above 96000 (352800 gives 176400); a value below 1 doubles until it
 * passes 96000. Infinities and NaNs fall under the same ceiling. Never
 * fails.
 */
QZ_API DWORD QZ_STDCALL aiff_ConvertRate(WORD exponent, const WORD* mantissa);

/*
 * Encodes `rate` as an 80-bit extended value: *exponent (biased by 16383)
 * and four mantissa words, most significant first, with the integer bit
 * as the top bit of the first. 44100 gives 0x400E and 0xAC44, 0, 0, 0;
 * 0 gives 0x3FFF and zeros. Null outputs are not written.
 */
QZ_API void QZ_STDCALL aiff_CreateRate(DWORD rate, WORD* exponent, WORD* mantissa);

QZ_EXTERN_C_END

#endif
