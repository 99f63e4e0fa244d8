/*
 * chunk_layout.h - the chunk formats, described as data.
 *
 * Every chunk file is a run of sibling chunks (an id, a size, the body,
 * padding up to the format's alignment), some of which are groups (an id
 * such as "LIST", a size, a group type, sub-chunks). The formats differ
 * only in the shape of those fields, so each is a layout: a struct of
 * types and constants that the shared walk (chunk_walk.h) and the shared
 * field codec below read.
 *
 *                  id        size     header  align  size counts  budget
 *   RiffLayout     4 LE      u32 LE   8       2      body only    DWORD, clamped
 *   IffLayout      4 BE      u32 BE   8       2      body only    DWORD, wraps
 *   Riff64Layout   GUID      u64 LE   24      8      header too   LONGLONG
 *
 * A layout supplies:
 *
 *   Id, Size, Budget          the types of ids, stored sizes and budgets
 *   order, id_bytes, size_bytes, header_bytes
 *   type_bytes                the width of a group type (an id)
 *   type_threshold            the budget a group search needs left to read
 *                             a group type
 *   alignment                 bodies are padded to this (a power of two)
 *   size_counts_header        whether a stored size includes the header
 *   budget_rule               what a search does when a skip overruns the
 *                             budget (see BudgetRule)
 *   list_id                   the group id the group search looks for
 *   is_group(id)              every id that opens a group
 *   load_id, store_id         an id from and to its bytes in the file
 *   list_data(size)           what a group search reports for a group of
 *                             `size` data bytes (the bytes after the type)
 *
 * The sources and sinks (file_source.h, mriff_io.h) move bytes only; every
 * field is decoded and encoded here, in the layout's byte order.
 */
#ifndef QZ_CHUNKFILES_CHUNK_LAYOUT_H
#define QZ_CHUNKFILES_CHUNK_LAYOUT_H

#include <cstdint>
#include <cstring>

#include "base/byteorder.h"
#include "qz/qzdefs.h"
#include "qz/qzresult.h"
#include "qz/riff64.h"

namespace qz::chunks {

/*
 * What a search does with a skip that takes more than the budget holds:
 * RIFF clamps the budget at zero (the search then stops, not found); IFF
 * lets the 32-bit count wrap, so the search runs on until a header read
 * comes up short at the end of the file; the 64-bit family's budget is
 * signed, goes negative and stops the search. Passing list entries always
 * wraps a 32-bit budget.
 */
enum class BudgetRule { Clamp, Wrap, Signed };

/*
 * The shapes RIFF and IFF share: four-character ids and 32-bit sizes that
 * leave out the header and the pad byte, bodies padded to even, in the
 * given byte order.
 */
template <base::ByteOrder Order>
struct FourCcLayout {
    using Id = DWORD;
    using Size = DWORD;
    using Budget = DWORD;
    static constexpr base::ByteOrder order = Order;
    static constexpr DWORD id_bytes = 4;
    static constexpr DWORD size_bytes = 4;
    static constexpr DWORD header_bytes = 8;
    static constexpr DWORD type_bytes = 4;
    static constexpr Budget type_threshold = 4;
    static constexpr DWORD alignment = 2;
    static constexpr bool size_counts_header = false;
    static Id load_id(const unsigned char* bytes) { return base::load32(bytes, order); }
    static void store_id(unsigned char* bytes, Id id) { base::store32(bytes, id, order); }
    /* A list's size less its type, wrapping below 4 as it always has. */
    static constexpr Size list_data(Size size) { return size - type_bytes; }
};

/* RIFF: little-endian, grouped by "LIST" (and the file's "RIFF"). */
struct RiffLayout : FourCcLayout<base::ByteOrder::Little> {
    static constexpr BudgetRule budget_rule = BudgetRule::Clamp;
    static constexpr Id list_id = base::fourcc("LIST");
    static constexpr bool is_group(Id id) { return id == list_id || id == base::fourcc("RIFF"); }
};

/* IFF: big-endian, grouped by "FORM", "LIST" and "CAT ". */
struct IffLayout : FourCcLayout<base::ByteOrder::Big> {
    static constexpr BudgetRule budget_rule = BudgetRule::Wrap;
    static constexpr Id list_id = base::fourcc_be("LIST");
    static constexpr bool is_group(Id id) {
        return id == list_id || id == base::fourcc_be("FORM") || id == base::fourcc_be("CAT ");
    }
};

/*
 * A GUID in the file's order: the first field as a 32-bit little-endian
 * word, the next two as 16-bit little-endian words, the last eight bytes
 * as they stand.
 */
inline GUID load_guid(const unsigned char* b) {
    GUID g{};
    g.Data1 = base::load_le32(b);
    g.Data2 = base::load_le16(b + 4);
    g.Data3 = base::load_le16(b + 6);
    std::memcpy(g.Data4, b + 8, sizeof g.Data4);
    return g;
}
inline void store_guid(unsigned char* b, const GUID& g) {
    base::store_le32(b, g.Data1);
    base::store_le16(b + 4, g.Data2);
    base::store_le16(b + 6, g.Data3);
    std::memcpy(b + 8, g.Data4, sizeof g.Data4);
}

/* The 64-bit RIFF's "list" and file ("riff") labels. */
inline constexpr GUID kRiff64ListLabel = QZ_RIFF64_LIST_LABEL;
inline constexpr GUID kRiff64FileLabel = QZ_RIFF64_RIFF_LABEL;

/* 64-bit RIFF: GUID labels and 64-bit sizes that count the 24-byte header. */
struct Riff64Layout {
    using Id = GUID;
    using Size = ULONGLONG;
    using Budget = LONGLONG;
    static constexpr base::ByteOrder order = base::ByteOrder::Little;
    static constexpr DWORD id_bytes = 16;
    static constexpr DWORD size_bytes = 8;
    static constexpr DWORD header_bytes = 24;
    static constexpr DWORD type_bytes = 16;
    // A group search reads the 16-byte type once 8 bytes are left; that
    // threshold is what the family's callers have always had.
    static constexpr Budget type_threshold = 8;
    static constexpr DWORD alignment = 8;
    static constexpr bool size_counts_header = true;
    static constexpr BudgetRule budget_rule = BudgetRule::Signed;
    static constexpr Id list_id = kRiff64ListLabel;
    static bool is_group(const Id& id) { return id == kRiff64ListLabel || id == kRiff64FileLabel; }
    static Id load_id(const unsigned char* bytes) { return load_guid(bytes); }
    static void store_id(unsigned char* bytes, const Id& id) { store_guid(bytes, id); }
    /* A group whose data is shorter than its type reports no data. */
    static constexpr Size list_data(Size size) { return size > type_bytes ? size - type_bytes : 0; }
};

/* A stored size as the bytes of data it announces (never below 0). */
template <class Layout>
constexpr uint64_t data_size(typename Layout::Size stored) {
    if constexpr (Layout::size_counts_header)
        return stored > Layout::header_bytes ? uint64_t(stored) - Layout::header_bytes : 0;
    else
        return uint64_t(stored);
}

/*
 * `bytes` raised to the alignment; in 64 bits so that no 32-bit size can
 * wrap (a RIFF size of 0xFFFFFFFF takes 2^32 bytes). A 64-bit count within
 * the last alignment step below 2^64 stays where it is rather than wrap.
 */
template <class Layout>
constexpr uint64_t aligned(uint64_t bytes) {
    constexpr uint64_t step = Layout::alignment - 1;
    if (bytes > UINT64_MAX - step) return bytes;
    return (bytes + step) & ~step;
}
/* The same for a signed amount, which may be below 0 (a group shorter than its type). */
template <class Layout>
constexpr int64_t aligned_signed(int64_t bytes) {
    constexpr int64_t step = Layout::alignment - 1;
    if (bytes > INT64_MAX - step) return bytes;
    return int64_t(uint64_t(bytes + step) & ~uint64_t(step));
}

/* One size field in the layout's width and byte order. */
template <class Layout>
typename Layout::Size load_size(const unsigned char* bytes) {
    if constexpr (Layout::size_bytes == 8)
        return typename Layout::Size(base::load64(bytes, Layout::order));
    else
        return typename Layout::Size(base::load32(bytes, Layout::order));
}
template <class Layout>
void store_size(unsigned char* bytes, typename Layout::Size size) {
    if constexpr (Layout::size_bytes == 8)
        base::store64(bytes, uint64_t(size), Layout::order);
    else
        base::store32(bytes, uint32_t(size), Layout::order);
}

/* Field writers for a sink with `bool write(const void*, DWORD)`; true when all of it went. */
template <class Layout, class Sink>
bool write_id(Sink& sink, const typename Layout::Id& id) {
    unsigned char bytes[Layout::id_bytes];
    Layout::store_id(bytes, id);
    return sink.write(bytes, sizeof bytes);
}
template <class Layout, class Sink>
bool write_size(Sink& sink, typename Layout::Size size) {
    unsigned char bytes[Layout::size_bytes];
    store_size<Layout>(bytes, size);
    return sink.write(bytes, sizeof bytes);
}

/* A chunk header as two writes, the id and then the size field as stored. */
template <class Layout, class Sink>
HRESULT write_chunk_header(Sink& sink, const typename Layout::Id& id, typename Layout::Size size) {
    if (!write_id<Layout>(sink, id)) return QZE_FILE_WRITE;
    if (!write_size<Layout>(sink, size)) return QZE_FILE_WRITE;
    return S_OK;
}

/* An id field in one read. */
template <class Layout, class Source>
bool read_id(Source& source, typename Layout::Id* id) {
    unsigned char bytes[Layout::id_bytes];
    if (!source.read(bytes, sizeof bytes)) return false;
    *id = Layout::load_id(bytes);
    return true;
}
/* A size field in one read. */
template <class Layout, class Source>
bool read_size(Source& source, typename Layout::Size* size) {
    unsigned char bytes[Layout::size_bytes];
    if (!source.read(bytes, sizeof bytes)) return false;
    *size = load_size<Layout>(bytes);
    return true;
}

/*
 * A chunk header: the id field and the size field, read together in one
 * read (a short read leaves the position where the two separate field
 * reads would have left it). QZE_FILE_READ when it comes up short; the
 * outputs are written only when both fields arrived. *size is as stored.
 */
template <class Layout, class Source>
HRESULT read_header(Source& source, typename Layout::Id* id, typename Layout::Size* size) {
    unsigned char bytes[Layout::header_bytes];
    if (!source.read(bytes, sizeof bytes)) return QZE_FILE_READ;
    *id = Layout::load_id(bytes);
    *size = load_size<Layout>(bytes + Layout::id_bytes);
    return S_OK;
}

/* A file header (id, size, form type) as far as it arrived. */
template <class Layout>
struct FileHeader {
    DWORD arrived = 0;  // bytes read
    typename Layout::Id id{};  // each field zero unless all its bytes arrived
    typename Layout::Size size{};
    typename Layout::Id form{};
};

/*
 * Reads a file header in one read from a source that can also copy a
 * shorter read (`bool read_some(void*, DWORD, DWORD* got)`). Which part of
 * a short header decides the outcome is each family's own documented
 * rule, applied to what arrived.
 */
template <class Layout, class Source>
FileHeader<Layout> read_file_header(Source& source) {
    constexpr DWORD kBytes = Layout::header_bytes + Layout::type_bytes;
    unsigned char bytes[kBytes];
    FileHeader<Layout> header;
    if (!source.read_some(bytes, kBytes, &header.arrived)) header.arrived = 0;
    if (header.arrived >= Layout::id_bytes) header.id = Layout::load_id(bytes);
    if (header.arrived >= Layout::header_bytes)
        header.size = load_size<Layout>(bytes + Layout::id_bytes);
    if (header.arrived >= kBytes) header.form = Layout::load_id(bytes + Layout::header_bytes);
    return header;
}

}  // namespace qz::chunks

#endif
