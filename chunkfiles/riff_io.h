/*
 * riff_io.h - the file handle as the riff_ family uses it.
 *
 * FileSource wraps a Win32 file handle with the few moves the family needs
 * (whole reads and writes, relative and absolute seeks, truncation) and is
 * the source the shared chunk walk reads through. It adds no buffering:
 * each call is one call of the platform layer, so a chunk header costs one
 * 8-byte read.
 *
 * Relative moves go through the 64-bit seek: a chunk size of 2 GiB or more
 * taken as a signed 32-bit distance would step backwards and could walk
 * the same headers forever.
 */
#ifndef QZ_CHUNKFILES_RIFF_IO_H
#define QZ_CHUNKFILES_RIFF_IO_H

#include <cstdint>

#include "chunkfiles/chunk_walk.h"
#include "platform/win32api.h"

namespace qz::riff {

using chunks::kFileHeaderBytes;
using chunks::kFmtId;
using chunks::kListId;
using chunks::kRiffId;
inline constexpr DWORD kCddaForm = base::fourcc("CDDA");
/* The RIFF size field sits after the id. */
inline constexpr DWORD kRiffSizeOffset = 4;

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
    bool read_u32(DWORD* value) { return chunks::read_word<chunks::RiffLayout>(*this, value); }
    bool write_u32(DWORD value) {
        unsigned char bytes[4];
        base::store_le32(bytes, value);
        return write(bytes, sizeof bytes);
    }

    bool skip(int64_t delta) { return move(delta, FILE_CURRENT); }
    bool seek_to(uint64_t position) { return move(int64_t(position), FILE_BEGIN); }
    bool seek_to(DWORD position) { return seek_to(uint64_t(position)); }
    bool tell(uint64_t* position) {
        LARGE_INTEGER zero{};
        LARGE_INTEGER at{};
        if (!SetFilePointerEx(file_, zero, &at, FILE_CURRENT)) return false;
        *position = uint64_t(at.QuadPart);
        return true;
    }
    /* The position's low 32 bits: this family's offsets are 32-bit. */
    bool tell(DWORD* position) {
        uint64_t at = 0;
        if (!tell(&at)) return false;
        *position = DWORD(at);
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

static_assert(chunks::ChunkSource<FileSource>);

/* A chunk header: the id, then the size, as two 4-byte writes. */
inline HRESULT write_chunk_header(FileSource& file, DWORD id, DWORD size) {
    if (!file.write_u32(id)) return QZE_FILE_WRITE;
    if (!file.write_u32(size)) return QZE_FILE_WRITE;
    return S_OK;
}

/*
 * Reads the file header at the position: id, size and form type, in one
 * read. QZE_FILE_READ when short, QZE_NO_RIFF_HEADER when the id is not
 * "RIFF" (the position is then 4 bytes on, after the id); *riff_size is
 * the size field as stored.
 */
HRESULT read_file_header(FileSource& file, DWORD* riff_size, DWORD* form_type);

/* Rewinds and reads the file header; *remaining is the top-level budget. */
HRESULT rewind_to_top_level(FileSource& file, DWORD* remaining, DWORD* form_type);

}  // namespace qz::riff

#endif
