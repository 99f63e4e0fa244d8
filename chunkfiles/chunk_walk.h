/*
 * chunk_walk.h - the chunk walk shared by every chunk-file family.
 *
 * The searches, the group search, the entry count and the entry step are
 * written here once, with their budget rules, over a small source
 * interface and a layout (chunk_layout.h) that describes the format:
 *
 *   riff_*    RiffLayout     over a Win32 file handle (file_source.h)
 *   mriff_*   RiffLayout     over a memory image (mriff_io.h)
 *   riff64_*  Riff64Layout   over a Win32 file handle
 *   iff_*     IffLayout      over a Win32 file handle
 *
 * A source is any type with these four members (see ChunkSource below):
 *
 *     bool read(void* buffer, DWORD count);   // true only when all
 *                                             // `count` bytes arrived
 *     bool skip(int64_t delta);               // relative move; a
 *                                             // memory source clamps
 *     bool tell(uint64_t* position);          // where the next read is
 *     bool seek_to(uint64_t position);        // absolute move back
 *
 * A source moves bytes and knows nothing of any format. It may copy a
 * shorter read and still answer false; the walk then reports QZE_FILE_READ.
 * A failed skip is reported the same way, since the walk can no longer say
 * where the next header is, and so is a skip too long to express as a
 * signed 64-bit move. A memory source whose skip is clamped at the end of
 * its data answers true: the next header read then comes up short, as it
 * would at the end of a file.
 *
 * Sizes handed to and reported by the walk are data sizes: the bytes after
 * the header, which for RIFF and IFF is the stored size and for the 64-bit
 * form the stored size less its 24-byte header (never below 0). Bodies are
 * skipped raised to the layout's alignment, so a reader accepts sizes that
 * count their padding and sizes that do not.
 *
 * The remaining budget is the number of bytes left in the enclosing body
 * from the current position. Every walk takes it as an optional pointer:
 * with one, the walk stops with QZE_NOT_FOUND once less than a header (or,
 * in the group search, the layout's type threshold) remains and updates
 * the count in place; without one, the walk runs until a read comes up
 * short, so a missing chunk ends in QZE_FILE_READ at the end of the data.
 * Callers that must tell a missing chunk from a damaged file pass the
 * budget.
 *
 * The walk never allocates and holds no state between calls; the position
 * of the source is the only state.
 */
#ifndef QZ_CHUNKFILES_CHUNK_WALK_H
#define QZ_CHUNKFILES_CHUNK_WALK_H

#include <concepts>
#include <cstdint>

#include "chunkfiles/chunk_layout.h"

namespace qz::chunks {

template <class S>
concept ChunkSource = requires(S& s, void* buffer, DWORD count, int64_t delta, uint64_t* at,
                               uint64_t to) {
    { s.read(buffer, count) } -> std::same_as<bool>;
    { s.skip(delta) } -> std::same_as<bool>;
    { s.tell(at) } -> std::same_as<bool>;
    { s.seek_to(to) } -> std::same_as<bool>;
};

/* The RIFF vocabulary shared by the file and memory-image families. */
inline constexpr DWORD kRiffId = base::fourcc("RIFF");
inline constexpr DWORD kListId = base::fourcc("LIST");
inline constexpr DWORD kFmtId = base::fourcc("fmt ");
inline constexpr DWORD kChunkHeaderBytes = RiffLayout::header_bytes;
inline constexpr DWORD kListTypeBytes = RiffLayout::type_bytes;
/* "RIFF", size, form type. */
inline constexpr DWORD kFileHeaderBytes = RiffLayout::header_bytes + RiffLayout::type_bytes;

/* One RIFF 32-bit field (an id, a type or a size) to a sink or from a source. */
template <class Sink>
bool write_word(Sink& sink, DWORD value) {
    return write_id<RiffLayout>(sink, value);
}
template <class Source>
bool read_word(Source& source, DWORD* value) {
    return read_id<RiffLayout>(source, value);
}

/* A RIFF body's length on disk: odd sizes carry one pad byte. */
constexpr uint64_t padded(DWORD size) {
    return aligned<RiffLayout>(size);
}

/* The budget after a search's move of `amount` bytes (which may be below 0). */
template <class Layout>
constexpr typename Layout::Budget spend(typename Layout::Budget remaining, int64_t amount) {
    using Budget = typename Layout::Budget;
    if constexpr (Layout::budget_rule == BudgetRule::Signed) {
        Budget left = 0;
        if (__builtin_sub_overflow(remaining, amount, &left))
            return amount > 0 ? INT64_MIN : INT64_MAX;
        return left;
    } else {
        const int64_t left = int64_t(remaining) - amount;
        if (Layout::budget_rule == BudgetRule::Clamp && left < 0) return 0;
        return Budget(uint64_t(left));
    }
}

/* The budget after passing a list entry's bytes: 32-bit budgets wrap here whatever the rule. */
template <class Layout>
constexpr typename Layout::Budget spend_entry(typename Layout::Budget remaining, int64_t amount) {
    if constexpr (Layout::budget_rule == BudgetRule::Signed)
        return spend<Layout>(remaining, amount);
    else
        return typename Layout::Budget(uint64_t(int64_t(remaining) - amount));
}

/* Moves past a body of `data` bytes and its padding. */
template <class Layout, ChunkSource S>
bool skip_body(S& source, uint64_t data, int64_t* moved) {
    const uint64_t body = aligned<Layout>(data);
    if (body > uint64_t(INT64_MAX)) return false;
    *moved = int64_t(body);
    return source.skip(*moved);
}

/*
 * A chunk header for a caller: the id and the data size (each output
 * optional), which for RIFF and IFF is the size field as stored.
 * QZE_FILE_READ on a short read, leaving the outputs alone.
 */
template <class Layout, ChunkSource S>
HRESULT read_chunk_header(S& source, typename Layout::Id* id, typename Layout::Size* size) {
    typename Layout::Id chunk_id{};
    typename Layout::Size chunk_size{};
    const HRESULT hr = read_header<Layout>(source, &chunk_id, &chunk_size);
    if (FAILED(hr)) return hr;
    if (id) *id = chunk_id;
    if (size) *size = typename Layout::Size(data_size<Layout>(chunk_size));
    return S_OK;
}

/*
 * A group header for a caller: the group type and the layout's list_data
 * of the data size (the bytes after the type), each output optional.
 * QZE_NO_LIST_HEADER when the chunk is not the layout's list; QZE_FILE_READ
 * on a short read.
 */
template <class Layout, ChunkSource S>
HRESULT read_list_header(S& source, typename Layout::Id* list_type, typename Layout::Size* size) {
    typename Layout::Id id{};
    typename Layout::Size stored{};
    const HRESULT hr = read_header<Layout>(source, &id, &stored);
    if (FAILED(hr)) return hr;
    if (!(id == Layout::list_id)) return QZE_NO_LIST_HEADER;
    typename Layout::Id type{};
    if (!read_id<Layout>(source, &type)) return QZE_FILE_READ;
    if (list_type) *list_type = type;
    if (size) *size = Layout::list_data(typename Layout::Size(data_size<Layout>(stored)));
    return S_OK;
}

/*
 * Walks sibling chunks from the position until one's id satisfies
 * `wanted(id)`. On success the position is at the first body byte, *id the
 * id found, *size (if given) its data size, and *remaining (if given) the
 * budget after the header: it still counts the found body.
 *
 * QZE_NOT_FOUND when the budget falls below a header (the count reached is
 * stored back); QZE_FILE_READ on a short read or a failed skip (the
 * caller's count is then left as it was).
 */
template <class Layout, ChunkSource S, class Wanted>
HRESULT find_chunk_where(S& source, Wanted wanted, typename Layout::Id* id,
                         typename Layout::Size* size, typename Layout::Budget* remaining) {
    using Budget = typename Layout::Budget;
    Budget left = remaining ? *remaining : 0;
    for (;;) {
        if (remaining && left < Budget(Layout::header_bytes)) {
            *remaining = left;
            return QZE_NOT_FOUND;
        }
        typename Layout::Id chunk_id{};
        typename Layout::Size stored{};
        if (FAILED(read_header<Layout>(source, &chunk_id, &stored))) return QZE_FILE_READ;
        const uint64_t data = data_size<Layout>(stored);
        if (wanted(chunk_id)) {
            *id = chunk_id;
            if (size) *size = typename Layout::Size(data);
            if (remaining) *remaining = spend_entry<Layout>(left, Layout::header_bytes);
            return S_OK;
        }
        int64_t body = 0;
        if (!skip_body<Layout>(source, data, &body)) return QZE_FILE_READ;
        // In two steps: a body near 2^63 plus its header would overflow.
        left = spend<Layout>(spend<Layout>(left, Layout::header_bytes), body);
    }
}

/* find_chunk_where for one id. */
template <class Layout, ChunkSource S>
HRESULT find_chunk(S& source, const typename Layout::Id& id, typename Layout::Size* size,
                   typename Layout::Budget* remaining) {
    typename Layout::Id found{};
    return find_chunk_where<Layout>(
        source, [&id](const typename Layout::Id& chunk_id) { return chunk_id == id; }, &found,
        size, remaining);
}

/*
 * Steps from the first body byte of a chunk found by a search to the next
 * header, taking the body off the budget as the search would have.
 */
template <class Layout, ChunkSource S>
bool pass_found_body(S& source, uint64_t size, typename Layout::Budget* remaining) {
    int64_t body = 0;
    if (!skip_body<Layout>(source, size, &body)) return false;
    if (remaining) *remaining = spend<Layout>(*remaining, body);
    return true;
}

/*
 * Walks the groups among the siblings until one has `list_type`. On
 * success the position is at the group's first sub-chunk, *size (if given)
 * is the layout's list_data of its data size and *remaining the budget
 * after the group type.
 *
 * The budget moves in place as the walk goes: the inner chunk search
 * stores it when it finds a group header, and every type read takes the
 * type's width. QZE_NOT_FOUND when less than the layout's type threshold is
 * left for a type or the chunk search runs out; QZE_FILE_READ on a short
 * read or failed skip.
 */
template <class Layout, ChunkSource S>
HRESULT find_list(S& source, const typename Layout::Id& list_type, typename Layout::Size* size,
                  typename Layout::Budget* remaining) {
    typename Layout::Size data{};
    HRESULT hr = find_chunk<Layout>(source, Layout::list_id, &data, remaining);
    if (FAILED(hr)) return hr;
    for (;;) {
        if (remaining && *remaining < Layout::type_threshold) return QZE_NOT_FOUND;
        typename Layout::Id type{};
        if (!read_id<Layout>(source, &type)) return QZE_FILE_READ;
        if (remaining) *remaining = spend_entry<Layout>(*remaining, Layout::type_bytes);
        if (type == list_type) {
            if (size) *size = Layout::list_data(data);
            return S_OK;
        }
        // A group smaller than its own type field is damaged, but its header
        // still says where it ends; stepping back to that end (a negative
        // move of at most the type's width) keeps the walk on the real next
        // header rather than wrapping into an enormous skip.
        const uint64_t body = aligned<Layout>(uint64_t(data));
        if (body > uint64_t(INT64_MAX)) return QZE_FILE_READ;
        const int64_t rest = int64_t(body) - Layout::type_bytes;
        if (!source.skip(aligned_signed<Layout>(rest))) return QZE_FILE_READ;
        if (remaining) *remaining = spend<Layout>(*remaining, rest);
        hr = find_chunk<Layout>(source, Layout::list_id, &data, remaining);
        if (FAILED(hr)) return hr;
    }
}

/*
 * The searches of a whole file's top level. `rewind(source, &budget)` goes
 * back to the start, reads the family's file header and gives the budget
 * of the top level; its failure is returned as it is. The chunk search
 * then stores the budget it reached in *remaining (optional) unless a read
 * failed.
 */
template <class Layout, ChunkSource S, class Rewind>
HRESULT find_chunk_in_file(S& source, Rewind rewind, const typename Layout::Id& id,
                           typename Layout::Size* size, typename Layout::Budget* remaining) {
    typename Layout::Budget left{};
    HRESULT hr = rewind(source, &left);
    if (FAILED(hr)) return hr;
    hr = find_chunk<Layout>(source, id, size, &left);
    if (remaining && hr != QZE_FILE_READ) *remaining = left;
    return hr;
}
template <class Layout, ChunkSource S, class Rewind>
HRESULT find_list_in_file(S& source, Rewind rewind, const typename Layout::Id& list_type,
                          typename Layout::Size* size) {
    typename Layout::Budget left{};
    const HRESULT hr = rewind(source, &left);
    if (FAILED(hr)) return hr;
    return find_list<Layout>(source, list_type, size, &left);
}

/*
 * Passes one entry of a list: its header (off the budget even when the read
 * comes up short) and its aligned body (off the budget without clamping: a
 * body longer than a 32-bit budget wraps the count, and the walk then runs
 * on to a short read).
 */
template <class Layout, ChunkSource S>
HRESULT pass_entry(S& source, typename Layout::Budget* remaining) {
    if (remaining) *remaining = spend_entry<Layout>(*remaining, Layout::header_bytes);
    typename Layout::Id id{};
    typename Layout::Size stored{};
    if (FAILED(read_header<Layout>(source, &id, &stored))) return QZE_FILE_READ;
    int64_t body = 0;
    if (!skip_body<Layout>(source, data_size<Layout>(stored), &body)) return QZE_FILE_READ;
    if (remaining) *remaining = spend_entry<Layout>(*remaining, body);
    return S_OK;
}

/*
 * Counts the entries from the position and goes back to it. S_OK when the
 * budget runs out; QZE_FILE_READ (with the count so far) at a short read,
 * which is how a walk without a budget always ends. The caller's budget is
 * consumed in place although the position is restored.
 */
template <class Layout, ChunkSource S>
HRESULT count_entries(S& source, DWORD* count, typename Layout::Budget* remaining) {
    using Budget = typename Layout::Budget;
    *count = 0;
    uint64_t start = 0;
    if (!source.tell(&start)) return QZE_FILE_READ;
    HRESULT hr = S_OK;
    while (!remaining || *remaining >= Budget(Layout::header_bytes)) {
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
 * just past the last entry is reached only while a header's worth is left.
 */
template <class Layout, ChunkSource S>
HRESULT seek_entry(S& source, DWORD index, typename Layout::Budget* remaining) {
    using Budget = typename Layout::Budget;
    if (index == 0) return S_OK;
    for (DWORD passed = 0;; ++passed) {
        if (remaining && *remaining < Budget(Layout::header_bytes)) return QZE_NOT_FOUND;
        if (passed == index) return S_OK;
        const HRESULT hr = pass_entry<Layout>(source, remaining);
        if (FAILED(hr)) return hr;
    }
}

}  // namespace qz::chunks

#endif
