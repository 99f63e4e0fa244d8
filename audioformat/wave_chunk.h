/*
 * wave_chunk.h - the body of a wave file's "fmt " chunk.
 *
 * The chunk holds a WAVEFORMATEX as it lies on disk: little-endian fields
 * in order, 16 bytes for plain PCM (no cbSize), 18 for the rest, 40 for
 * the extensible form, then any codec bytes. Every family that reads or
 * writes wave headers (memory images, 64-bit RIFF) encodes and decodes the
 * body here, field by field.
 */
#ifndef QZ_AUDIOFORMAT_WAVE_CHUNK_H
#define QZ_AUDIOFORMAT_WAVE_CHUNK_H

#include "qz/qzwaveformat.h"

namespace qz::wave {

inline constexpr DWORD kPcmBodyBytes = 16;  // WAVEFORMAT + bits, no cbSize
inline constexpr DWORD kWfxBytes = sizeof(WAVEFORMATEX);
inline constexpr DWORD kWfxeBytes = sizeof(WAVEFORMATEXTENSIBLE);
/*
 * As much of a chunk as a record of QZWAVEFORMAT_TEMP_SIZE bytes can take:
 * the extensible structure and the record's room for codec bytes.
 */
inline constexpr DWORD kFormatChunkRoom =
    kWfxeBytes + (QZWAVEFORMAT_TEMP_SIZE - QZWAVEFORMAT_BASE_SIZE - 2);

/*
 * The body as it goes into a file; returns its size (16 or 18). PCM bodies
 * are rebuilt from the three numbers that define them, so a caller's stale
 * block size or byte rate never reaches the file. Codec bytes are not
 * written.
 */
DWORD encode_format_body(const WAVEFORMATEX& wfx, BYTE (&body)[kWfxBytes]);

/* The first 18 bytes of a body, field by field; `bytes` must hold 18. */
void decode_wfx(const BYTE* bytes, WAVEFORMATEX* wfx);

/*
 * A whole body of `length` bytes (at most kFormatChunkRoom) into `out`,
 * which holds kFormatChunkRoom bytes: the extensible fields when the tag
 * says so, then the codec bytes present. cbSize is cut to the bytes really
 * present, so nothing that reads the structure runs past them. `bytes`
 * must hold at least kWfxeBytes, zero beyond `length`.
 */
void decode_format_body(const BYTE* bytes, DWORD length, BYTE* out);

}  // namespace qz::wave

#endif
