/*
 * riff.h - RIFF chunk I/O on a Win32 file handle.
 *
 * A RIFF file is a 12-byte file header ("RIFF", size, form type) followed
 * by chunks: a four-character id, a 32-bit size that leaves out the pad
 * byte, the body, and one zero pad byte after an odd body, so every chunk
 * starts on an even offset. A list is a chunk with the id "LIST" whose body
 * starts with a four-character list type. All integers are little-endian.
 *
 * Four-character codes are 32-bit values holding the characters in file
 * order, equal to the little-endian word read from the file: "RIFF" is
 * 0x46464952, "LIST" 0x5453494C, "fmt " 0x20746D66. No function changes
 * their case or checks their characters.
 *
 * The functions work directly on the handle's file pointer, with no
 * buffering and no state of their own: a chunk header (id and size) is one
 * 8-byte read, and after a read cut short the position is where the
 * platform left it, as after two 4-byte reads; the position after each
 * call is part of its contract.
 * Positions are 32-bit offsets, so files past 4 GiB are outside this
 * family. One handle must not be used by two threads at once.
 *
 * Sizes reported: riff_ReadFileID reports the RIFF size minus 4 (the bytes
 * after the form type); the list functions report the list size minus 4
 * (the bytes after the list type); chunk headers report the size field as
 * stored.
 *
 * The remaining budget: the walking functions take an optional pointer to
 * the number of bytes left in the enclosing RIFF or LIST body from the
 * position. With it, a walk stops with QZE_NOT_FOUND when fewer than 8
 * bytes (a header) or 4 (a list type) are left, and the count is decreased
 * in place. Without it, a walk runs until a read comes up short, so a
 * missing chunk ends in QZE_FILE_READ at the end of the file; callers that
 * must tell a missing chunk from a damaged file pass the budget.
 *
 * Failures of the platform layer: a read that returns fewer bytes than
 * asked gives QZE_FILE_READ (0x8004E008), a failed write QZE_FILE_WRITE
 * (0x8004E009). A seek that fails counts as a failure of the read or write
 * it serves. No function restores data already written when it fails.
 * Output pointers are written only on success unless a function says
 * otherwise, and output pointers of plain values may be null.
 *
 * Typical use: open the file with CreateFileW, call riff_ReadFileID (or
 * one of the functions that rewind by themselves: riff_FindChunkHeaderInRIFF,
 * riff_FindListChunkFromStart), then find chunks and read their bodies. A
 * writer writes the file header with a provisional size, then its chunks
 * and lists, and fixes the size at the end with riff_SetRIFFSize, or keeps
 * it current with riff_UpdateRIFFSize after each append or removal.
 */
#ifndef QZ_RIFF_H
#define QZ_RIFF_H

#include "qz/qzdefs.h"
#include "qz/qzresult.h"

/*
 * The record of riff_ReadDataAlloc: the caller sets cbData; the function
 * sets pData to a block of movable global memory that the caller owns and
 * frees with GlobalUnlock(GlobalHandle(pData)) and
 * GlobalFree(GlobalHandle(pData)).
 */
typedef struct tQZRIFFDATA {
    DWORD cbData;
    LPVOID pData;
} QZRIFFDATA, *LPQZRIFFDATA;

/*
 * The 24-byte body of the "fmt " chunk of a CD-audio track file (a RIFF
 * file of form type "CDDA", a ".cda" file). Positions are given both in
 * sectors and as minute, second and frame (1/75 second).
 */
typedef struct tQZRIFFCDDA {
    WORD wFormatVersion;
    WORD wTrackNumber;
    DWORD dwDiscSerial;
    DWORD dwStartSector;
    DWORD dwLengthSectors;
    BYTE bStartFrame;
    BYTE bStartSecond;
    BYTE bStartMinute;
    BYTE bStartUnused;
    BYTE bLengthFrame;
    BYTE bLengthSecond;
    BYTE bLengthMinute;
    BYTE bLengthUnused;
} QZRIFFCDDA, *LPQZRIFFCDDA;

#ifdef __cplusplus
static_assert(sizeof(QZRIFFCDDA) == 24, "the CD-audio record is 24 bytes");
#if defined(_WIN32) && !defined(_WIN64)
static_assert(sizeof(QZRIFFDATA) == 8, "QZRIFFDATA is 8 bytes on 32-bit Windows");
#endif
#endif

QZ_EXTERN_C_BEGIN

/* ---- headers ------------------------------------------------------------ */

/*
 * Checks a chunk size: QZE_MISALIGNED_CHUNK (0x8004E083) when it is
 * negative as a signed value, QZE_ZERO_LENGTH_CHUNK (0x8004E082) when it is
 * 0, S_OK otherwise. The id is not examined; nothing is read.
 */
QZ_API HRESULT QZ_STDCALL riff_ValidateChunkHeader(DWORD id, LONG size);

/* Reads the id and the size of a chunk header at the position. */
QZ_API HRESULT QZ_STDCALL riff_ReadChunkHeader(HANDLE file, DWORD* id, DWORD* size);

/*
 * Reads a list header at the position: QZE_NO_LIST_HEADER (0x8004E081)
 * when the id is not "LIST" (the position is then after the 8 header
 * bytes). On success reports the list type and the list size minus 4, and
 * the position is at the first sub-chunk.
 */
QZ_API HRESULT QZ_STDCALL riff_ReadListHeader(HANDLE file, DWORD* list_type, DWORD* size);

/*
 * Reads the file header at the position: QZE_NO_RIFF_HEADER (0x8004E080)
 * when the id is not "RIFF". Reports the RIFF size minus 4 (the budget of
 * a top-level walk) and the form type; both outputs are optional.
 */
QZ_API HRESULT QZ_STDCALL riff_ReadFileID(HANDLE file, DWORD* remaining, DWORD* form_type);

/* Writes a chunk header (id, then size) at the position. */
QZ_API HRESULT QZ_STDCALL riff_WriteChunkHeader(HANDLE file, DWORD id, DWORD size);

/*
 * Writes a whole chunk: header, `size` bytes of `data` and a zero pad byte
 * when size is odd. *written (optional; cleared first) becomes size
 * rounded up to even plus 8, held at 0xFFFFFFFF when that does not fit
 * 32 bits (sizes from 0xFFFFFFF7 on). A null `data` with a non-zero size gives
 * E_INVALIDARG and writes nothing.
 */
QZ_API HRESULT QZ_STDCALL riff_WriteChunk(HANDLE file, DWORD id, LPCVOID data, DWORD size,
                                          DWORD* written);

/* Writes a list header: "LIST", `size` (list type included), the list type. */
QZ_API HRESULT QZ_STDCALL riff_WriteListHeader(HANDLE file, DWORD list_type, DWORD size);

/*
 * Writes a file header: "RIFF", `size`, the form type. Lenient by design:
 * only the last write (the form type) decides the result. When the first
 * write fails the size is not written, but the form type still is.
 */
QZ_API HRESULT QZ_STDCALL riff_WriteFileID(HANDLE file, DWORD form_type, DWORD size);

/* ---- bodies ------------------------------------------------------------- */

/*
 * Reads exactly `count` bytes into `buffer`, then skips the pad byte when
 * the count is odd. A null buffer with a non-zero count gives E_INVALIDARG.
 */
QZ_API HRESULT QZ_STDCALL riff_ReadData(HANDLE file, LPVOID buffer, DWORD count);

/*
 * Reads min(chunk_size, buffer_size) bytes into `buffer`, then skips the
 * rest of the chunk, plus one byte when buffer_size (not chunk_size) is
 * odd. The pad decision follows the buffer size on purpose: callers pass
 * the chunk size for both when they want the whole body and its pad, and
 * existing callers rely on the rule as it stands. A null buffer with a
 * non-zero read gives E_INVALIDARG.
 */
QZ_API HRESULT QZ_STDCALL riff_ReadDataBounded(HANDLE file, LPVOID buffer, DWORD chunk_size,
                                               DWORD buffer_size);

/*
 * Reads data->cbData bytes into a new block of movable global memory (see
 * QZRIFFDATA) and stores its address in data->pData. A count of 0 sets
 * pData to null and returns S_OK. E_OUTOFMEMORY when the block cannot be
 * had; on any failure pData is null and nothing is left allocated.
 * E_INVALIDARG for a null record.
 */
QZ_API HRESULT QZ_STDCALL riff_ReadDataAlloc(HANDLE file, QZRIFFDATA* data);

/*
 * Reads an 8-bit string body of *count bytes in the ANSI code page into
 * `buffer` (`buffer_length` characters). Reads min(*count, buffer_length)
 * bytes, of which the last is taken as the terminator; the buffer always
 * ends in a 0 character (an empty body yields a single 0). The position
 * ends after the body and its pad byte. Then *count is increased by 1,
 * whatever its parity: callers add the result to their offsets as the
 * bytes taken by a terminated, padded string.
 * E_INVALIDARG when `buffer` or `count` is null; E_OUTOFMEMORY.
 */
QZ_API HRESULT QZ_STDCALL riff_ReadANSIString(HANDLE file, LPWSTR buffer, DWORD buffer_length,
                                              DWORD* count);

/*
 * Converts `text` to the ANSI code page and writes it with its terminator,
 * plus a zero pad byte when length + 1 is odd; *written (optional;
 * cleared first) becomes the bytes written, pad included. A null text is
 * written as an empty string (a single 0). E_OUTOFMEMORY.
 */
QZ_API HRESULT QZ_STDCALL riff_WriteANSIString(HANDLE file, LPCWSTR text, DWORD* written);

/* ---- positions and sizes -------------------------------------------------- */

/*
 * Seeks forward by `size` rounded up to even and returns that amount (its
 * low 32 bits), not a result code. A failed seek is not reported.
 */
QZ_API DWORD QZ_STDCALL riff_SkipChunk(HANDLE file, DWORD size);

/* Seeks to offset 12, just after the file header. Always returns S_OK. */
QZ_API HRESULT QZ_STDCALL riff_SeekDataStart(HANDLE file);

/*
 * Stores the position's low 32 bits in *position (a null pointer stores
 * nothing). Always returns S_OK.
 */
QZ_API HRESULT QZ_STDCALL riff_SaveLocation(HANDLE file, DWORD* position);

/* Seeks to the absolute `position`. Always returns S_OK. */
QZ_API HRESULT QZ_STDCALL riff_RestoreLocation(HANDLE file, DWORD position);

/*
 * Rewinds, reads the file header and reports the RIFF size field plus 4 in
 * *size (optional). The position is left at offset 12.
 */
QZ_API HRESULT QZ_STDCALL riff_GetFileSize(HANDLE file, DWORD* size);

/* Writes `size` as the RIFF size at offset 4 and goes back to the position. */
QZ_API HRESULT QZ_STDCALL riff_SetRIFFSize(HANDLE file, DWORD size);

/*
 * Adds `delta` to the RIFF size at offset 4 and goes back to the position.
 * When the new size would be 0xFFFFFFF8 or more (the file would reach
 * 4 GiB) the file is cut back to the extent its old size gives (old size
 * + 8) and the result is QZE_SIZE_LIMIT (0x8004E03A); if that cut fails,
 * QZE_FILE_WRITE. A sum below zero is not caught: its low 32 bits are
 * written as they are.
 */
QZ_API HRESULT QZ_STDCALL riff_UpdateRIFFSize(HANDLE file, LONGLONG delta);

/* ---- walking -------------------------------------------------------------- */

/*
 * Walks sibling chunks from the position until one has `id`, leaving the
 * position at its first body byte. *size (optional) is the size field;
 * *remaining (optional, in/out) is the budget, which after a find still
 * counts the found body. QZE_NOT_FOUND when the budget runs out (the
 * count reached, 0 to 7, is stored); QZE_FILE_READ on a short read (the
 * count is then left untouched). A budget below 8 answers at once without
 * reading. Skips are clamped: a body longer than the budget leaves 0.
 */
QZ_API HRESULT QZ_STDCALL riff_FindChunkHeader(HANDLE file, DWORD id, DWORD* size,
                                               DWORD* remaining);

/*
 * Rewinds, reads the file header and searches the top level for `id` with
 * the header's budget; *remaining (optional) receives the budget reached,
 * as riff_FindChunkHeader stores it. QZE_NO_RIFF_HEADER for a file that is
 * not RIFF.
 */
QZ_API HRESULT QZ_STDCALL riff_FindChunkHeaderInRIFF(HANDLE file, DWORD id, DWORD* size,
                                                     DWORD* remaining);

/*
 * Walks the "LIST" chunks from the position until one has `list_type`,
 * leaving the position at its first sub-chunk. *size (optional) is the
 * list size minus 4; *remaining (optional, in/out) the budget after the
 * list type. QZE_NOT_FOUND when fewer than 4 bytes are left for a list
 * type or the budget runs out between chunks; QZE_FILE_READ on a short
 * read.
 */
QZ_API HRESULT QZ_STDCALL riff_FindListChunk(HANDLE file, DWORD list_type, DWORD* size,
                                             DWORD* remaining);

/*
 * Rewinds, reads the file header and searches the top level for the list
 * of `list_type` with the header's budget. *size (optional) is the list
 * size minus 4.
 */
QZ_API HRESULT QZ_STDCALL riff_FindListChunkFromStart(HANDLE file, DWORD list_type, DWORD* size);

/*
 * Counts the chunks from the position and goes back to it. S_OK when the
 * budget runs out; QZE_FILE_READ, with the count so far, at a short read
 * (so a count without a budget always ends there). *count is required
 * (E_INVALIDARG). The budget is consumed in place, and not clamped: a body
 * longer than the budget wraps it, and the count then runs on to the end
 * of the file. Callers that need the budget again keep a copy.
 */
QZ_API HRESULT QZ_STDCALL riff_GetNumListEntries(HANDLE file, DWORD* count, DWORD* remaining);

/*
 * Steps over `index` chunks, leaving the position at the header of entry
 * number `index` (from 0). Index 0 returns S_OK at once without moving.
 * QZE_NOT_FOUND when the budget runs out first (the budget is checked
 * before the index, so the end of the last entry is reached only while 8
 * bytes are still left); QZE_FILE_READ on a short read.
 */
QZ_API HRESULT QZ_STDCALL riff_SeekListEntry(HANDLE file, DWORD index, DWORD* remaining);

/* ---- editing -------------------------------------------------------------- */

/*
 * Removes a top-level chunk (`is_list` FALSE: the chunk whose id is
 * `id_or_type`) or list (`is_list` TRUE: the list of that type), moves
 * everything after it down, shrinks the file and lowers the RIFF size by
 * the bytes removed. The tail moves through one 4096-byte buffer, so the
 * memory used does not grow with the file. *removed (optional; cleared
 * first) becomes the span removed: header, list type, body and pad.
 * Returns the search's failure unchanged (QZE_NOT_FOUND when absent),
 * QZE_CORRUPT_OR_UNKNOWN when the chunk claims more bytes than the file
 * holds or than the RIFF size covers (nothing is moved then, so the size
 * never drops below zero), QZE_FILE_READ / QZE_FILE_WRITE while
 * moving, QZE_FILE_WRITE when the lowered size cannot be written, else
 * S_OK. When cutting the file fails the RIFF size is still lowered (the
 * file reads as RIFF with stray bytes at its end) and the result is
 * QZE_FILE_WRITE.
 */
QZ_API HRESULT QZ_STDCALL riff_DeleteChunk(HANDLE file, DWORD id_or_type, DWORD* removed,
                                           BOOL is_list);

/* ---- CD-audio track files ------------------------------------------------- */

/*
 * Reads the file header at the position; QZE_CORRUPT_OR_UNKNOWN
 * (0x8004E00B) when the form type is not "CDDA". Then finds "fmt " in the
 * top level, which must be 24 bytes (else QZE_UNSUPPORTED_VERSION,
 * 0x8004E01C), and decodes it into *record. E_INVALIDARG for a null record.
 */
QZ_API HRESULT QZ_STDCALL riff_ReadRIFFCDDA(HANDLE file, QZRIFFCDDA* record);

/*
 * Opens the track file at `path` for reading (QZE_FILE_OPEN, 0x8004E007,
 * when it cannot), reads its record with riff_ReadRIFFCDDA and closes it.
 * Every output given is filled from the record even after a failure, so a
 * failed read yields zeros: the track number, the start sector, the start
 * in frames ((minute x 60 + second) x 75 + frame), the length in sectors
 * and the disc serial number.
 */
QZ_API HRESULT QZ_STDCALL riff_ReadCDAFile(LPCWSTR path, DWORD* track, DWORD* start_sector,
                                           DWORD* start_frames, DWORD* length_sectors,
                                           DWORD* disc_serial);

QZ_EXTERN_C_END

#endif
