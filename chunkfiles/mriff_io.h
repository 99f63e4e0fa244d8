/*
 * mriff_io.h - the memory image as the mriff_ family uses it.
 *
 * MemorySource wraps a caller's cursor with the moves the family needs and
 * is the source the shared chunk walk reads through. Every access goes
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

#include "chunkfiles/chunk_walk.h"
#include "qz/mriff.h"

namespace qz::mriff {

inline constexpr uint32_t kRiffId = fourcc("RIFF");
inline constexpr uint32_t kListId = fourcc("LIST");
inline constexpr uint32_t kInfoList = fourcc("INFO");
inline constexpr uint32_t kWaveForm = fourcc("WAVE");
inline constexpr uint32_t kFmtId = fourcc("fmt ");
inline constexpr uint32_t kDataId = fourcc("data");
/* "RIFF", size, form type. */
inline constexpr uint32_t kFileHeaderBytes = 12;

class MemorySource {
public:
    explicit MemorySource(_tMRIFF& cursor);

    /* Offsets from the base. */
    uint32_t offset() const { return uint32_t(m_.pCurrent - m_.pBase); }
    uint32_t data_size() const { return uint32_t(m_.pDataEnd - m_.pBase); }
    /* The position clamped into 0 .. data size. */
    void move_to(int64_t offset);

    /* Copies up to `count` bytes from the position; returns the count copied. */
    uint32_t read_some(void* buffer, uint32_t count);
    /* Copies up to `count` bytes to the position, moving the data end up. */
    uint32_t write_some(const void* data, uint32_t count);
    bool write(const void* data, uint32_t count) { return write_some(data, count) == count; }
    bool write_u32(uint32_t value);

    /* The chunk walk's source interface; moves are clamped and never fail. */
    bool read(void* buffer, uint32_t count) { return read_some(buffer, count) == count; }
    bool skip(int64_t delta) {
        move_to(int64_t(offset()) + delta);
        return true;
    }
    bool tell(uint32_t* position) {
        *position = offset();
        return true;
    }
    bool seek_to(uint32_t position) {
        move_to(position);
        return true;
    }

private:
    _tMRIFF& m_;
};

static_assert(chunks::ChunkSource<MemorySource>);

}  // namespace qz::mriff

#endif
