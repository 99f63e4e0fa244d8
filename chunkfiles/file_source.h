/*
 * file_source.h - a Win32 file handle as the chunk families move over it.
 *
 * FileSource wraps a handle with the few moves the walk and the writers
 * need (whole reads and writes, relative and absolute seeks, truncation).
 * It knows nothing of any chunk format: fields are decoded and encoded by
 * the layouts (chunk_layout.h). It adds no buffering: each call is one
 * call of the platform layer, so a chunk header costs one read.
 * ReadAheadSource is the buffered reader for the searches and the few
 * readers that take fields lying close together (walk_ahead).
 *
 * Relative moves go through the 64-bit seek: a chunk size of 2 GiB or more
 * taken as a signed 32-bit distance would step backwards and could walk
 * the same headers forever.
 */
#ifndef QZ_CHUNKFILES_FILE_SOURCE_H
#define QZ_CHUNKFILES_FILE_SOURCE_H

#include <cstdint>
#include <cstring>
#include <tuple>

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
    /* Reads from `position` on; `handle_is_there` when the handle's pointer
       already is there, which spares the first move. */
    ReadAheadSource(HANDLE file, uint64_t position, bool handle_is_there = false)
        : file_(file), at_(position), handle_at_(position), handle_known_(handle_is_there) {}

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
            block_at_ = at_;
            block_bytes_ = 0;
            if (!move_handle_to(at_)) return false;
            handle_known_ = FileSource(file_).read_some(block_, sizeof block_, &block_bytes_);
            if (!handle_known_) return false;
            handle_at_ = at_ + block_bytes_;
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
    bool sync() { return move_handle_to(at_); }

private:
    bool move_handle_to(uint64_t position) {
        if (handle_known_ && handle_at_ == position) return true;
        handle_known_ = FileSource(file_).seek_to(position);
        handle_at_ = position;
        return handle_known_;
    }

    HANDLE file_;
    uint64_t at_;
    uint64_t handle_at_;  // where the handle's pointer is, when handle_known_
    bool handle_known_;
    uint64_t block_at_ = 0;
    DWORD block_bytes_ = 0;
    unsigned char block_[512];
};

static_assert(ChunkSource<ReadAheadSource>);

/*
 * Runs a search `walk(source)` over the handle through a look-ahead block
 * from the handle's position, then leaves the handle where the search
 * stopped, as a walk reading header by header would have left it. A walk
 * over many small chunks then costs one read per block instead of a read
 * and a seek per chunk. `outputs` are the search's out-parameters (any may
 * be null): when that last move fails they are put back as they were and
 * the answer is QZE_FILE_READ, as for any failed move of the walk. A
 * handle that cannot seek (ERROR_SEEK: a pipe) is walked header by header,
 * as far as that goes without seeking.
 */
template <class Walk, class... Output>
HRESULT walk_ahead(HANDLE file, Walk&& walk, Output*... outputs) {
    FileSource direct(file);
    uint64_t position = 0;
    if (!direct.tell(&position)) return GetLastError() == ERROR_SEEK ? walk(direct) : QZE_FILE_READ;
    const std::tuple<Output...> before{(outputs ? *outputs : Output{})...};
    ReadAheadSource ahead(file, position, true);
    const HRESULT hr = walk(ahead);
    if (ahead.sync()) return hr;
    std::apply([&](const Output&... saved) { ((outputs ? void(*outputs = saved) : void()), ...); },
               before);
    return QZE_FILE_READ;
}

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
