// UTF-16 paths to UTF-8 names, and the errors of missing paths.
#include "platform/posix/paths.h"

#include <sys/stat.h>

#include <cerrno>
#include <new>

#include "platform/posix/codepage.h"
#include "platform/posix/handles.h"

namespace qz::posix {

bool path_to_native(LPCWSTR path, std::string* native) {
    if (path == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    size_t length = 0;
    while (path[length] != 0) ++length;
    if (length == 0) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return false;
    }
    try {
        native->clear();
        if (!utf16_to_utf8(path, length, native)) {
            SetLastError(ERROR_INVALID_NAME);
            return false;
        }
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return false;
    }
    for (char& c : *native) {
        if (c == '\\') c = '/';
    }
    return true;
}

DWORD missing_path_error(const std::string& native) {
    // Trailing slashes belong to the last name, not to its folder.
    size_t end = native.size();
    while (end > 1 && native[end - 1] == '/') --end;
    const size_t slash = native.rfind('/', end - 1);
    if (slash == std::string::npos) return ERROR_FILE_NOT_FOUND;  // in the current folder
    const std::string folder = slash == 0 ? std::string("/") : native.substr(0, slash);
    struct stat st;
    if (::stat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return ERROR_FILE_NOT_FOUND;
    return ERROR_PATH_NOT_FOUND;
}

DWORD path_error_from_errno(int error, const std::string& native) {
    if (error == ENOENT || error == ENOTDIR) {
        try {
            return missing_path_error(native);
        } catch (const std::bad_alloc&) {
            return ERROR_NOT_ENOUGH_MEMORY;
        }
    }
    return win32_error_from_errno(error);
}

}  // namespace qz::posix
