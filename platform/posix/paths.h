/*
 * paths.h - turning the layer's UTF-16 paths into operating-system names.
 */
#ifndef QZ_PLATFORM_POSIX_PATHS_H
#define QZ_PLATFORM_POSIX_PATHS_H

#include <string>

#include "platform/posix/win32_internal.h"

namespace qz::posix {

/*
 * The UTF-8 name of a UTF-16 path, with backslashes turned into slashes so
 * that paths joined the Windows way work here too. Fails with the last
 * error set: ERROR_INVALID_PARAMETER for a null path, ERROR_PATH_NOT_FOUND
 * for an empty one, ERROR_INVALID_NAME for a lone surrogate (which has no
 * UTF-8 form), ERROR_NOT_ENOUGH_MEMORY.
 */
bool path_to_native(LPCWSTR path, std::string* native);

/*
 * The Win32 error for a path the system did not find (ENOENT, ENOTDIR):
 * ERROR_FILE_NOT_FOUND when the folder that should hold it exists,
 * ERROR_PATH_NOT_FOUND when the folder itself is missing.
 */
DWORD missing_path_error(const std::string& native);

/* The Win32 error for errno after an operation on `native`. */
DWORD path_error_from_errno(int error, const std::string& native);

}  // namespace qz::posix

#endif
