// Small blocks cut from aligned 64 KiB slabs.
#include "platform/posix/slab_pool.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace qz::posix {

namespace {

constexpr uintptr_t kSlabBytes = 64 * 1024;
constexpr size_t kClassStep = 16;

size_t class_of(size_t bytes) {
    return bytes == 0 ? 0 : (bytes - 1) / kClassStep;
}

}  // namespace

uint32_t SlabPool::new_slab(size_t size_class) {
    void* memory = nullptr;
    if (posix_memalign(&memory, kSlabBytes, kSlabBytes) != 0) return kNone;
    const auto object_size = uint32_t((size_class + 1) * kClassStep);
    const uint32_t objects = uint32_t(kSlabBytes / object_size);
    uint32_t index = kNone;
    try {
        std::unique_ptr<uint32_t[]> owners(new uint32_t[objects]);
        if (spare_slabs_.empty()) {
            slabs_.emplace_back();
            // Room for every record on the spare list, so freeing never throws.
            spare_slabs_.reserve(slabs_.capacity());
            index = uint32_t(slabs_.size() - 1);
        } else {
            index = spare_slabs_.back();
            spare_slabs_.pop_back();
        }
        // Every slab of the class may come to have room at once.
        partial_[size_class].reserve(size_t(class_slabs_[size_class]) + 1);
        by_base_.insert(memory, index);
        ++class_slabs_[size_class];
        Slab& slab = slabs_[index];
        slab = Slab{};
        slab.base = static_cast<unsigned char*>(memory);
        slab.object_size = object_size;
        slab.objects = objects;
        slab.owners = std::move(owners);
        slab.partial_at = uint32_t(partial_[size_class].size());
        partial_[size_class].push_back(index);
        return index;
    } catch (const std::bad_alloc&) {
        if (index != kNone && index + 1 == slabs_.size() && !slabs_[index].base)
            slabs_.pop_back();
        else if (index != kNone && !slabs_[index].base)
            spare_slabs_.push_back(index);
        std::free(memory);
        return kNone;
    }
}

void* SlabPool::allocate(size_t bytes, bool zero, uint32_t owner, size_t* capacity,
                         uint32_t* slab_index) {
    const size_t size_class = class_of(bytes);
    std::vector<uint32_t>& room = partial_[size_class];
    const uint32_t index = room.empty() ? new_slab(size_class) : room.back();
    if (index == kNone) return nullptr;
    Slab& slab = slabs_[index];
    uint32_t object = slab.free_head;
    if (object != kNone) {
        std::memcpy(&slab.free_head, slab.base + size_t(object) * slab.object_size,
                    sizeof slab.free_head);
    } else {
        object = slab.fresh++;
    }
    slab.owners[object] = owner;
    if (++slab.used == slab.objects) leave_partial(slab, size_class);
    unsigned char* data = slab.base + size_t(object) * slab.object_size;
    if (zero) std::memset(data, 0, bytes);
    *capacity = slab.object_size;
    *slab_index = index;
    return data;
}

uint32_t SlabPool::find(const void* address) const {
    const uintptr_t at = reinterpret_cast<uintptr_t>(address);
    const uint32_t index = by_base_.find(reinterpret_cast<const void*>(at & ~(kSlabBytes - 1)));
    if (index == kNone) return kNone;
    const Slab& slab = slabs_[index];
    const uintptr_t offset = at & (kSlabBytes - 1);
    if (offset % slab.object_size != 0) return kNone;
    const uintptr_t object = offset / slab.object_size;
    if (object >= slab.fresh) return kNone;
    return slab.owners[object];
}

void SlabPool::release(void* address, uint32_t index) {
    const uintptr_t at = reinterpret_cast<uintptr_t>(address);
    Slab& slab = slabs_[index];
    const auto object = uint32_t((at & (kSlabBytes - 1)) / slab.object_size);
    const size_t size_class = slab.object_size / kClassStep - 1;
    slab.owners[object] = kNone;
    std::memcpy(address, &slab.free_head, sizeof slab.free_head);
    slab.free_head = object;
    if (slab.used-- == slab.objects) {
        // Full until now: it has room again. The list has room for every
        // slab of the class (reserved as each was made).
        slab.partial_at = uint32_t(partial_[size_class].size());
        partial_[size_class].push_back(index);
    }
    // An empty slab goes back unless it is its class's only one with room,
    // so that a block freed and made again does not cost a slab each time.
    if (slab.used == 0 && partial_[size_class].size() > 1) {
        leave_partial(slab, size_class);
        free_slab(index);
    }
}

void SlabPool::leave_partial(Slab& slab, size_t size_class) {
    std::vector<uint32_t>& room = partial_[size_class];
    const uint32_t last = room.back();
    room[slab.partial_at] = last;
    slabs_[last].partial_at = slab.partial_at;
    room.pop_back();
    slab.partial_at = kNone;
}

void SlabPool::free_slab(uint32_t index) {
    Slab& slab = slabs_[index];
    --class_slabs_[slab.object_size / kClassStep - 1];
    by_base_.erase(slab.base);
    std::free(slab.base);
    slab = Slab{};
    spare_slabs_.push_back(index);
}

void SlabPool::clear() {
    for (Slab& slab : slabs_) std::free(slab.base);
    slabs_.clear();
    spare_slabs_.clear();
    for (std::vector<uint32_t>& room : partial_) room.clear();
    for (uint32_t& count : class_slabs_) count = 0;
    by_base_ = AddressIndex();
}

}  // namespace qz::posix
