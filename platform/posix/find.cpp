// Folder listings (FindFirstFileW and friends), file times, free disk space
// and the system description.
#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "platform/posix/files.h"
#include "platform/posix/handles.h"
#include "platform/posix/paths.h"

namespace qz::posix {

namespace {

constexpr int64_t kUnixEpochSeconds = 11'644'473'600;  // 1601 to 1970
constexpr int64_t kTicksPerSecond = 10'000'000;
constexpr DWORD kAllocationGranularity = 64 * 1024;

FILETIME file_time_of(const struct timespec& t) {
    const int64_t ticks =
        (int64_t(t.tv_sec) + kUnixEpochSeconds) * kTicksPerSecond + t.tv_nsec / 100;
    const uint64_t value = ticks < 0 ? 0 : uint64_t(ticks);
    return FILETIME{DWORD(value), DWORD(value >> 32)};
}

/* One listed name with what FindFirstFileW reports of it. */
struct FoundEntry {
    std::u16string name;
    struct stat st;
};

class FindObject : public HandleObject {
public:
    FindObject() : HandleObject(HandleKind::Find) {}
    std::vector<FoundEntry> entries;
    size_t next = 0;
};

/* Case-sensitive match of `name` against a pattern of * and ?. */
bool matches(const std::u16string& pattern, const std::u16string& name) {
    if (pattern == u"*" || pattern == u"*.*") return true;
    size_t p = 0, n = 0, star = std::u16string::npos, resume = 0;
    while (n < name.size()) {
        if (p < pattern.size() && (pattern[p] == u'?' || pattern[p] == name[n])) {
            ++p;
            ++n;
        } else if (p < pattern.size() && pattern[p] == u'*') {
            star = p++;
            resume = n;
        } else if (star != std::u16string::npos) {
            p = star + 1;
            n = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == u'*') ++p;
    return p == pattern.size();
}

bool to_utf16(const std::string& utf8, std::u16string* wide) {
    if (utf8.empty()) return false;
    const int length = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), int(utf8.size()), nullptr, 0);
    if (length <= 0) return false;
    wide->assign(size_t(length), u'\0');
    return MultiByteToWideChar(CP_UTF8, 0, utf8.data(), int(utf8.size()), wide->data(), length) ==
           length;
}

void fill(const FoundEntry& entry, LPWIN32_FIND_DATAW data) {
    *data = WIN32_FIND_DATAW{};
    const struct stat& st = entry.st;
    DWORD attributes = 0;
    if (S_ISDIR(st.st_mode)) attributes |= FILE_ATTRIBUTE_DIRECTORY;
    if (!(st.st_mode & S_IWUSR)) attributes |= FILE_ATTRIBUTE_READONLY;
    data->dwFileAttributes = attributes ? attributes : FILE_ATTRIBUTE_NORMAL;
    data->ftCreationTime = file_time_of(st.st_ctim);
    data->ftLastAccessTime = file_time_of(st.st_atim);
    data->ftLastWriteTime = file_time_of(st.st_mtim);
    if (!S_ISDIR(st.st_mode)) {
        const uint64_t size = uint64_t(st.st_size);
        data->nFileSizeHigh = DWORD(size >> 32);
        data->nFileSizeLow = DWORD(size);
    }
    entry.name.copy(data->cFileName, entry.name.size());
}

}  // namespace

}  // namespace qz::posix

using namespace qz::posix;

QZ_EXTERN_C HANDLE FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
    if (!pattern || !data) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    try {
        const std::u16string full(pattern);
        const size_t cut = full.find_last_of(u"\\/");
        const std::u16string folder = cut == std::u16string::npos ? u"." : full.substr(0, cut + 1);
        const std::u16string name_pattern =
            cut == std::u16string::npos ? full : full.substr(cut + 1);
        std::string native;
        if (!path_to_native(folder.c_str(), &native)) return INVALID_HANDLE_VALUE;
        std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(native.c_str()), ::closedir);
        if (!dir) {
            const int error = errno;
            SetLastError(error == ENOENT || error == ENOTDIR
                             ? ERROR_PATH_NOT_FOUND
                             : path_error_from_errno(error, native));
            return INVALID_HANDLE_VALUE;
        }
        auto find = std::make_shared<FindObject>();
        while (const struct dirent* item = ::readdir(dir.get())) {
            FoundEntry entry;
            if (!to_utf16(item->d_name, &entry.name) || entry.name.size() >= MAX_PATH) continue;
            if (!matches(name_pattern, entry.name)) continue;
            if (::fstatat(::dirfd(dir.get()), item->d_name, &entry.st, 0) != 0) continue;
            find->entries.push_back(std::move(entry));
        }
        if (find->entries.empty()) {
            SetLastError(ERROR_FILE_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
        }
        fill(find->entries[0], data);
        find->next = 1;
        HANDLE handle = register_handle(find);
        if (!handle) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return INVALID_HANDLE_VALUE;
        }
        SetLastError(ERROR_SUCCESS);
        return handle;
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return INVALID_HANDLE_VALUE;
    }
}

QZ_EXTERN_C BOOL FindNextFileW(HANDLE handle, LPWIN32_FIND_DATAW data) {
    HandleRef<FindObject> find = lookup<FindObject>(handle, HandleKind::Find);
    if (!find) return FALSE;
    if (!data) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (find->next >= find->entries.size()) {
        SetLastError(ERROR_NO_MORE_FILES);
        return FALSE;
    }
    fill(find->entries[find->next++], data);
    return TRUE;
}

QZ_EXTERN_C BOOL FindClose(HANDLE handle) {
    {
        HandleRef<FindObject> find = lookup<FindObject>(handle, HandleKind::Find);
        if (!find) return FALSE;
    }
    return unregister_handle(handle) ? TRUE : FALSE;
}

QZ_EXTERN_C BOOL GetFileTime(HANDLE handle, LPFILETIME creation, LPFILETIME last_access,
                             LPFILETIME last_write) {
    HandleRef<FileObject> file = lookup<FileObject>(handle, HandleKind::File);
    if (!file) return FALSE;
    struct stat st;
    if (::fstat(file->fd, &st) != 0) {
        set_last_error_from_errno();
        return FALSE;
    }
    if (creation) *creation = file_time_of(st.st_ctim);
    if (last_access) *last_access = file_time_of(st.st_atim);
    if (last_write) *last_write = file_time_of(st.st_mtim);
    return TRUE;
}

QZ_EXTERN_C BOOL GetDiskFreeSpaceExW(LPCWSTR folder, PULARGE_INTEGER free_to_caller,
                                     PULARGE_INTEGER total, PULARGE_INTEGER total_free) {
    std::string native = ".";
    if (folder && !path_to_native(folder, &native)) return FALSE;
    struct statvfs vfs;
    if (::statvfs(native.c_str(), &vfs) != 0) {
        SetLastError(path_error_from_errno(errno, native));
        return FALSE;
    }
    const ULONGLONG unit = vfs.f_frsize ? vfs.f_frsize : vfs.f_bsize;
    if (free_to_caller) free_to_caller->QuadPart = ULONGLONG(vfs.f_bavail) * unit;
    if (total) total->QuadPart = ULONGLONG(vfs.f_blocks) * unit;
    if (total_free) total_free->QuadPart = ULONGLONG(vfs.f_bfree) * unit;
    return TRUE;
}

QZ_EXTERN_C void GetSystemInfo(LPSYSTEM_INFO info) {
    if (!info) return;
    *info = SYSTEM_INFO{};
    const long page = ::sysconf(_SC_PAGESIZE);
    const long processors = ::sysconf(_SC_NPROCESSORS_ONLN);
    info->dwPageSize = page > 0 ? DWORD(page) : 4096;
    info->dwNumberOfProcessors = processors > 0 ? DWORD(processors) : 1;
    info->dwAllocationGranularity = kAllocationGranularity;
}
