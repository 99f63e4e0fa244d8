// tQZLIST: selection sort, heap sort and sorted insertion into another list.
#include <array>
#include <cstring>

#include "kernel/list_internal.h"

namespace qz::list {

namespace {

// Swaps two items word by word (item sizes are multiples of 4).
void swap_items(tQZLIST* list, std::int64_t a, std::int64_t b) {
    BYTE* x = slot_address(list, a);
    BYTE* y = slot_address(list, b);
    for (DWORD offset = 0; offset < list->item_size; offset += 4) {
        DWORD wx, wy;
        std::memcpy(&wx, x + offset, 4);
        std::memcpy(&wy, y + offset, 4);
        std::memcpy(x + offset, &wy, 4);
        std::memcpy(y + offset, &wx, 4);
    }
}

// Heap sort over slots that can be held in a local: pointers, or value
// items of a fixed word count. Items are read and written with memcpy so
// the slot block needs no particular alignment. The sift moves a hole down
// to a leaf along the larger children and then lets the displaced item
// rise, which needs about half the comparisons of a sift that compares the
// item at every level.
template <class Slot, bool kByValue>
class SlotHeap {
public:
    SlotHeap(tQZLIST* list, LONG_PTR criteria, QZLISTCOMPARE compare)
        : base_(static_cast<BYTE*>(list->items)), criteria_(criteria), compare_(compare) {}

    void sort(std::ptrdiff_t n) {
        for (std::ptrdiff_t parent = (n - 2) / 2; parent >= 0; --parent)
            adjust(parent, n, load(parent));
        for (std::ptrdiff_t last = n - 1; last > 0; --last) {
            const Slot value = load(last);
            store(last, load(0));
            adjust(0, last, value);
        }
    }

private:
    Slot load(std::ptrdiff_t i) const {
        Slot s;
        std::memcpy(&s, base_ + i * std::ptrdiff_t(sizeof(Slot)), sizeof(Slot));
        return s;
    }
    void store(std::ptrdiff_t i, const Slot& s) {
        std::memcpy(base_ + i * std::ptrdiff_t(sizeof(Slot)), &s, sizeof(Slot));
    }
    const void* argument(const Slot& s) const {
        if constexpr (kByValue)
            return &s;
        else
            return s;
    }
    bool less(const Slot& a, const Slot& b) const {
        return compare_(criteria_, argument(a), argument(b)) < 0;
    }

    void adjust(std::ptrdiff_t hole, std::ptrdiff_t n, Slot value) {
        const std::ptrdiff_t top = hole;
        std::ptrdiff_t child = hole;
        while (child < (n - 1) / 2) {
            child = 2 * (child + 1);
            Slot right = load(child);
            Slot left = load(child - 1);
            if (less(right, left)) {
                --child;
                right = left;
            }
            store(hole, right);
            hole = child;
        }
        if ((n & 1) == 0 && child == (n - 2) / 2) {
            child = 2 * (child + 1);
            store(hole, load(child - 1));
            hole = child - 1;
        }
        std::ptrdiff_t parent = (hole - 1) / 2;
        while (hole > top) {
            const Slot p = load(parent);
            if (!less(p, value)) break;
            store(hole, p);
            hole = parent;
            parent = (hole - 1) / 2;
        }
        store(hole, value);
    }

    BYTE* base_;
    LONG_PTR criteria_;
    QZLISTCOMPARE compare_;
};

// Heap sort of value items of any size: the classic sift-down with swaps.
void heap_sort_any_size(tQZLIST* list, LONG_PTR criteria, QZLISTCOMPARE compare) {
    auto greater = [&](std::int64_t a, std::int64_t b) {
        return compare(criteria, item_argument(list, a), item_argument(list, b)) > 0;
    };
    auto sift_down = [&](std::int64_t root, std::int64_t n) {
        for (;;) {
            std::int64_t child = 2 * root + 1;
            if (child >= n) return;
            if (child + 1 < n && greater(child + 1, child)) ++child;
            if (!greater(child, root)) return;
            swap_items(list, root, child);
            root = child;
        }
    };
    const std::int64_t n = list->count;
    for (std::int64_t root = n / 2 - 1; root >= 0; --root) sift_down(root, n);
    for (std::int64_t last = n - 1; last > 0; --last) {
        swap_items(list, 0, last);
        sift_down(0, last);
    }
}

template <size_t kWords>
using Words = std::array<DWORD, kWords>;

}  // namespace

}  // namespace qz::list

using namespace qz::list;

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_Sort(tQZLIST* list, LONG_PTR criteria,
                                                  QZLISTCOMPARE compare) {
    Entry entry(list);
    if (!entry.ok()) return entry.refusal();
    if (!compare || list->count < 2) return S_OK;
    for (std::int64_t hi = list->count - 1; hi > 0; --hi) {
        // Only a strictly greater candidate replaces the maximum, so the
        // earliest of equal maxima wins and an equal last item stays put.
        std::int64_t max = 0;
        for (std::int64_t i = 1; i <= hi; ++i)
            if (compare(criteria, item_argument(list, i), item_argument(list, max)) > 0) max = i;
        if (max != hi) swap_items(list, max, hi);
    }
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_HeapSort(tQZLIST* list, LONG_PTR criteria,
                                                      QZLISTCOMPARE compare) {
    Entry entry(list);
    if (!entry.ok()) return entry.refusal();
    list->sort_criteria = criteria;
    if (!compare || list->count < 2) return S_OK;
    const std::ptrdiff_t n = list->count;
    if (!is_value_list(list)) {
        SlotHeap<void*, false>(list, criteria, compare).sort(n);
        return S_OK;
    }
    switch (list->item_size) {
        case 4:
            SlotHeap<Words<1>, true>(list, criteria, compare).sort(n);
            break;
        case 8:
            SlotHeap<Words<2>, true>(list, criteria, compare).sort(n);
            break;
        case 12:
            SlotHeap<Words<3>, true>(list, criteria, compare).sort(n);
            break;
        case 16:
            SlotHeap<Words<4>, true>(list, criteria, compare).sort(n);
            break;
        default:
            heap_sort_any_size(list, criteria, compare);
            break;
    }
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_SortTo(tQZLIST* destination, tQZLIST* source,
                                                    LONG_PTR criteria, QZLISTCOMPARE compare) {
    // Both lists stay locked throughout: the destination takes its criteria
    // and every item with no other writer in between.
    PairEntry entry(source, destination);
    if (!entry.ok()) return entry.refusal();
    if (destination == source) return E_INVALIDARG;
    destination->sort_criteria = criteria;
    if (!compare) return S_OK;
    // Items are copied as they are: both lists must hold the same kind and
    // size of item, and the destination must not take blocks it would free.
    if (is_value_list(destination) != is_value_list(source) ||
        destination->item_size != source->item_size || owns_items(destination))
        return E_FAIL;
    for (LONG i = 0; i < source->count; ++i) {
        const void* key = item_argument(source, i);
        const int at = QzList_FindSortedInsertIndexRange(destination, key, 0, -1, compare);
        if (at < 0) return E_FAIL;
        const HRESULT hr = QzList_InsertList(destination, at, slot_address(source, i), 1);
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}
