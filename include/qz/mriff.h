/*
 * mriff.h - RIFF chunk I/O over a memory image.
 *
 * The riff_ family's reads, writes and walks (qz/riff.h), done over a block
 * of memory that the caller owns instead of a file handle: a wave file or
 * chunk list already in a buffer (a clipboard or drag-and-drop image, a
 * resource, a mapped file) can be walked, read and written with the same
 * operations and result codes, and a wave header can be written into a
 * buffer in front of the sample data.
 *
 * The cursor, _tMRIFF, is the caller's (usually on the stack) and is filled
 * by mriff_Init. It holds four pointers into the image: the base, the
 * position, the end of the valid data and the end of the capacity. Every
 * move is clamped into base .. data end; reads copy at most up to the data
 * end and writes at most up to the capacity end, so no operation reads or
 * writes outside the buffer the caller supplied, whatever the image holds.
 * A read or write that is cut short still copies and advances by what
 * fitted, then reports QZE_FILE_READ (0x8004E008) or QZE_FILE_WRITE
 * (0x8004E009). Writes that pass the data end move it up; nothing moves it
 * down.
 *
 * The image holds the records of qz/riff.h: "RIFF" + size + form type,
 * chunk headers of id and size, even padding, "LIST" + size + list type,
 * little-endian throughout, ids compared as 32-bit little-endian words.
 * The walks follow the riff_ family's budget rules exactly, with the
 * clamped skips of the image: a walk without a budget ends at the data
 * end with QZE_FILE_READ, so a caller that must tell a missing chunk from
 * a damaged image passes the budget.
 *
 * A cursor belongs to one thread at a time; several cursors may read one
 * image at once. A null cursor gives E_POINTER (or FALSE, or 0, for the
 * calls that return no result code); other output pointers may be null
 * unless said otherwise.
 */
#ifndef QZ_MRIFF_H
#define QZ_MRIFF_H

#include "qz/qzdefs.h"
#include "qz/qzresult.h"
#include "qz/riff.h"

/* The memory-image cursor; pointers stay within pBase .. pCapacityEnd. */
typedef struct _tMRIFF {
    BYTE* pBase;         /* first byte of the image */
    BYTE* pCurrent;      /* the position, within pBase .. pDataEnd */
    BYTE* pDataEnd;      /* pBase + valid bytes; grows when writes pass it */
    BYTE* pCapacityEnd;  /* pBase + capacity; writes never pass it */
    DWORD dwInitialSize; /* data size as given to mriff_Init */
    DWORD dwCapacity;    /* capacity as given to mriff_Init */
} tMRIFF;

#ifdef __cplusplus
#if defined(_WIN32) && !defined(_WIN64)
static_assert(sizeof(_tMRIFF) == 24, "_tMRIFF is 24 bytes on 32-bit Windows");
#endif
struct _qzwaveformat;
#endif

QZ_EXTERN_C_BEGIN

/* ---- the cursor and its moves ------------------------------------------------- */

/*
 * Aims the cursor at an image of `dataSize` valid bytes in a buffer of
 * `capacity` bytes, position at the base. E_POINTER for a null cursor (or
 * a null base with a non-zero capacity); E_INVALIDARG when dataSize >
 * capacity. May be called again to re-aim a cursor.
 */
QZ_API HRESULT QZ_STDCALL mriff_Init(_tMRIFF* m, LPVOID base, DWORD dataSize, DWORD capacity);
/* The position itself, as a pointer into the image. */
QZ_API LPBYTE QZ_STDCALL mriff_GetFilePointer(_tMRIFF* m);
/*
 * Moves the position: method 0 (FILE_BEGIN) to `distance` from the base,
 * 1 (FILE_CURRENT) by `distance` from the position, 2 (FILE_END) by
 * `distance` from the data end; for 1 and 2 the distance is a signed
 * 32-bit move (0xFFFFFFFC steps back 4). The result is clamped into
 * base .. data end; any other method only clamps the position. `high` is
 * ignored. Returns the new offset from the base.
 */
QZ_API DWORD QZ_STDCALL mriff_SetFilePointer(_tMRIFF* m, DWORD distance, PLONG high, DWORD method);
/* mriff_SetFilePointer without the high-word argument. */
QZ_API DWORD QZ_STDCALL mriff_QzSetFilePointer(_tMRIFF* m, DWORD distance, DWORD method);
/*
 * Copies min(count, data end - position) bytes and advances; *read (if
 * given) is the count copied. TRUE only when all `count` bytes were there.
 * `overlapped` is ignored.
 */
QZ_API BOOL QZ_STDCALL mriff_ReadFile(_tMRIFF* m, LPVOID buffer, DWORD count, LPDWORD read,
                                      LPOVERLAPPED overlapped);
/*
 * Copies min(count, capacity end - position) bytes, advances and moves the
 * data end up to the position when it passed it; *written is the count
 * copied. Returns TRUE even when the copy was cut short (FALSE only for a
 * null cursor or data pointer).
 */
QZ_API BOOL QZ_STDCALL mriff_WriteFile(_tMRIFF* m, LPCVOID data, DWORD count, LPDWORD written,
                                       LPOVERLAPPED overlapped);
/* Moves the data end up by min(count, capacity end - data end); returns the amount. */
QZ_API DWORD QZ_STDCALL mriff_UpdateDataSize(_tMRIFF* m, DWORD count);
/* Clamps the position and stores its offset from the base; returns S_OK. */
QZ_API HRESULT QZ_STDCALL mriff_SaveLocation(_tMRIFF* m, DWORD* offset);
/* Position = base + offset, clamped; returns S_OK. */
QZ_API HRESULT QZ_STDCALL mriff_RestoreLocation(_tMRIFF* m, DWORD offset);
/*
 * Advances by size plus one when odd, clamped; returns that amount (not
 * what fitted; its low 32 bits, so 0 for size 0xFFFFFFFF). A null cursor
 * moves nothing and gives 0.
 */
QZ_API DWORD QZ_STDCALL mriff_SkipChunk(_tMRIFF* m, DWORD size);
/* Position = base + 12 (after the file header), clamped; returns S_OK. */
QZ_API HRESULT QZ_STDCALL mriff_SeekDataStart(_tMRIFF* m);

/* ---- headers ------------------------------------------------------------------ */

/* Writes the id and the size, 4 bytes each; QZE_FILE_WRITE when either was cut short. */
QZ_API HRESULT QZ_STDCALL mriff_WriteChunkHeader(_tMRIFF* m, DWORD id, DWORD size);
/* Writes "LIST", size and the list type; QZE_FILE_WRITE when cut short. */
QZ_API HRESULT QZ_STDCALL mriff_WriteListHeader(_tMRIFF* m, DWORD listType, DWORD size);
/* Writes "RIFF", size and the form type; QZE_FILE_WRITE when cut short. */
QZ_API HRESULT QZ_STDCALL mriff_WriteFileID(_tMRIFF* m, DWORD formType, DWORD size);
/*
 * Reads the id and the size of a chunk header; QZE_FILE_READ when fewer
 * than 4 bytes were left for either (the outputs are then not written).
 */
QZ_API HRESULT QZ_STDCALL mriff_ReadChunkHeader(_tMRIFF* m, DWORD* id, DWORD* size);
/*
 * Reads a list header: QZE_FILE_READ when short, QZE_NO_LIST_HEADER
 * (0x8004E081) when the id is not "LIST". Reports the list type and the
 * list size minus 4; the position is then at the first sub-chunk.
 */
QZ_API HRESULT QZ_STDCALL mriff_ReadListHeader(_tMRIFF* m, DWORD* listType, DWORD* size);
/*
 * Reads the file header at the position and reports the RIFF size minus 4
 * and the form type. QZE_NO_RIFF_HEADER (0x8004E080) when the id is not
 * "RIFF" (a header cut short reads as no "RIFF"), QZE_FILE_READ when the
 * form type is cut short.
 */
QZ_API HRESULT QZ_STDCALL mriff_ReadFileID(_tMRIFF* m, DWORD* remaining, DWORD* formType);

/* ---- bodies ------------------------------------------------------------------- */

/*
 * Copies `count` bytes, then skips one pad byte when count is odd.
 * QZE_FILE_READ when fewer were left (what was there is copied and the
 * position is then at the data end); E_INVALIDARG for a null buffer.
 */
QZ_API HRESULT QZ_STDCALL mriff_ReadData(_tMRIFF* m, LPVOID buffer, DWORD count);
/*
 * Copies n = min(limit, chunkSize) bytes (QZE_FILE_READ when fewer were
 * left), then skips chunkSize - n bytes plus one when chunkSize is odd, so
 * a body is left at the next header whatever part of it was read. Note
 * the order: the chunk size is the fourth argument here, the third in
 * riff_ReadDataBounded.
 */
QZ_API HRESULT QZ_STDCALL mriff_ReadDataBounded(_tMRIFF* m, LPVOID buffer, DWORD limit,
                                                DWORD chunkSize);
/*
 * As riff_ReadDataAlloc: a count of 0 sets pData to null and returns S_OK;
 * otherwise allocates cbData bytes of zeroed, locked, movable global
 * memory and reads them with mriff_ReadData, freeing the block (pData
 * null) when the read fails. E_OUTOFMEMORY when no memory; E_INVALIDARG
 * for a null record.
 */
QZ_API HRESULT QZ_STDCALL mriff_ReadDataAlloc(_tMRIFF* m, QZRIFFDATA* data);

/* ---- walks -------------------------------------------------------------------- */

/* riff_FindChunkHeader over the image. */
QZ_API HRESULT QZ_STDCALL mriff_FindChunkHeader(_tMRIFF* m, DWORD id, DWORD* size,
                                                DWORD* remaining);
/*
 * Reads a file header at the position (not at the base; its failures are
 * returned) and searches the top level for `id`. The budget is the
 * caller's, not the header's: with a remaining pointer it must be at least
 * 12 (else QZE_NOT_FOUND without reading), is reduced by 12 for the header
 * and then used for the search. Without one the search runs to the data
 * end and a missing chunk gives QZE_FILE_READ.
 */
QZ_API HRESULT QZ_STDCALL mriff_FindChunkHeaderInRIFF(_tMRIFF* m, DWORD id, DWORD* size,
                                                      DWORD* remaining);
/* riff_FindListChunk over the image. */
QZ_API HRESULT QZ_STDCALL mriff_FindListChunk(_tMRIFF* m, DWORD listType, DWORD* size,
                                              DWORD* remaining);
/* Moves to the base, reads the file header and searches its top level for the list. */
QZ_API HRESULT QZ_STDCALL mriff_FindListChunkFromStart(_tMRIFF* m, DWORD listType, DWORD* size);
/*
 * riff_GetNumListEntries over the image: counts the chunks from the
 * position and goes back to it; the caller's budget is consumed in place.
 * E_INVALIDARG for a null count.
 */
QZ_API HRESULT QZ_STDCALL mriff_GetNumListEntries(_tMRIFF* m, DWORD* count, DWORD* remaining);
/*
 * Finds the "LIST" of type "INFO" from the position (with the caller's
 * budget), the chunk `id` inside it, and copies min(chunk size,
 * bufferSize) bytes of its text into buffer; no terminator is added. The
 * position is restored in every case. Returns the first failure or S_OK.
 */
QZ_API HRESULT QZ_STDCALL mriff_GetInfoString(_tMRIFF* m, DWORD id, LPSTR buffer, DWORD bufferSize,
                                              DWORD* remaining);

QZ_EXTERN_C_END

#ifdef __cplusplus

/* ---- wave images (typed exports) ------------------------------------------------ */

/*
 * Writes a canonical wave header at the position: "RIFF", its size,
 * "WAVE", the "fmt " chunk and the "data" chunk header with dataSize. PCM
 * (tag 1) gets the 16-byte format body rebuilt from channels, rate and
 * bits (blockAlign (bits / 8) x channels); any other tag the first 18
 * bytes of wfx as they are. The RIFF size is F + dataSize + extraSize +
 * 20, F being the body size, raised to even; extraSize is room the caller
 * keeps for chunks of its own, of which nothing is written. The size
 * never wraps: when it would pass 0xFFFFFFFF (dataSize 0xFFFFFFFF, "length
 * not known yet", is the usual case) it is written as 0xFFFFFFFF, which
 * readers of streamed wave files take as running to the end of the file,
 * and the call still succeeds; dataSize is written as given.
 * QZE_FILE_WRITE when the header or the format did not fit (the data
 * header is written as far as it fits, unchecked); E_POINTER for a null
 * format.
 */
QZ_API HRESULT QZ_STDCALL mriff_WriteWaveHeader(_tMRIFF* m, const WAVEFORMATEX* wfx, DWORD dataSize,
                                                DWORD extraSize);
/* The same for a record, written as its plain 18-byte WAVEFORMATEX. */
QZ_API HRESULT QZ_STDCALL mriff_WriteWaveHeader(_tMRIFF* m, const _qzwaveformat& rec,
                                                DWORD dataSize, DWORD extraSize);
/*
 * Reads the format and the data size of a wave image of `size` bytes at
 * `base`: the file header's failures are returned, a form type other than
 * "WAVE" gives E_FAIL, and "fmt " and "data" are each searched from the
 * start with the image size as the budget. *wfx is cleared and receives
 * min(format size, 18) bytes of the format body; *dataSize (optional)
 * the data chunk's size field. *wfx is not touched when anything fails.
 * Only the 18 bytes come back, with the tag and cbSize the file has: an
 * extensible or codec format then claims more than the structure holds
 * (qz/qzwaveformat.h), so pass such a result on only to calls that read
 * 18 bytes, and read those formats whole with the record form below.
 */
QZ_API HRESULT QZ_STDCALL mriff_GetWfx(WAVEFORMATEX* wfx, LPCVOID base, DWORD size,
                                       DWORD* dataSize);
/*
 * The same into a record, which must hold 128 bytes (QZWAVEFORMAT_TEMP_SIZE):
 * the whole format chunk is read, so extensible formats keep their
 * sub-format and mask and codecs up to 94 extra bytes.
 */
QZ_API HRESULT QZ_STDCALL mriff_GetWfx(_qzwaveformat* rec, LPCVOID base, DWORD size,
                                       DWORD* dataSize);

#endif /* __cplusplus */

#endif /* QZ_MRIFF_H */
