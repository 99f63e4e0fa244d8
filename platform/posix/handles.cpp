// The registry of live handles and CloseHandle.
#include "platform/posix/handles.h"

#include <cerrno>
#include <mutex>
#include <new>
#include <unordered_map>

namespace qz::posix {

namespace {

struct Registry {
    std::mutex lock;
    std::unordered_map<HANDLE, std::shared_ptr<HandleObject>> objects;
};

Registry& registry() {
    // Never destroyed: handles may still be closed from other destructors
    // while the process exits.
    static Registry* r = new Registry;
    return *r;
}

}  // namespace

HANDLE register_handle(std::shared_ptr<HandleObject> object) {
    HANDLE h = object.get();
    try {
        std::lock_guard<std::mutex> guard(registry().lock);
        registry().objects.emplace(h, std::move(object));
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return h;
}

std::shared_ptr<HandleObject> lookup_handle(HANDLE handle, HandleKind kind) {
    {
        std::lock_guard<std::mutex> guard(registry().lock);
        auto it = registry().objects.find(handle);
        if (it != registry().objects.end() && it->second->kind() == kind) return it->second;
    }
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}

std::shared_ptr<HandleObject> unregister_handle(HANDLE handle) {
    std::lock_guard<std::mutex> guard(registry().lock);
    auto it = registry().objects.find(handle);
    if (it == registry().objects.end()) return nullptr;
    auto object = std::move(it->second);
    registry().objects.erase(it);
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
