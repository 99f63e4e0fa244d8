/*
 * file_source.h - a Win32 file handle as the chunk families move over it.
 *
 * FileSource wraps a handle with the few moves the walk and the writers
 * need (whole reads and writes, relative and absolute seeks, truncation).
 * It knows nothing of any chunk format: fields are decoded and encoded by
 * the layouts (chunk_layout.h). It adds no buffering: each call is one
 * call of the platform layer, so a chunk header costs one read.
 * ReadAheadSource is the buffered reader for the few readers that want
 * one.
 *
 * Relative moves go through the 64-bit seek: a chunk size of 2 GiB or more
 * taken as a signed 32-bit distance would step backwards and could walk
 * the same headers forever.
 */
#ifndef QZ_CHUNKFILES_FILE_SOURCE_H
#define QZ_CHUNKFILES_FILE_SOURCE_H

#include <cstdint>
#include <cstring>

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
 * A file handle read through a small look-ahead block, for readers that
 * take a few fields lying close together (the headers at the front of a
 * sound file): a read the block holds costs no call of the platform
 * layer, and a read past it fetches the next block from there, so a walk
 * over a handful of headers costs one or two reads instead of one each.
 * Moves only change where the next read comes from; sync() sets the
 * handle's pointer there, which a reader does before it returns. A read
 * cut short by the end of the file copies what there is and answers
 * false, as FileSource does. Reading only.
 */
class ReadAheadSource {
public:
    ReadAheadSource(HANDLE file, uint64_t position) : file_(file), at_(position) {}

    bool read(void* buffer, DWORD count) {
        DWORD got = 0;
        return read_some(buffer, count, &got) && got == count;
    }
    /* Reads up to `count` bytes; false only when the platform's read fails. */
    bool read_some(void* buffer, DWORD count, DWORD* got) {
        auto* out = static_cast<unsigned char*>(buffer);
        *got = 0;
        while (*got < count) {
            if (at_ >= block_at_ && at_ - block_at_ < block_bytes_) {
                const uint64_t held = block_bytes_ - (at_ - block_at_);
                const auto n = DWORD(held < count - *got ? held : count - *got);
                std::memcpy(out + *got, block_ + (at_ - block_at_), n);
                *got += n;
                at_ += n;
                continue;
            }
            FileSource file(file_);
            block_at_ = at_;
            block_bytes_ = 0;
            if (!file.seek_to(at_) || !file.read_some(block_, sizeof block_, &block_bytes_))
                return false;
            if (block_bytes_ == 0) break;  // the end of the file
        }
        return true;
    }
    bool skip(int64_t delta) {
        if (delta < 0 && uint64_t(-delta) > at_) return false;
        at_ += uint64_t(delta);
        return true;
    }
    bool seek_to(uint64_t position) {
        at_ = position;
        return true;
    }
    bool tell(uint64_t* position) {
        *position = at_;
        return true;
    }
    bool sync() { return FileSource(file_).seek_to(at_); }

private:
    HANDLE file_;
    uint64_t at_;
    uint64_t block_at_ = 0;
    DWORD block_bytes_ = 0;
    unsigned char block_[512];
};

static_assert(ChunkSource<ReadAheadSource>);

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
