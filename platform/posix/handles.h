/*
 * handles.h - the objects behind POSIX handles.
 *
 * A HANDLE of this layer is the address of a HandleObject. Every live
 * object is recorded in one registry, and every use of a handle looks it up
 * there first, so an invalid, foreign or already-closed handle is refused
 * with ERROR_INVALID_HANDLE instead of being dereferenced. Lookups hand out
 * shared ownership, so a handle closed by one thread while another is in a
 * call stays valid until that call returns.
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

/* The live object of `kind` behind `handle`, or null with ERROR_INVALID_HANDLE set. */
std::shared_ptr<HandleObject> lookup_handle(HANDLE handle, HandleKind kind);

template <class T>
std::shared_ptr<T> lookup(HANDLE handle, HandleKind kind) {
    return std::static_pointer_cast<T>(lookup_handle(handle, kind));
}

/* Removes the handle from the registry; the object goes when its last user does. */
std::shared_ptr<HandleObject> unregister_handle(HANDLE handle);

/* Win32 error number for an errno value. */
DWORD win32_error_from_errno(int error);
/* Sets the last error from errno and returns it. */
DWORD set_last_error_from_errno();

}  // namespace qz::posix

#endif
