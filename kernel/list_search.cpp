// tQZLIST: identity, linear and sorted searches over a range of items.
#include <cstring>

#include "kernel/list_internal.h"

namespace qz::list {

namespace {

// A search range clamped to the items: start below 0 counts as 0, a
// negative or too large count runs to the end. `empty` when no item is in
// it; `past_end` when start lies beyond the items.
struct Range {
    int first = 0;
    int count = 0;
    bool past_end = false;
};

Range clamp_range(const tQZLIST* list, int start, int count) {
    Range range;
    range.first = start < 0 ? 0 : start;
    if (range.first > list->count) {
        range.past_end = true;
        return range;
    }
    const int left = list->count - range.first;
    range.count = (count < 0 || count > left) ? left : count;
    return range;
}

enum class Bisection { InsertIndex, EqualItem };

// Bisection over items lo .. lo + num - 1, in the manner of the C library's
// bsearch: probe the middle (the lower middle for an even count), answer an
// equal item at once, else keep the half the key belongs in. For an insert
// index, the answer is the first position whose item the key is not
// greater than among those probed.
int bisect(const tQZLIST* list, const void* key, int lo, int num, QZLISTCOMPARE compare,
           Bisection want) {
    const LONG_PTR criteria = list->sort_criteria;
    int hi = lo + num - 1;
    int answer = lo;
    while (lo <= hi) {
        const int half = num / 2;
        if (half == 0) {
            const int c = compare(criteria, key, item_argument(list, lo));
            if (want == Bisection::EqualItem) return c == 0 ? lo : -1;
            return c > 0 ? lo + 1 : lo;
        }
        const int mid = (num & 1) ? lo + half : lo + half - 1;
        const int c = compare(criteria, key, item_argument(list, mid));
        if (c == 0) return mid;
        if (c < 0) {
            hi = mid - 1;
            num = (num & 1) ? half : half - 1;
        } else {
            lo = mid + 1;
            answer = mid + 1;
            num = half;
        }
    }
    return want == Bisection::EqualItem ? -1 : answer;
}

}  // namespace

}  // namespace qz::list

using namespace qz::list;

QZ_EXTERN_C QZ_API int QZ_STDCALL QzList_FindSpecificItemRange(tQZLIST* list, int start, int count,
                                                               const void* item) {
    Entry entry(list);
    if (!entry.ok()) return -1;
    const Range range = clamp_range(list, start, count);
    const int end = range.first + range.count;
    if (is_value_list(list)) {
        if (!item) return -1;
        for (int i = range.first; i < end; ++i)
            if (std::memcmp(slot_address(list, i), item, list->item_size) == 0) return i;
        return -1;
    }
    void* const* slots = static_cast<void* const*>(list->items);
    for (int i = range.first; i < end; ++i)
        if (slots[i] == item) return i;
    return -1;
}

QZ_EXTERN_C QZ_API int QZ_STDCALL QzList_FindItemRange(tQZLIST* list, const void* key, int start,
                                                       int count, QZLISTCOMPARE compare) {
    Entry entry(list);
    if (!entry.ok() || !compare) return -1;
    const Range range = clamp_range(list, start, count);
    for (int i = range.first; i < range.first + range.count; ++i)
        if (compare(list->sort_criteria, key, item_argument(list, i)) == 0) return i;
    return -1;
}

QZ_EXTERN_C QZ_API int QZ_STDCALL QzList_FindSortedItemRange(tQZLIST* list, const void* key,
                                                             int start, int count,
                                                             QZLISTCOMPARE compare) {
    Entry entry(list);
    if (!entry.ok() || !compare) return -1;
    const Range range = clamp_range(list, start, count);
    if (range.count == 0) return -1;
    return bisect(list, key, range.first, range.count, compare, Bisection::EqualItem);
}

QZ_EXTERN_C QZ_API int QZ_STDCALL QzList_FindSortedInsertIndexRange(tQZLIST* list, const void* key,
                                                                    int start, int count,
                                                                    QZLISTCOMPARE compare) {
    Entry entry(list);
    if (!entry.ok() || !compare) return -1;
    const Range range = clamp_range(list, start, count);
    if (range.past_end) return -1;
    // An empty range answers 0 rather than its start: callers that search
    // the whole of an empty list insert at the front.
    if (range.count == 0) return 0;
    return bisect(list, key, range.first, range.count, compare, Bisection::InsertIndex);
}
