/*
 * mriff_io.h - the memory image as the mriff_ family uses it.
 *
 * MemorySource wraps a caller's cursor with the moves the family needs and
 * is the source the shared chunk walk reads through; like the file source
 * it moves bytes only, and the layouts encode the fields. Every access goes
 * through its offsets: a move is clamped into 0 .. data size, a read
 * copies at most up to the data end, a write at most up to the capacity
 * end. Before anything else it puts the cursor itself in order (capacity
 * end not below the base, data end within the capacity, position within
 * the data), so that even a cursor a caller filled by hand cannot lead
 * outside base .. capacity end.
 */
#ifndef QZ_CHUNKFILES_MRIFF_IO_H
#define QZ_CHUNKFILES_MRIFF_IO_H

#include <cstdint>
#include <cstring>

#include "chunkfiles/chunk_walk.h"
#include "qz/mriff.h"

namespace qz::mriff {

using chunks::kFileHeaderBytes;
using chunks::kFmtId;
using chunks::kListId;
using chunks::kRiffId;
using chunks::write_word;
inline constexpr DWORD kInfoList = base::fourcc("INFO");
inline constexpr DWORD kWaveForm = base::fourcc("WAVE");
inline constexpr DWORD kDataId = base::fourcc("data");

class MemorySource {
public:
    explicit MemorySource(_tMRIFF& cursor);

    /* Offsets from the base. */
    DWORD offset() const { return DWORD(m_.pCurrent - m_.pBase); }
    DWORD data_size() const { return DWORD(m_.pDataEnd - m_.pBase); }
    /* The position clamped into 0 .. data size. */
    void move_to(int64_t offset) {
        m_.pCurrent = m_.pBase + (offset < 0 ? 0 : offset > data_size() ? data_size() : offset);
    }

    /* Copies up to `count` bytes from the position; returns the count copied. */
    DWORD read_some(void* buffer, DWORD count) {
        // The whole count is the walk's everyday case (a header, a word):
        // with a count known where this is inlined, the copy is a move.
        if (DWORD(m_.pDataEnd - m_.pCurrent) < count) return read_short(buffer, count);
        std::memcpy(buffer, m_.pCurrent, count);
        m_.pCurrent += count;
        return count;
    }
    bool read_some(void* buffer, DWORD count, DWORD* got) {
        *got = read_some(buffer, count);
        return true;
    }
    /* Copies up to `count` bytes to the position, moving the data end up. */
    DWORD write_some(const void* data, DWORD count);
    bool write(const void* data, DWORD count) { return write_some(data, count) == count; }

    /* The chunk walk's source interface; moves are clamped and never fail. */
    bool read(void* buffer, DWORD count) { return read_some(buffer, count) == count; }
    bool skip(int64_t delta) {
        move_to(int64_t(offset()) + delta);
        return true;
    }
    bool tell(uint64_t* position) {
        *position = offset();
        return true;
    }
    bool seek_to(uint64_t position) {
        move_to(position > uint64_t(INT64_MAX) ? INT64_MAX : int64_t(position));
        return true;
    }

private:
    DWORD read_short(void* buffer, DWORD count);

    _tMRIFF& m_;
};

static_assert(chunks::ChunkSource<MemorySource>);

/* A cursor over `size` bytes at `base`, for reading; position at the base. */
_tMRIFF read_cursor(LPCVOID base, DWORD size);

/*
 * Reads the file header at the position and reports the RIFF size as
 * stored and the form type. An image cut short within its first 8 bytes
 * reads as no "RIFF" (QZE_NO_RIFF_HEADER), as does a whole header of
 * another id (the position is then 8 bytes on, after id and size); a RIFF
 * header cut short in its form type gives QZE_FILE_READ.
 */
HRESULT read_file_header(MemorySource& image, DWORD* riff_size, DWORD* form_type);

}  // namespace qz::mriff

#endif
