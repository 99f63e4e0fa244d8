/*
 * file_source.h - a Win32 file handle as the chunk families move over it.
 *
 * FileSource wraps a handle with the few moves the walk and the writers
 * need (whole reads and writes, relative and absolute seeks, truncation).
 * It knows nothing of any chunk format: fields are decoded and encoded by
 * the layouts (chunk_layout.h). It adds no buffering: each call is one
 * call of the platform layer, so a chunk header costs one read.
 *
 * Relative moves go through the 64-bit seek: a chunk size of 2 GiB or more
 * taken as a signed 32-bit distance would step backwards and could walk
 * the same headers forever.
 */
#ifndef QZ_CHUNKFILES_FILE_SOURCE_H
#define QZ_CHUNKFILES_FILE_SOURCE_H

#include <cstdint>

#include "chunkfiles/chunk_walk.h"
#include "platform/win32api.h"

namespace qz::chunks {

class FileSource {
public:
    explicit FileSource(HANDLE file) : file_(file) {}

    /* True only when all `count` bytes arrived. */
    bool read(void* buffer, DWORD count) {
        DWORD got = 0;
        return ReadFile(file_, buffer, count, &got, nullptr) && got == count;
    }
    /* Reads up to `count` bytes; false only when the call itself fails. */
    bool read_some(void* buffer, DWORD count, DWORD* got) {
        DWORD n = 0;
        const BOOL ok = ReadFile(file_, buffer, count, &n, nullptr);
        *got = n;
        return ok != FALSE;
    }
    bool write(const void* buffer, DWORD count) {
        DWORD put = 0;
        return WriteFile(file_, buffer, count, &put, nullptr) && put == count;
    }

    bool skip(int64_t delta) { return move(delta, FILE_CURRENT); }
    bool seek_to(uint64_t position) { return move(int64_t(position), FILE_BEGIN); }
    bool tell(uint64_t* position) {
        LARGE_INTEGER zero{};
        LARGE_INTEGER at{};
        if (!SetFilePointerEx(file_, zero, &at, FILE_CURRENT)) return false;
        *position = uint64_t(at.QuadPart);
        return true;
    }
    bool truncate_here() { return SetEndOfFile(file_) != FALSE; }
    /* The file's length in bytes; the position is left at the end. */
    bool length(uint64_t* bytes) {
        LARGE_INTEGER zero{};
        LARGE_INTEGER end{};
        if (!SetFilePointerEx(file_, zero, &end, FILE_END)) return false;
        *bytes = uint64_t(end.QuadPart);
        return true;
    }

private:
    bool move(int64_t distance, DWORD method) {
        LARGE_INTEGER by{};
        by.QuadPart = distance;
        return SetFilePointerEx(file_, by, nullptr, method) != FALSE;
    }

    HANDLE file_;
};

static_assert(ChunkSource<FileSource>);

/*
 * Closes a gap of `length` bytes at `start` by copying everything after it
 * down over it, one block of the caller's buffer at a time: read behind the
 * gap, write at its start, until a block comes back short. *end becomes the
 * new end of the data; the file is not cut here. QZE_FILE_READ or
 * QZE_FILE_WRITE when a move, read or write fails.
 */
inline HRESULT close_gap(FileSource& file, uint64_t start, uint64_t length, unsigned char* block,
                         DWORD block_bytes, uint64_t* end) {
    uint64_t read_at = start + length;
    uint64_t write_at = start;
    DWORD got = 0;
    if (!file.seek_to(read_at) || !file.read_some(block, block_bytes, &got)) return QZE_FILE_READ;
    for (;;) {
        read_at += got;
        if (!file.seek_to(write_at) || !file.write(block, got)) return QZE_FILE_WRITE;
        write_at += got;
        if (got < block_bytes) break;
        if (!file.seek_to(read_at) || !file.read_some(block, block_bytes, &got))
            return QZE_FILE_READ;
    }
    *end = write_at;
    return S_OK;
}

}  // namespace qz::chunks

#endif
