/*
 * riff64.h - 64-bit RIFF chunk I/O on a Win32 file handle.
 *
 * The 64-bit RIFF form (the container of Wave64 files) labels every chunk
 * with a 16-byte GUID instead of a four-character code, gives every size
 * as a 64-bit count that includes the chunk's own 24-byte header, and
 * starts every chunk on an 8-byte boundary:
 *
 *     chunk header   label GUID (16), size (u64) = 24 + data bytes
 *     chunk body     the data, then zero bytes up to a multiple of 8
 *     file header    "riff" GUID (16), size (u64), form type GUID (16)
 *     list header    "list" GUID (16), size (u64), list type GUID (16)
 *
 * All integers are little-endian; a GUID is stored in its usual byte
 * order (first field as a 32-bit little-endian word, the next two as
 * 16-bit words, the last eight bytes as they stand) and passed by value.
 * Labels compare byte for byte. The family knows only its two structural
 * labels (below); the form type and the labels of the content chunks are
 * the callers' choice (Wave64 files use a "wave" form with "fmt " and
 * "data" chunks).
 *
 * The functions work directly on the handle's file pointer, with no
 * buffering and no state of their own; positions are 64-bit throughout,
 * so files past 4 GiB are in reach. One handle must not be used by two
 * threads at once.
 *
 * Two size conventions are written, and both are read. A chunk written
 * whole (riff64_WriteChunkHeader, riff64_WriteChunk) stores 24 + data
 * size, without its alignment padding; a chunk streamed between
 * riff64_PrepareChunk and riff64_CompleteChunk stores the distance from
 * its start to the end of its padding. Readers raise every size to a
 * multiple of 8 before skipping, so both land on the next header.
 *
 * Sizes reported always count what follows: chunk headers report the data
 * size (stored size - 24, never below 0), list headers and the list
 * searches the bytes after the list type (data size - 16, never below 0),
 * and riff64_ReadFileID the top-level budget (data size - 16).
 *
 * The remaining budget: the walking functions take an optional pointer to
 * a signed 64-bit count of the bytes left in the enclosing body from the
 * position. With it, a walk stops with QZE_NOT_FOUND (0x8004E00A) when the
 * count is negative or too small for the next header, and the count is
 * decreased in place; it may go below zero, which ends every later walk
 * at once. Without it, a walk runs until a read comes up short
 * (QZE_FILE_READ, 0x8004E008), which is how a missing chunk ends; callers
 * that must tell a missing chunk from a damaged file pass the budget.
 *
 * Damaged sizes: a stored size below 24 counts as an empty chunk, a size
 * running past the end of the file ends the walk at the next read, and a
 * size too large for a 64-bit file offset stops the walk with
 * QZE_FILE_READ. No sum of sizes wraps: budgets stop at their limits.
 *
 * Failures of the platform layer: a short read gives QZE_FILE_READ, a
 * failed write QZE_FILE_WRITE (0x8004E009); a seek that fails counts as a
 * failure of the read or write it serves. No function restores data
 * already written when it fails. Outputs are written only on success
 * unless a function says otherwise, and output pointers of plain values
 * may be null.
 *
 * Typical use: a reader opens the file with CreateFileW, calls
 * riff64_ReadFileID (or riff64_FindChunkHeaderInRIFF or
 * riff64_FindListChunkFromStart, which rewind by themselves), then finds
 * chunks and reads their bodies. A writer writes the file header with a
 * provisional size, then chunks, whole or streamed, and fixes the size
 * with riff64_SetRIFFSize or riff64_UpdateRIFFSize.
 */
#ifndef QZ_RIFF64_H
#define QZ_RIFF64_H

#include "qz/qzdefs.h"
#include "qz/qzresult.h"
#include "qz/riff.h"

/*
 * The structural labels: the file header's "riff"
 * {66666972-912E-11CF-A5D6-28DB04C10000} and the list header's "list"
 * {7473696C-912F-11CF-A5D6-28DB04C10000}.
 */
#define QZ_RIFF64_RIFF_LABEL                               \
    {                                                      \
        0x66666972, 0x912E, 0x11CF, {                      \
            0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00 \
        }                                                  \
    }
#define QZ_RIFF64_LIST_LABEL                               \
    {                                                      \
        0x7473696C, 0x912F, 0x11CF, {                      \
            0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00 \
        }                                                  \
    }

QZ_EXTERN_C_BEGIN

/* ---- headers ------------------------------------------------------------ */

/*
 * Checks a stored chunk size: QZE_MISALIGNED_CHUNK (0x8004E083) when its
 * low 32 bits are not a multiple of 8 or bit 3 of its high 32 bits is set;
 * else QZE_ZERO_LENGTH_CHUNK (0x8004E082) when it is 0; else S_OK. The
 * label is not examined; nothing is read.
 */
QZ_API HRESULT QZ_STDCALL riff64_ValidateChunkHeader(GUID label, ULONGLONG size);

/*
 * Reads a chunk header (24 bytes) at the position and reports its label
 * and data size (stored size - 24, 0 when the stored size is below 24).
 */
QZ_API HRESULT QZ_STDCALL riff64_ReadChunkHeader(HANDLE file, GUID* label, ULONGLONG* size);

/*
 * Reads a list header at the position: QZE_NO_LIST_HEADER (0x8004E081)
 * when the label is not "list" (the position is then after the 24 header
 * bytes). On success reports the list type and the bytes after it (data
 * size - 16, never below 0), and the position is at the first sub-chunk.
 */
QZ_API HRESULT QZ_STDCALL riff64_ReadListHeader(HANDLE file, GUID* list_type, ULONGLONG* size);

/*
 * Reads the file header at the position. The header read is not judged by
 * itself: *remaining (optional) is always set to the data size - 16, the
 * budget of a top-level walk (-16 when the header did not arrive, the
 * data size being taken as 0); then QZE_NO_RIFF_HEADER (0x8004E080) when
 * the label is not "riff" (a header cut short has no label), and
 * QZE_FILE_READ when the form type is cut short. *form_type is optional.
 */
QZ_API HRESULT QZ_STDCALL riff64_ReadFileID(HANDLE file, LONGLONG* remaining, GUID* form_type);

/*
 * Writes a chunk header: the label, then data size + 24. E_INVALIDARG,
 * writing nothing, when that sum does not fit 64 bits.
 */
QZ_API HRESULT QZ_STDCALL riff64_WriteChunkHeader(HANDLE file, GUID label, ULONGLONG size);

/*
 * Writes a list header: the "list" label, size + 24, the list type. The
 * size counts the list type and the sub-chunks. E_INVALIDARG as for
 * riff64_WriteChunkHeader.
 */
QZ_API HRESULT QZ_STDCALL riff64_WriteListHeader(HANDLE file, GUID list_type, ULONGLONG size);

/*
 * Writes a file header: the "riff" label, size + 24, the form type.
 * Lenient by design: the header's writes do not decide the result, only
 * the form type's does. E_INVALIDARG, writing nothing, for a size whose
 * sum does not fit 64 bits.
 */
QZ_API HRESULT QZ_STDCALL riff64_WriteFileID(HANDLE file, GUID form_type, ULONGLONG size);

/*
 * Streams a chunk of a length not known yet: stores the position in
 * *start (required, else E_INVALIDARG) and writes a header with data
 * size 0. The caller writes the body and calls riff64_CompleteChunk with
 * the start; a second streamed chunk needs its own start.
 */
QZ_API HRESULT QZ_STDCALL riff64_PrepareChunk(HANDLE file, GUID label, ULONGLONG* start);

/* The same for a list: stores the position, writes a list header of size 0. */
QZ_API HRESULT QZ_STDCALL riff64_PrepareList(HANDLE file, GUID list_type, ULONGLONG* start);

/*
 * Completes a chunk or list streamed from `start`: pads to a multiple of 8
 * counted from the start, then writes the distance from the start to the
 * end of the padding as the size (header, list type and padding counted)
 * and goes back to the end. QZE_FILE_WRITE when the padding or the size
 * cannot be written (the position is restored all the same);
 * E_INVALIDARG when the position is before `start`.
 */
QZ_API HRESULT QZ_STDCALL riff64_CompleteChunk(HANDLE file, ULONGLONG start);

/*
 * Writes `size` + 24 as the file's size (offset 16) and goes back to the
 * position. E_INVALIDARG, writing nothing, when the sum does not fit.
 */
QZ_API HRESULT QZ_STDCALL riff64_SetRIFFSize(HANDLE file, ULONGLONG size);

/*
 * Adds `delta` to the 64-bit size at offset 16 and goes back to the
 * position. QZE_FILE_READ when the size cannot be read, QZE_FILE_WRITE
 * when it cannot be written. There is no limit short of 64 bits: a delta
 * that would take the size below 0 or past 2^64 - 1 gives E_INVALIDARG and
 * changes nothing.
 */
QZ_API HRESULT QZ_STDCALL riff64_UpdateRIFFSize(HANDLE file, LONGLONG delta);

/*
 * Kept for the callers that name them: there is no table from labels to
 * four-character codes. Both do nothing and return 0 for every label;
 * *fourcc is not written.
 */
QZ_API DWORD QZ_STDCALL riff64_getGUIDLabel(GUID label);
QZ_API HRESULT QZ_STDCALL riff64_getGUIDLabelProperly(GUID label, DWORD* fourcc);

/* ---- bodies ------------------------------------------------------------- */

/*
 * Reads exactly `count` bytes (its low 32 bits) into `buffer`, then skips
 * the padding to the next multiple of 8. A null buffer with a non-zero
 * count gives E_INVALIDARG.
 */
QZ_API HRESULT QZ_STDCALL riff64_ReadData(HANDLE file, LPVOID buffer, ULONGLONG count);

/*
 * Reads min(chunk_size, buffer_size) bytes into `buffer`, then skips the
 * rest of the chunk plus buffer_size mod 8 bytes. The second term is not
 * the padding of the chunk: it follows the buffer size on purpose, as the
 * family's callers have always had it, so a caller that wants to land on
 * the next header passes a buffer size that is a multiple of 8 and skips
 * the padding itself. A null buffer with a non-zero read gives
 * E_INVALIDARG.
 */
QZ_API HRESULT QZ_STDCALL riff64_ReadDataBounded(HANDLE file, LPVOID buffer, DWORD chunk_size,
                                                 DWORD buffer_size);

/*
 * Reads data->cbData bytes with riff64_ReadData into a new block of
 * movable global memory and stores its address in data->pData (see
 * QZRIFFDATA in riff.h). A count of 0 sets pData to null and returns S_OK.
 * E_OUTOFMEMORY when the block cannot be had; on any failure pData is
 * null and nothing is left allocated. E_INVALIDARG for a null record.
 */
QZ_API HRESULT QZ_STDCALL riff64_ReadDataAlloc(HANDLE file, QZRIFFDATA* data);

/*
 * Writes `count` bytes (its low 32 bits) of `data`, then zero bytes one
 * at a time up to the next multiple of 8. *written (optional; cleared
 * first) becomes the bytes written, padding included. A null `data` with
 * a non-zero count gives E_INVALIDARG.
 */
QZ_API HRESULT QZ_STDCALL riff64_WriteData(HANDLE file, LPCVOID data, ULONGLONG count,
                                           ULONGLONG* written);

/*
 * Writes a whole chunk: the header (storing count + 24), then
 * riff64_WriteData. *written (optional; cleared first) becomes the bytes
 * written with the header: 5 data bytes give 32 (24 + 5 + 3 of padding).
 */
QZ_API HRESULT QZ_STDCALL riff64_WriteChunk(HANDLE file, GUID label, LPCVOID data, ULONGLONG count,
                                            ULONGLONG* written);

/*
 * Writes a streamed chunk in one go: riff64_PrepareChunk, one write of
 * `count` bytes (its low 32 bits), riff64_CompleteChunk. The stored size
 * counts the padding: 5 data bytes store 32.
 */
QZ_API HRESULT QZ_STDCALL riff64_WriteChunkToFile(HANDLE file, GUID label, LPCVOID data,
                                                  ULONGLONG count);

/*
 * One plain write of `count` bytes (its low 32 bits), for the body of a
 * streamed chunk. QZE_FILE_WRITE on failure.
 */
QZ_API HRESULT QZ_STDCALL riff64_WriteToFile(HANDLE file, LPCVOID data, ULONGLONG count);

/*
 * Writes zero bytes one at a time until the distance from `start` to the
 * position is a multiple of 8. QZE_FILE_WRITE on failure.
 */
QZ_API HRESULT QZ_STDCALL riff64_Pad(HANDLE file, ULONGLONG start);

/* ---- positions ------------------------------------------------------------ */

/*
 * The bytes from `start` to the position (0 when the position is before
 * it, or cannot be had): a count, not a result code.
 */
QZ_API ULONGLONG QZ_STDCALL riff64_AmountWritten(HANDLE file, ULONGLONG start);

/*
 * Seeks forward by the data size raised to a multiple of 8 and returns
 * that amount, not a result code. A failed seek is not reported; an amount
 * too large for a file offset does not move.
 */
QZ_API ULONGLONG QZ_STDCALL riff64_SkipChunk(HANDLE file, ULONGLONG size);

/* Seeks to offset 40, just after the file header. Always returns S_OK. */
QZ_API HRESULT QZ_STDCALL riff64_SeekDataStart(HANDLE file);

/* Stores the whole 64-bit position in *position (optional). Always S_OK. */
QZ_API HRESULT QZ_STDCALL riff64_SaveLocation(HANDLE file, ULONGLONG* position);

/* Seeks to the absolute `position`. Always returns S_OK. */
QZ_API HRESULT QZ_STDCALL riff64_RestoreLocation(HANDLE file, ULONGLONG position);

/* ---- walking -------------------------------------------------------------- */

/*
 * Walks sibling chunks from the position until one has `label`, leaving
 * the position at its first body byte. *size (optional) is its data size;
 * *remaining (optional, in/out) the budget, which after a find still
 * counts the found body. A budget that is negative or below 24 answers
 * QZE_NOT_FOUND at once without reading; one that falls so while skipping
 * also ends in QZE_NOT_FOUND, the count reached stored. QZE_FILE_READ on a
 * short read or a skip too large for a file offset (the count is then
 * left as it was).
 */
QZ_API HRESULT QZ_STDCALL riff64_FindChunkHeader(HANDLE file, GUID label, ULONGLONG* size,
                                                 LONGLONG* remaining);

/*
 * Rewinds, reads the file header (as riff64_ReadFileID) and searches the
 * top level for `label` with the header's budget; *remaining (optional)
 * receives the budget reached unless a read failed.
 */
QZ_API HRESULT QZ_STDCALL riff64_FindChunkHeaderInRIFF(HANDLE file, GUID label, ULONGLONG* size,
                                                       LONGLONG* remaining);

/*
 * Walks the "list" chunks from the position until one has `list_type`,
 * leaving the position at its first sub-chunk. *size (optional) is the
 * bytes after the list type; *remaining (optional, in/out) the budget
 * after it. A list type is read while 8 bytes of budget are left (not
 * 16: the type may take the budget below 0, as the family's callers have
 * always had it). QZE_NOT_FOUND when less is left or the budget runs out
 * between chunks; QZE_FILE_READ on a short read.
 */
QZ_API HRESULT QZ_STDCALL riff64_FindListChunk(HANDLE file, GUID list_type, ULONGLONG* size,
                                               LONGLONG* remaining);

/*
 * Rewinds, reads the file header and searches the top level for the list
 * of `list_type` with the header's budget.
 */
QZ_API HRESULT QZ_STDCALL riff64_FindListChunkFromStart(HANDLE file, GUID list_type,
                                                        ULONGLONG* size);

/*
 * Counts the chunks from the position and goes back to it. S_OK when the
 * budget runs out (negative or below 24); QZE_FILE_READ, with the count
 * so far, at a short read (so a count without a budget always ends
 * there). *count is required (E_INVALIDARG). The budget is consumed in
 * place; callers that need it again keep a copy.
 */
QZ_API HRESULT QZ_STDCALL riff64_GetNumListEntries(HANDLE file, DWORD* count, LONGLONG* remaining);

/*
 * Steps over `index` chunks, leaving the position at the header of entry
 * number `index` (from 0). Index 0 returns S_OK at once without moving.
 * QZE_NOT_FOUND when the budget runs out first (it is checked before the
 * index, so the end of the last entry is reached only while 24 bytes are
 * still left); QZE_FILE_READ on a short read.
 */
QZ_API HRESULT QZ_STDCALL riff64_SeekListEntry(HANDLE file, DWORD index, LONGLONG* remaining);

/* ---- editing -------------------------------------------------------------- */

/*
 * Removes the first top-level chunk labelled `label`, moves everything
 * after it down, shrinks the file and lowers the file's size by the bytes
 * removed; the position is left at the new end. The tail moves through
 * one zeroed heap buffer of at most 4096 bytes. *removed (optional;
 * cleared first) becomes the span removed: header, body and padding (a
 * last chunk whose padding is missing is removed to the end of the file).
 * Returns the search's failure unchanged (QZE_NOT_FOUND when absent),
 * QZE_CORRUPT_OR_UNKNOWN when the chunk claims more bytes than the file
 * holds or than the file's size covers (nothing is moved then),
 * E_OUTOFMEMORY, QZE_FILE_READ / QZE_FILE_WRITE while moving, else the
 * result of the size update. When cutting the file fails the size is
 * still lowered and the result is QZE_FILE_WRITE.
 */
QZ_API HRESULT QZ_STDCALL riff64_DeleteChunk(HANDLE file, GUID label, ULONGLONG* removed);

QZ_EXTERN_C_END

#endif
