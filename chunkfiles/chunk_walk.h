/*
 * chunk_walk.h - the chunk walk shared by every chunk-file family.
 *
 * A chunk file is a run of sibling chunks (a four-character id, a 32-bit
 * size that leaves out the pad byte, the body, one pad byte after an odd
 * body), some of which are lists ("LIST", size, list type, sub-chunks).
 * The searches, the list search, the entry count and the entry step are
 * written here once, with their budget rules, over a small source
 * interface; each family supplies the reads and seeks of its medium:
 *
 *   riff_*   a Win32 file handle        (chunkfiles/riff_io.h, FileSource)
 *   mriff_*  a memory image             (a cursor whose reads and seeks clamp)
 *   iff_*    a big-endian file handle   (the file source with a big-endian layout)
 *
 * Plugging in another family takes two things.
 *
 * 1. A source: any type with these four members (see ChunkSource below).
 *
 *        bool read(void* buffer, DWORD count);   // true only when all
 *                                                // `count` bytes arrived
 *        bool skip(int64_t delta);               // relative move; a
 *                                                // memory source clamps
 *        bool tell(DWORD* position);             // where the next read is
 *        bool seek_to(DWORD position);           // absolute move back
 *
 *    Counts, sizes and positions are DWORD, the type of the exported
 *    functions' arguments: on 32-bit Windows DWORD is `unsigned long`, not
 *    uint32_t, and the callers' pointers must pass straight through.
 *
 *    A source may copy a shorter read and still answer false; the walk
 *    then reports QZE_FILE_READ. A failed skip is reported the same way,
 *    since the walk can no longer say where the next header is. A memory
 *    source whose skip is clamped at the end of its data answers true: the
 *    next header read then comes up short, as it would at the end of a file.
 *    The riff_ family's FileSource serves the IFF family unchanged, since
 *    the walk decodes the fields itself in the layout's byte order.
 *
 * 2. A layout: the byte order of the header fields, the id that marks a
 *    list, and whether a skip that overruns the budget clamps it at zero
 *    (RIFF searches) or lets it wrap (the IFF search, which then runs on
 *    until a read comes up short at the end of the file). RiffLayout is the
 *    little-endian one; an IFF family declares, for example,
 *
 *        struct IffLayout {
 *            static constexpr ByteOrder order = ByteOrder::Big;
 *            static constexpr DWORD list_id = fourcc_be("LIST");
 *            static constexpr bool clamp_budget = false;
 *        };
 *
 *    and calls find_chunk<IffLayout>(source, ...). Ids are compared as the
 *    32-bit word that the layout's byte order loads, so the caller's ids
 *    must be made with the matching helper (fourcc or fourcc_be).
 *
 * The remaining budget is the number of bytes left in the enclosing body
 * from the current position. Every walk takes it as an optional pointer:
 * with one, the walk stops with QZE_NOT_FOUND once fewer than 8 bytes (a
 * header) or 4 (a list type) remain and updates the count in place; without
 * one, the walk runs until a read comes up short, so a missing chunk ends
 * in QZE_FILE_READ at the end of the data. Callers that must tell a missing
 * chunk from a damaged file pass the budget.
 *
 * The walk never allocates and holds no state between calls; the position
 * of the source is the only state.
 */
#ifndef QZ_CHUNKFILES_CHUNK_WALK_H
#define QZ_CHUNKFILES_CHUNK_WALK_H

#include <concepts>
#include <cstdint>

#include "base/byteorder.h"
#include "qz/qzresult.h"

namespace qz::chunks {

inline constexpr DWORD kChunkHeaderBytes = 8;
inline constexpr DWORD kListTypeBytes = 4;

template <class S>
concept ChunkSource = requires(S& s, void* buffer, DWORD count, int64_t delta, DWORD* at) {
    { s.read(buffer, count) } -> std::same_as<bool>;
    { s.skip(delta) } -> std::same_as<bool>;
    { s.tell(at) } -> std::same_as<bool>;
    { s.seek_to(count) } -> std::same_as<bool>;
};

/* The RIFF vocabulary shared by the file and memory-image families. */
inline constexpr DWORD kRiffId = base::fourcc("RIFF");
inline constexpr DWORD kListId = base::fourcc("LIST");
inline constexpr DWORD kFmtId = base::fourcc("fmt ");
/* "RIFF", size, form type. */
inline constexpr DWORD kFileHeaderBytes = 12;

struct RiffLayout {
    static constexpr base::ByteOrder order = base::ByteOrder::Little;
    static constexpr DWORD list_id = base::fourcc("LIST");
    static constexpr bool clamp_budget = true;
};

/* A body's length on disk: odd sizes carry one pad byte, so 0xFFFFFFFF
   takes 2^32 bytes and the sum needs 64 bits. */
constexpr uint64_t padded(DWORD size) {
    return uint64_t(size) + (size & 1u);
}

/* remaining - amount, clamped at 0 or wrapped modulo 2^32 as the layout says. */
template <class Layout>
constexpr DWORD spend(DWORD remaining, int64_t amount) {
    const int64_t left = int64_t(remaining) - amount;
    if (Layout::clamp_budget && left < 0) return 0;
    return DWORD(uint64_t(left));
}

/* One 32-bit field in the layout's byte order. */
template <class Layout, ChunkSource S>
bool read_word(S& source, DWORD* value) {
    unsigned char bytes[4];
    if (!source.read(bytes, sizeof bytes)) return false;
    *value = base::load32(bytes, Layout::order);
    return true;
}

/*
 * A chunk header: the id field and the size field, read together in one
 * 8-byte read (a short read leaves the position where the two separate
 * field reads would have left it). QZE_FILE_READ when it comes up short;
 * the outputs are written only when both fields arrived.
 */
template <class Layout, ChunkSource S>
HRESULT read_header(S& source, DWORD* id, DWORD* size) {
    unsigned char bytes[kChunkHeaderBytes];
    if (!source.read(bytes, sizeof bytes)) return QZE_FILE_READ;
    *id = base::load32(bytes, Layout::order);
    *size = base::load32(bytes + 4, Layout::order);
    return S_OK;
}

/* A file header ("RIFF", size, form type) as far as it arrived. */
struct FileHeader {
    DWORD arrived = 0;  // bytes read, 0..12
    DWORD id = 0;       // each field 0 unless all its bytes arrived
    DWORD size = 0;
    DWORD form = 0;
};

/*
 * Reads a file header in one read from a source that can also copy a
 * shorter read (`bool read_some(void*, DWORD, DWORD* got)`). Which part of
 * a short header decides the outcome is each family's own documented
 * rule, applied to what arrived.
 */
template <class Layout, class S>
FileHeader read_file_header(S& source) {
    unsigned char bytes[kFileHeaderBytes];
    FileHeader header;
    if (!source.read_some(bytes, sizeof bytes, &header.arrived)) header.arrived = 0;
    if (header.arrived >= 4) header.id = base::load32(bytes, Layout::order);
    if (header.arrived >= 8) header.size = base::load32(bytes + 4, Layout::order);
    if (header.arrived >= 12) header.form = base::load32(bytes + 8, Layout::order);
    return header;
}

/*
 * A chunk header for a caller: id and size (each output optional) exactly
 * as stored. QZE_FILE_READ on a short read, leaving the outputs alone.
 */
template <class Layout, ChunkSource S>
HRESULT read_chunk_header(S& source, DWORD* id, DWORD* size) {
    DWORD chunk_id = 0;
    DWORD chunk_size = 0;
    const HRESULT hr = read_header<Layout>(source, &chunk_id, &chunk_size);
    if (FAILED(hr)) return hr;
    if (id) *id = chunk_id;
    if (size) *size = chunk_size;
    return S_OK;
}

/*
 * A list header for a caller: the list type and the list size minus 4
 * (the bytes after the type), each output optional. QZE_NO_LIST_HEADER
 * when the chunk is not a list; QZE_FILE_READ on a short read.
 */
template <class Layout, ChunkSource S>
HRESULT read_list_header(S& source, DWORD* list_type, DWORD* size) {
    DWORD id = 0;
    DWORD list_size = 0;
    const HRESULT hr = read_header<Layout>(source, &id, &list_size);
    if (FAILED(hr)) return hr;
    if (id != Layout::list_id) return QZE_NO_LIST_HEADER;
    DWORD type = 0;
    if (!read_word<Layout>(source, &type)) return QZE_FILE_READ;
    if (list_type) *list_type = type;
    if (size) *size = list_size - kListTypeBytes;
    return S_OK;
}

/*
 * Walks sibling chunks from the position until one's id satisfies
 * `wanted(id)`. On success the position is at the first body byte, *id the
 * id found, *size (if given) the size field as stored, and *remaining (if
 * given) the budget after the header: it still counts the found body.
 *
 * QZE_NOT_FOUND when the budget falls below a header (the count reached is
 * stored back, so a caller sees 0..7); QZE_FILE_READ on a short read or a
 * failed skip (the caller's count is then left as it was).
 */
template <class Layout, ChunkSource S, class Wanted>
HRESULT find_chunk_where(S& source, Wanted wanted, DWORD* id, DWORD* size, DWORD* remaining) {
    DWORD left = remaining ? *remaining : 0;
    for (;;) {
        if (remaining && left < kChunkHeaderBytes) {
            *remaining = left;
            return QZE_NOT_FOUND;
        }
        DWORD chunk_id = 0;
        DWORD chunk_size = 0;
        if (FAILED(read_header<Layout>(source, &chunk_id, &chunk_size))) return QZE_FILE_READ;
        if (wanted(chunk_id)) {
            *id = chunk_id;
            if (size) *size = chunk_size;
            if (remaining) *remaining = left - kChunkHeaderBytes;
            return S_OK;
        }
        const uint64_t body = padded(chunk_size);
        if (!source.skip(int64_t(body))) return QZE_FILE_READ;
        left = spend<Layout>(left, kChunkHeaderBytes + int64_t(body));
    }
}

/* find_chunk_where for one id. */
template <class Layout, ChunkSource S>
HRESULT find_chunk(S& source, DWORD id, DWORD* size, DWORD* remaining) {
    DWORD found = 0;
    return find_chunk_where<Layout>(source, [id](DWORD chunk_id) { return chunk_id == id; }, &found,
                                    size, remaining);
}

/*
 * Steps from the first body byte of a chunk found by a search to the next
 * header, taking the body off the budget as the search would have.
 */
template <class Layout, ChunkSource S>
bool pass_found_body(S& source, DWORD size, DWORD* remaining) {
    const uint64_t body = padded(size);
    if (!source.skip(int64_t(body))) return false;
    if (remaining) *remaining = spend<Layout>(*remaining, int64_t(body));
    return true;
}

/*
 * Walks the lists among the siblings until one has `list_type`. On success
 * the position is at the list's first sub-chunk, *size (if given) is the
 * list size minus 4 (the bytes after the list type) and *remaining the
 * budget after the list type.
 *
 * The budget moves in place as the walk goes: the inner chunk search
 * stores it when it finds a list header, and every list type read takes 4
 * more. QZE_NOT_FOUND when fewer than 4 bytes are left for a list type or
 * the chunk search runs out; QZE_FILE_READ on a short read or failed skip.
 */
template <class Layout, ChunkSource S>
HRESULT find_list(S& source, DWORD list_type, DWORD* size, DWORD* remaining) {
    DWORD list_size = 0;
    HRESULT hr = find_chunk<Layout>(source, Layout::list_id, &list_size, remaining);
    if (FAILED(hr)) return hr;
    for (;;) {
        if (remaining && *remaining < kListTypeBytes) return QZE_NOT_FOUND;
        DWORD type = 0;
        if (!read_word<Layout>(source, &type)) return QZE_FILE_READ;
        if (remaining) *remaining -= kListTypeBytes;
        if (type == list_type) {
            if (size) *size = list_size - kListTypeBytes;
            return S_OK;
        }
        // A list smaller than its own type field is damaged, but its header
        // still says where it ends; stepping back to that end (a negative
        // move of at most 4) keeps the walk on the real next header rather
        // than wrapping into a 4 GiB skip.
        const int64_t rest = int64_t(padded(list_size)) - kListTypeBytes;
        if (!source.skip(rest)) return QZE_FILE_READ;
        if (remaining) *remaining = spend<Layout>(*remaining, rest);
        hr = find_chunk<Layout>(source, Layout::list_id, &list_size, remaining);
        if (FAILED(hr)) return hr;
    }
}

/*
 * Passes one entry of a list: its header (8 bytes off the budget even when
 * the read comes up short) and its padded body (off the budget without
 * clamping: a body longer than the budget wraps the count, and the walk
 * then runs on to a short read).
 */
template <class Layout, ChunkSource S>
HRESULT pass_entry(S& source, DWORD* remaining) {
    if (remaining) *remaining -= kChunkHeaderBytes;
    DWORD id = 0;
    DWORD size = 0;
    if (FAILED(read_header<Layout>(source, &id, &size))) return QZE_FILE_READ;
    const uint64_t body = padded(size);
    if (!source.skip(int64_t(body))) return QZE_FILE_READ;
    if (remaining) *remaining -= DWORD(body);
    return S_OK;
}

/*
 * Counts the entries from the position and goes back to it. S_OK when the
 * budget runs out; QZE_FILE_READ (with the count so far) at a short read,
 * which is how a walk without a budget always ends. The caller's budget is
 * consumed in place although the position is restored.
 */
template <class Layout, ChunkSource S>
HRESULT count_entries(S& source, DWORD* count, DWORD* remaining) {
    *count = 0;
    DWORD start = 0;
    if (!source.tell(&start)) return QZE_FILE_READ;
    HRESULT hr = S_OK;
    while (!remaining || *remaining >= kChunkHeaderBytes) {
        hr = pass_entry<Layout>(source, remaining);
        if (FAILED(hr)) break;
        ++*count;
    }
    if (!source.seek_to(start)) return QZE_FILE_READ;
    return hr;
}

/*
 * Steps over `index` entries from the position, leaving it at the header
 * of entry number `index` (counting from 0). Index 0 answers at once
 * without moving. The budget is checked before the index, so the position
 * just past the last entry is reached only while 8 bytes are still left.
 */
template <class Layout, ChunkSource S>
HRESULT seek_entry(S& source, DWORD index, DWORD* remaining) {
    if (index == 0) return S_OK;
    for (DWORD passed = 0;; ++passed) {
        if (remaining && *remaining < kChunkHeaderBytes) return QZE_NOT_FOUND;
        if (passed == index) return S_OK;
        const HRESULT hr = pass_entry<Layout>(source, remaining);
        if (FAILED(hr)) return hr;
    }
}

}  // namespace qz::chunks

#endif
