// The shared chunk walk under each layout, over a byte vector that behaves
// like a file: a move past the end succeeds and the next read comes up short.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "chunkfiles/chunk_walk.h"

using namespace qz::chunks;

namespace {

struct BytesSource {
    std::vector<unsigned char> bytes;
    int64_t at = 0;

    bool read(void* buffer, DWORD count) {
        const int64_t have = int64_t(bytes.size()) - at;
        const DWORD n = have <= 0 ? 0 : DWORD(std::min<int64_t>(have, count));
        if (n) std::memcpy(buffer, bytes.data() + at, n);
        at += n;
        return n == count;
    }
    bool write(const void* data, DWORD count) {
        const auto* p = static_cast<const unsigned char*>(data);
        bytes.insert(bytes.end(), p, p + count);
        at += count;
        return true;
    }
    bool skip(int64_t delta) {
        if (delta < -at || __builtin_add_overflow(at, delta, &at)) return false;
        return true;
    }
    bool tell(uint64_t* position) {
        *position = uint64_t(at);
        return true;
    }
    bool seek_to(uint64_t position) {
        at = int64_t(position);
        return true;
    }
};

/* A chunk of `data` bytes of 0xAB, padded with zeros to the layout's alignment. */
template <class Layout>
void put_chunk(BytesSource& s, const typename Layout::Id& id, uint64_t data) {
    const uint64_t stored = data + (Layout::size_counts_header ? Layout::header_bytes : 0);
    ASSERT_EQ(write_chunk_header<Layout>(s, id, typename Layout::Size(stored)), S_OK);
    s.bytes.resize(s.bytes.size() + data, 0xAB);
    s.bytes.resize(s.bytes.size() + aligned<Layout>(data) - data, 0);
    s.at = int64_t(s.bytes.size());
}

const GUID kA = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
const GUID kB = {0xB, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

}  // namespace

// The same stream under each layout: an odd-sized chunk, a list holding one
// chunk, a last chunk. Ids are the layout's own; sizes follow its rules.
template <class Layout>
void walk_one_stream(const typename Layout::Id& first, const typename Layout::Id& type,
                     const typename Layout::Id& last) {
    BytesSource s;
    put_chunk<Layout>(s, first, 5);
    const uint64_t inner = Layout::header_bytes + aligned<Layout>(3);
    const uint64_t list_header = Layout::size_counts_header ? Layout::header_bytes : 0;
    ASSERT_EQ(
        write_chunk_header<Layout>(s, Layout::list_id,
                                   typename Layout::Size(list_header + Layout::type_bytes + inner)),
        S_OK);
    ASSERT_TRUE(write_id<Layout>(s, type));
    put_chunk<Layout>(s, first, 3);
    put_chunk<Layout>(s, last, 1);

    s.at = 0;
    DWORD count = 0;
    EXPECT_EQ(count_entries<Layout>(s, &count, nullptr), QZE_FILE_READ);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(s.at, 0);

    typename Layout::Size size{};
    typename Layout::Budget left = typename Layout::Budget(s.bytes.size());
    ASSERT_EQ(find_chunk<Layout>(s, last, &size, &left), S_OK);
    EXPECT_EQ(uint64_t(size), 1u);
    EXPECT_EQ(uint64_t(left), aligned<Layout>(1));
    EXPECT_EQ(uint64_t(s.at), s.bytes.size() - aligned<Layout>(1));

    s.at = 0;
    left = typename Layout::Budget(s.bytes.size());
    ASSERT_EQ(find_list<Layout>(s, type, &size, &left), S_OK);
    EXPECT_EQ(uint64_t(size), inner);
    ASSERT_EQ(seek_entry<Layout>(s, 1, &left), S_OK);
    EXPECT_EQ(uint64_t(s.at), s.bytes.size() - Layout::header_bytes - aligned<Layout>(1));

    s.at = 0;
    left = typename Layout::Budget(Layout::header_bytes - 1);
    EXPECT_EQ(find_chunk<Layout>(s, last, &size, &left), QZE_NOT_FOUND);
    EXPECT_EQ(s.at, 0);
}

TEST(ChunkWalk, EachLayoutWalksTheSameStream) {
    walk_one_stream<RiffLayout>(qz::base::fourcc("abcd"), qz::base::fourcc("INFO"),
                                qz::base::fourcc("last"));
    walk_one_stream<IffLayout>(qz::base::fourcc_be("COMM"), qz::base::fourcc_be("AIFF"),
                               qz::base::fourcc_be("SSND"));
    walk_one_stream<Riff64Layout>(kA, kB, kRiff64FileLabel);
}

// A RIFF search whose skipped body claims more than the budget holds
// leaves 0, not a wrapped count (the other layouts' rules have their own suites).
TEST(ChunkWalk, AnOverrunRiffBudgetClampsAtZero) {
    BytesSource riff;
    put_chunk<RiffLayout>(riff, 1, 100);
    riff.at = 0;
    DWORD left = 50;
    EXPECT_EQ(find_chunk<RiffLayout>(riff, 2, nullptr, &left), QZE_NOT_FOUND);
    EXPECT_EQ(left, 0u);
    // A signed budget saturates rather than wraps; a size near 2^64 is not raised past it.
    EXPECT_EQ(spend<Riff64Layout>(INT64_MIN + 5, 10), INT64_MIN);
    EXPECT_EQ(aligned<Riff64Layout>(~0ull - 3), ~0ull - 3);
}
