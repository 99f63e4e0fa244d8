/*
 * handles.h - the objects behind POSIX handles.
 *
 * A HANDLE of this layer names a slot of one process-wide table: the slot's
 * index and the generation the slot had when the handle was made, packed
 * into a multiple of 4 (as Windows handles are). Every use of a handle
 * looks it up there first, so an invalid, foreign or already-closed handle
 * is refused with ERROR_INVALID_HANDLE instead of being dereferenced; a
 * slot reused by a later handle has moved on to the next generation, so a
 * stale handle does not reach the new object.
 *
 * Lookups take no lock: a HandleRef counts itself among the slot's users
 * for as long as it lives, so a handle closed by one thread while another
 * is in a call stays valid until that call returns, and the slot is freed
 * by whichever of them finishes last.
 */
#ifndef QZ_PLATFORM_POSIX_HANDLES_H
#define QZ_PLATFORM_POSIX_HANDLES_H

#include <memory>

#include "platform/posix/win32_internal.h"

namespace qz::posix {

enum class HandleKind : uint32_t {
    File = 0x454C4946,    /* "FILE" */
    Mapping = 0x5050414D, /* "MAPP" */
    Event = 0x544E5645,   /* "EVNT" */
    Find = 0x444E4946,    /* "FIND" */
    Heap = 0x50414548,    /* "HEAP" */
};

class HandleObject {
public:
    explicit HandleObject(HandleKind kind) : kind_(kind) {}
    virtual ~HandleObject() = default;
    HandleObject(const HandleObject&) = delete;
    HandleObject& operator=(const HandleObject&) = delete;

    HandleKind kind() const { return kind_; }
    /* Called once when the handle is closed; false sets no error itself. */
    virtual bool close() { return true; }

private:
    HandleKind kind_;
};

/* Records the object and returns its handle (null when out of memory). */
HANDLE register_handle(std::shared_ptr<HandleObject> object);

struct HandleSlot;

/* Ends one use of a slot taken by a lookup. */
void release_slot(HandleSlot* slot);

/*
 * A counted use of the object behind a handle, released when it goes.
 * Objects that live outside the table (the process heap) are referred to
 * with no slot and need no release.
 */
template <class T>
class HandleRef {
public:
    HandleRef() = default;
    HandleRef(HandleSlot* slot, T* object) : slot_(slot), object_(object) {}
    HandleRef(HandleRef&& other) noexcept : slot_(other.slot_), object_(other.object_) {
        other.slot_ = nullptr;
        other.object_ = nullptr;
    }
    HandleRef& operator=(HandleRef&& other) noexcept {
        if (this != &other) {
            reset();
            slot_ = other.slot_;
            object_ = other.object_;
            other.slot_ = nullptr;
            other.object_ = nullptr;
        }
        return *this;
    }
    HandleRef(const HandleRef&) = delete;
    HandleRef& operator=(const HandleRef&) = delete;
    ~HandleRef() { reset(); }

    T* get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }

private:
    void reset() {
        if (slot_) release_slot(slot_);
        slot_ = nullptr;
        object_ = nullptr;
    }

    HandleSlot* slot_ = nullptr;
    T* object_ = nullptr;
};

/*
 * Takes one use of the slot of a live object of `kind` behind `handle` and
 * stores the object; null with ERROR_INVALID_HANDLE set when there is none.
 */
HandleSlot* use_slot(HANDLE handle, HandleKind kind, HandleObject** object);

/* The live object of `kind` behind `handle`, or null with ERROR_INVALID_HANDLE set. */
template <class T>
HandleRef<T> lookup(HANDLE handle, HandleKind kind) {
    HandleObject* object = nullptr;
    HandleSlot* slot = use_slot(handle, kind, &object);
    return slot ? HandleRef<T>(slot, static_cast<T*>(object)) : HandleRef<T>();
}

/* Removes the handle from the registry; the object goes when its last user does. */
std::shared_ptr<HandleObject> unregister_handle(HANDLE handle);

/* Win32 error number for an errno value. */
DWORD win32_error_from_errno(int error);
/* Sets the last error from errno and returns it. */
DWORD set_last_error_from_errno();

}  // namespace qz::posix

#endif
