// The registry of live handles and CloseHandle.
#include "platform/posix/handles.h"

#include <cerrno>
#include <mutex>
#include <new>
#include <atomic>
#include <vector>

namespace qz::posix {

/*
 * One entry of the handle table. `state` packs, from the low bits up, the
 * count of lookups in progress (32 bits), a live bit, and the slot's
 * generation; `object` is written only while the slot is unused by any
 * lookup (by the registrar before the live bit is published, and by
 * whoever frees the slot after the last use).
 */
struct HandleSlot {
    std::atomic<uint64_t> state{0};
    std::shared_ptr<HandleObject> object;
    uint32_t index = 0;
};

namespace {

constexpr uint64_t kUserMask = 0xFFFFFFFFull;
constexpr uint64_t kLive = 1ull << 32;
constexpr int kGenerationShift = 33;

uint64_t users(uint64_t state) { return state & kUserMask; }
uint32_t generation(uint64_t state) { return uint32_t(state >> kGenerationShift); }

/*
 * A handle value: bits 0-1 zero, then the slot index plus one, then as
 * many bits of the generation as the pointer has room for.
 */
constexpr int kIndexBits = 20;
constexpr uint32_t kIndexLimit = (1u << kIndexBits) - 1;
constexpr int kHandleGenerationBits = int(sizeof(void*) * 8) - 2 - kIndexBits;
constexpr uint32_t kHandleGenerationMask =
    kHandleGenerationBits >= 32 ? 0xFFFFFFFFu : (1u << kHandleGenerationBits) - 1;

constexpr uint32_t kSegmentSlots = 1024;
constexpr uint32_t kSegments = (kIndexLimit + kSegmentSlots - 1) / kSegmentSlots;

HANDLE make_handle(uint32_t index, uint32_t generation) {
    const uintptr_t value = (uintptr_t(generation & kHandleGenerationMask) << kIndexBits) |
                            uintptr_t(index + 1);
    return reinterpret_cast<HANDLE>(value << 2);
}

struct Table {
    // Segments are added, never removed, so a lookup may read them freely.
    std::atomic<HandleSlot*> segments[kSegments] = {};
    std::mutex lock;  // guards the free list and the growth
    std::vector<uint32_t> free_slots;
    uint32_t used = 0;  // slots handed out at least once
};

Table& table() {
    // Never destroyed: handles may still be closed from other destructors
    // while the process exits.
    static Table* t = new Table;
    return *t;
}

HandleSlot* slot_at(uint32_t index) {
    HandleSlot* segment =
        table().segments[index / kSegmentSlots].load(std::memory_order_acquire);
    return segment ? &segment[index % kSegmentSlots] : nullptr;
}

/* The slot a handle value names, whatever its state, or null. */
HandleSlot* slot_of(HANDLE handle, uint32_t* handle_generation) {
    const uintptr_t value = reinterpret_cast<uintptr_t>(handle);
    if (value & 3) return nullptr;  // INVALID_HANDLE_VALUE among others
    const uintptr_t index_plus_one = (value >> 2) & kIndexLimit;
    if (index_plus_one == 0) return nullptr;
    *handle_generation = uint32_t((value >> 2) >> kIndexBits);
    return slot_at(uint32_t(index_plus_one - 1));
}

/* A slot not in use, its generation unchanged; null when the table is full. */
HandleSlot* claim_slot() {
    Table& t = table();
    std::lock_guard<std::mutex> guard(t.lock);
    if (!t.free_slots.empty()) {
        const uint32_t index = t.free_slots.back();
        t.free_slots.pop_back();
        return slot_at(index);
    }
    if (t.used == kIndexLimit) return nullptr;
    const uint32_t index = t.used;
    std::atomic<HandleSlot*>& segment = t.segments[index / kSegmentSlots];
    if (!segment.load(std::memory_order_relaxed)) {
        auto* slots = new HandleSlot[kSegmentSlots];
        for (uint32_t i = 0; i < kSegmentSlots; ++i) slots[i].index = index + i;
        segment.store(slots, std::memory_order_release);
    }
    // Reserve room now, so that freeing a slot later never allocates.
    t.free_slots.reserve(index + 1);
    ++t.used;
    return slot_at(index);
}

/* The last use of a closed slot: drop the object and free the slot. */
void free_slot(HandleSlot* slot) {
    slot->object.reset();
    const uint64_t next = uint64_t(generation(slot->state.load(std::memory_order_relaxed)) + 1)
                          << kGenerationShift;
    slot->state.store(next, std::memory_order_release);
    std::lock_guard<std::mutex> guard(table().lock);
    table().free_slots.push_back(slot->index);
}

bool same_generation(uint64_t state, uint32_t handle_generation) {
    return (generation(state) & kHandleGenerationMask) == handle_generation;
}

/* Counts one more use of a live slot of this generation. */
bool enter_slot(HandleSlot* slot, uint32_t handle_generation) {
    uint64_t state = slot->state.load(std::memory_order_acquire);
    for (;;) {
        if (!(state & kLive) || !same_generation(state, handle_generation)) return false;
        if (slot->state.compare_exchange_weak(state, state + 1, std::memory_order_acquire,
                                              std::memory_order_acquire)) {
            return true;
        }
    }
}

}  // namespace

void release_slot(HandleSlot* slot) {
    const uint64_t before = slot->state.fetch_sub(1, std::memory_order_acq_rel);
    if (users(before) == 1 && !(before & kLive)) free_slot(slot);
}

HANDLE register_handle(std::shared_ptr<HandleObject> object) {
    HandleSlot* slot = nullptr;
    try {
        slot = claim_slot();
    } catch (const std::bad_alloc&) {
    }
    if (!slot) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    slot->object = std::move(object);
    const uint32_t gen = generation(slot->state.load(std::memory_order_relaxed));
    slot->state.store((uint64_t(gen) << kGenerationShift) | kLive, std::memory_order_release);
    return make_handle(slot->index, gen);
}

HandleSlot* use_slot(HANDLE handle, HandleKind kind, HandleObject** object) {
    uint32_t handle_generation = 0;
    HandleSlot* slot = slot_of(handle, &handle_generation);
    if (slot && enter_slot(slot, handle_generation)) {
        if (slot->object->kind() == kind) {
            *object = slot->object.get();
            return slot;
        }
        release_slot(slot);
    }
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}

std::shared_ptr<HandleObject> unregister_handle(HANDLE handle) {
    uint32_t handle_generation = 0;
    HandleSlot* slot = slot_of(handle, &handle_generation);
    if (!slot || !enter_slot(slot, handle_generation)) return nullptr;
    // Counted as a user, the object cannot be freed under us; of two
    // threads closing one handle, the one that clears the live bit wins.
    std::shared_ptr<HandleObject> object = slot->object;
    const uint64_t before = slot->state.fetch_and(~kLive, std::memory_order_acq_rel);
    release_slot(slot);
    if (!(before & kLive)) return nullptr;
    return object;
}

DWORD win32_error_from_errno(int error) {
    switch (error) {
        case 0:
            return ERROR_SUCCESS;
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case ENOTDIR:
            return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EISDIR:
            return ERROR_ACCESS_DENIED;
        case EBADF:
            return ERROR_INVALID_HANDLE;
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case EEXIST:
            return ERROR_FILE_EXISTS;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return ERROR_DISK_FULL;
        case EMFILE:
        case ENFILE:
            return ERROR_TOO_MANY_OPEN_FILES;
        case EINVAL:
            return ERROR_INVALID_PARAMETER;
        case ENAMETOOLONG:
            return ERROR_FILENAME_EXCED_RANGE;
        case EROFS:
            return ERROR_WRITE_PROTECT;
        case EBUSY:
        case ETXTBSY:
            return ERROR_BUSY;
        case EXDEV:
            return ERROR_NOT_SAME_DEVICE;
        case ENOTEMPTY:
            return ERROR_DIR_NOT_EMPTY;
        case EIO:
            return ERROR_GEN_FAILURE;
        case EPIPE:
            return ERROR_BROKEN_PIPE;
        case ESPIPE:
            return ERROR_SEEK;
        case EFAULT:
            return ERROR_NOACCESS;
        case ELOOP:
            return ERROR_INVALID_NAME;
        default:
            return ERROR_GEN_FAILURE;
    }
}

DWORD set_last_error_from_errno() {
    const DWORD e = win32_error_from_errno(errno);
    SetLastError(e);
    return e;
}

}  // namespace qz::posix

using namespace qz::posix;

QZ_EXTERN_C BOOL CloseHandle(HANDLE handle) {
    std::shared_ptr<HandleObject> object = unregister_handle(handle);
    if (!object) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return object->close() ? TRUE : FALSE;
}
