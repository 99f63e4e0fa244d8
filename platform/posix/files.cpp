// File handles: CreateFileW, ReadFile, WriteFile, file pointers and sizes,
// and the path functions (attributes, delete, move, folders).
#include "platform/posix/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <map>
#include <mutex>
#include <new>
#include <vector>

#include "platform/posix/fault_plan.h"
#include "platform/posix/paths.h"

namespace qz::posix {

namespace {

using qz::testing::FaultOp;

/* One open handle of a file, as the share-mode check sees it. */
struct OpenEntry {
    const FileObject* owner;
    DWORD access;
    DWORD share;
};

struct FileNode {
    std::vector<OpenEntry> opens;
    unsigned mappings = 0;
};

struct OpenFiles {
    std::mutex lock;
    std::map<FileIdentity, FileNode> nodes;
};

OpenFiles& open_files() {
    // Never destroyed, like the handle registry: handles may be closed by
    // other static destructors at exit.
    static OpenFiles* table = new OpenFiles;
    return *table;
}

/*
 * A new handle conflicts with an open one when either refuses to share
 * what the other wants to do, exactly as Windows checks share access. A
 * handle opened without any access (to query the file) takes no part.
 */
bool conflicts(const FileNode& node, DWORD access, DWORD share) {
    if (access == 0) return false;
    for (const OpenEntry& open : node.opens) {
        if (open.access == 0) continue;
        if ((access & kAccessRead) && !(open.share & FILE_SHARE_READ)) return true;
        if ((access & kAccessWrite) && !(open.share & FILE_SHARE_WRITE)) return true;
        if ((open.access & kAccessRead) && !(share & FILE_SHARE_READ)) return true;
        if ((open.access & kAccessWrite) && !(share & FILE_SHARE_WRITE)) return true;
    }
    return false;
}

/* True when an open handle forbids removing or renaming the file. */
bool refuses_delete(const FileNode& node) {
    for (const OpenEntry& open : node.opens) {
        if (open.access != 0 && !(open.share & FILE_SHARE_DELETE)) return true;
    }
    return false;
}

/* Drops the node when nothing uses the file any more. The table lock is held. */
void release_node_if_unused(std::map<FileIdentity, FileNode>::iterator it) {
    const FileNode& node = it->second;
    if (node.opens.empty() && node.mappings == 0) open_files().nodes.erase(it);
}

DWORD access_rights(DWORD access) {
    DWORD rights = 0;
    if (access & (GENERIC_READ | GENERIC_EXECUTE | GENERIC_ALL)) rights |= kAccessRead;
    if (access & (GENERIC_WRITE | GENERIC_ALL)) rights |= kAccessWrite;
    if (access & FILE_READ_DATA) rights |= kAccessRead;
    if (access & FILE_WRITE_DATA) rights |= kAccessWrite;
    // The right to append alone: Windows ignores the file pointer of such a
    // handle's writes and puts each at the end of the file.
    if ((access & FILE_APPEND_DATA) && !(rights & kAccessWrite))
        rights |= kAccessWrite | kAccessAppend;
    return rights;
}

int open_flags(DWORD rights, DWORD flags) {
    // Opening a FIFO blocks until its other end is opened too; CreateFileW
    // never waits like that. Non-blocking mode is dropped again once open.
    int oflags = O_CLOEXEC | O_NONBLOCK;
    const bool read = rights & kAccessRead;
    const bool write = rights & kAccessWrite;
    oflags |= read && write ? O_RDWR : write ? O_WRONLY : O_RDONLY;
    if (flags & FILE_FLAG_WRITE_THROUGH) oflags |= O_DSYNC;
    if (rights & kAccessAppend) oflags |= O_APPEND;
    return oflags;
}

bool clear_non_blocking(int fd) {
    const int status = ::fcntl(fd, F_GETFL);
    return status >= 0 && ::fcntl(fd, F_SETFL, status & ~O_NONBLOCK) == 0;
}

struct Opened {
    int fd = -1;
    bool existed = false;
    int error = 0;
};

/* Opens or creates the file as the disposition says; truncation comes later. */
Opened open_by_disposition(const std::string& path, int oflags, mode_t mode, DWORD disposition) {
    Opened result;
    switch (disposition) {
        case CREATE_NEW:
            result.fd = ::open(path.c_str(), oflags | O_CREAT | O_EXCL, mode);
            break;
        case OPEN_EXISTING:
        case TRUNCATE_EXISTING:
            result.fd = ::open(path.c_str(), oflags);
            result.existed = true;
            break;
        default:
            // CREATE_ALWAYS and OPEN_ALWAYS must tell whether the file was
            // there: open it, else create it exclusively, and go round again
            // if another process created or removed it in between.
            for (int attempt = 0; attempt < 16; ++attempt) {
                result.fd = ::open(path.c_str(), oflags);
                result.existed = true;
                if (result.fd >= 0 || errno != ENOENT) break;
                result.fd = ::open(path.c_str(), oflags | O_CREAT | O_EXCL, mode);
                result.existed = false;
                if (result.fd >= 0 || errno != EEXIST) break;
            }
            break;
    }
    if (result.fd < 0) result.error = errno;
    return result;
}

/* Cuts a file that was opened without write access (CREATE_ALWAYS on an existing file). */
int truncate_to_zero(int fd, DWORD rights, const std::string& path) {
    const int rc = (rights & kAccessWrite) ? ::ftruncate(fd, 0) : ::truncate(path.c_str(), 0);
    return rc == 0 ? 0 : errno;
}

HANDLE fail_open(int fd, DWORD error) {
    if (fd >= 0) ::close(fd);
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
}

/* Opens, checks share modes and records the handle, all under the table lock. */
HANDLE open_file(const std::string& path, DWORD rights, DWORD share, DWORD disposition,
                 DWORD flags) {
    const mode_t mode = (flags & FILE_ATTRIBUTE_READONLY) ? 0444 : 0666;
    std::shared_ptr<FileObject> object;
    {
        std::lock_guard<std::mutex> guard(open_files().lock);
        const Opened opened =
            open_by_disposition(path, open_flags(rights, flags), mode, disposition);
        if (opened.fd < 0) return fail_open(-1, path_error_from_errno(opened.error, path));
        struct stat st;
        if (::fstat(opened.fd, &st) != 0) return fail_open(opened.fd, set_last_error_from_errno());
        // Windows opens folders only with a flag this layer does not offer.
        if (S_ISDIR(st.st_mode)) return fail_open(opened.fd, ERROR_ACCESS_DENIED);
        if (!S_ISREG(st.st_mode) && !clear_non_blocking(opened.fd)) {
            return fail_open(opened.fd, set_last_error_from_errno());
        }

        const FileIdentity identity{st.st_dev, st.st_ino};
        auto it = open_files().nodes.find(identity);
        if (it != open_files().nodes.end()) {
            if (conflicts(it->second, rights, share)) {
                return fail_open(opened.fd, ERROR_SHARING_VIOLATION);
            }
        }
        if (opened.existed && (disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING)) {
            if (const int error = truncate_to_zero(opened.fd, rights, path)) {
                return fail_open(opened.fd, win32_error_from_errno(error));
            }
        }
        if (flags & FILE_FLAG_SEQUENTIAL_SCAN) {
            ::posix_fadvise(opened.fd, 0, 0, POSIX_FADV_SEQUENTIAL);
        } else if (flags & FILE_FLAG_RANDOM_ACCESS) {
            ::posix_fadvise(opened.fd, 0, 0, POSIX_FADV_RANDOM);
        }
        // Regular files always seek; anything else is asked once.
        const bool seekable = S_ISREG(st.st_mode) || ::lseek(opened.fd, 0, SEEK_CUR) >= 0;
        try {
            object = std::make_shared<FileObject>(opened.fd, rights, share, identity, seekable);
        } catch (const std::bad_alloc&) {
            return fail_open(opened.fd, ERROR_NOT_ENOUGH_MEMORY);
        }
        try {
            open_files().nodes[identity].opens.push_back({object.get(), rights, share});
            object->registered = true;
        } catch (const std::bad_alloc&) {
            if (it == open_files().nodes.end()) open_files().nodes.erase(identity);
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return INVALID_HANDLE_VALUE;
        }
        if (!opened.existed || disposition == CREATE_NEW || disposition == OPEN_EXISTING ||
            disposition == TRUNCATE_EXISTING) {
            SetLastError(ERROR_SUCCESS);
        } else {
            // CREATE_ALWAYS and OPEN_ALWAYS succeed on an existing file and say so.
            SetLastError(ERROR_ALREADY_EXISTS);
        }
    }
    const DWORD result_error = GetLastError();
    HANDLE handle = register_handle(object);
    if (handle == nullptr) return INVALID_HANDLE_VALUE;
    SetLastError(result_error);
    return handle;
}

/* Where a seek lands, or false with the last error set. */
bool seek_target(FileObject& file, LONGLONG distance, DWORD method, LONGLONG* target) {
    if (!file.seekable) {
        SetLastError(ERROR_SEEK);
        return false;
    }
    LONGLONG base = 0;
    switch (method) {
        case FILE_BEGIN:
            break;
        case FILE_CURRENT:
            base = file.position.load(std::memory_order_relaxed);
            break;
        case FILE_END: {
            struct stat st;
            if (::fstat(file.fd, &st) != 0) {
                set_last_error_from_errno();
                return false;
            }
            base = st.st_size;
            break;
        }
        default:
            SetLastError(ERROR_INVALID_PARAMETER);
            return false;
    }
    if (__builtin_add_overflow(base, distance, target)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (*target < 0) {
        SetLastError(ERROR_NEGATIVE_SEEK);
        return false;
    }
    return true;
}

HandleRef<FileObject> lookup_file(HANDLE handle) {
    return lookup<FileObject>(handle, HandleKind::File);
}

bool injected(FaultOp op) {
    DWORD error = 0;
    if (!inject_fault(op, &error)) return false;
    SetLastError(error);
    return true;
}

/*
 * Moves `size` bytes between the buffer and the file at the handle's
 * position, looping over short transfers; a read stops early at the end of
 * the file. Returns the errno that stopped it (0 when none).
 */
template <class Transfer>
int transfer(FileObject& file, DWORD size, DWORD* done, Transfer step) {
    const LONGLONG start = file.position.load(std::memory_order_relaxed);
    int error = 0;
    while (*done < size) {
        const ssize_t n = step(*done, start + *done);
        if (n < 0) {
            if (errno == EINTR) continue;
            error = errno;
            break;
        }
        if (n == 0) break;
        *done += static_cast<DWORD>(n);
    }
    if (file.seekable) file.position.store(start + *done, std::memory_order_relaxed);
    return error;
}

}  // namespace

FileObject::~FileObject() {
    if (registered && !closed_) release();
    ::close(fd);
}

bool FileObject::close() {
    if (!closed_) {
        closed_ = true;
        if (registered) release();
    }
    return true;
}

void FileObject::release() {
    std::lock_guard<std::mutex> guard(open_files().lock);
    auto it = open_files().nodes.find(identity);
    if (it == open_files().nodes.end()) return;
    std::vector<OpenEntry>& opens = it->second.opens;
    for (auto entry = opens.begin(); entry != opens.end(); ++entry) {
        if (entry->owner == this) {
            opens.erase(entry);
            break;
        }
    }
    release_node_if_unused(it);
}

void add_file_mapping(const FileIdentity& identity) {
    std::lock_guard<std::mutex> guard(open_files().lock);
    ++open_files().nodes[identity].mappings;
}

void remove_file_mapping(const FileIdentity& identity) {
    std::lock_guard<std::mutex> guard(open_files().lock);
    auto it = open_files().nodes.find(identity);
    if (it == open_files().nodes.end() || it->second.mappings == 0) return;
    --it->second.mappings;
    release_node_if_unused(it);
}

bool file_is_mapped(const FileIdentity& identity) {
    std::lock_guard<std::mutex> guard(open_files().lock);
    auto it = open_files().nodes.find(identity);
    return it != open_files().nodes.end() && it->second.mappings != 0;
}

}  // namespace qz::posix

using namespace qz::posix;
using qz::testing::FaultOp;

QZ_EXTERN_C HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES,
                               DWORD disposition, DWORD flags, HANDLE) {
    std::string native;
    if (!path_to_native(path, &native)) return INVALID_HANDLE_VALUE;
    // No family removes its files on close; the flag is refused rather than
    // silently leaving the file behind.
    if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING ||
        (flags & FILE_FLAG_DELETE_ON_CLOSE)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    const DWORD rights = access_rights(access);
    if (disposition == TRUNCATE_EXISTING && !(rights & kAccessWrite)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    if (injected(FaultOp::Open)) return INVALID_HANDLE_VALUE;
    return open_file(native, rights, share, disposition, flags);
}

QZ_EXTERN_C BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD to_read, LPDWORD read,
                          LPOVERLAPPED overlapped) {
    if (read != nullptr) *read = 0;
    if (injected(FaultOp::Read)) return FALSE;
    HandleRef<FileObject> file = lookup_file(handle);
    if (!file) return FALSE;
    if (overlapped != nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (!(file->access & kAccessRead)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    if (to_read == 0) return TRUE;
    if (buffer == nullptr) {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    auto* bytes = static_cast<unsigned char*>(buffer);
    DWORD done = 0;
    const int error = transfer(*file, to_read, &done, [&](DWORD offset, LONGLONG at) {
        return file->seekable ? ::pread(file->fd, bytes + offset, to_read - offset, at)
                              : ::read(file->fd, bytes + offset, to_read - offset);
    });
    if (read != nullptr) *read = done;
    if (error != 0) {
        SetLastError(win32_error_from_errno(error));
        return FALSE;
    }
    return TRUE;
}

QZ_EXTERN_C BOOL WriteFile(HANDLE handle, LPCVOID buffer, DWORD to_write, LPDWORD written,
                           LPOVERLAPPED overlapped) {
    if (written != nullptr) *written = 0;
    if (injected(FaultOp::Write)) return FALSE;
    HandleRef<FileObject> file = lookup_file(handle);
    if (!file) return FALSE;
    if (overlapped != nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (!(file->access & kAccessWrite)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    if (to_write == 0) return TRUE;
    if (buffer == nullptr) {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    const auto* bytes = static_cast<const unsigned char*>(buffer);
    // An appending handle writes through O_APPEND: the system finds the end
    // and writes there in one step, so writes through other handles (or
    // other processes) can neither overwrite nor split this one.
    const bool append = (file->access & kAccessAppend) != 0;
    DWORD done = 0;
    int error = transfer(*file, to_write, &done, [&](DWORD offset, LONGLONG at) {
        return file->seekable && !append ? ::pwrite(file->fd, bytes + offset, to_write - offset, at)
                                         : ::write(file->fd, bytes + offset, to_write - offset);
    });
    if (append && file->seekable) {
        // The pointer follows the data, wherever the end was.
        const off_t end = ::lseek(file->fd, 0, SEEK_CUR);
        if (end >= 0) file->position.store(end, std::memory_order_relaxed);
    }
    // A device that takes nothing and reports no error is as full as one that says so.
    if (error == 0 && done < to_write) error = ENOSPC;
    if (written != nullptr) *written = done;
    if (error != 0) {
        SetLastError(win32_error_from_errno(error));
        return FALSE;
    }
    return TRUE;
}

QZ_EXTERN_C DWORD SetFilePointer(HANDLE handle, LONG distance, PLONG distance_high, DWORD method) {
    if (injected(FaultOp::Seek)) return INVALID_SET_FILE_POINTER;
    HandleRef<FileObject> file = lookup_file(handle);
    if (!file) return INVALID_SET_FILE_POINTER;
    // With the high word the two halves form one signed 64-bit distance;
    // without it the distance is a signed 32-bit value.
    const LONGLONG move =
        distance_high != nullptr
            ? static_cast<LONGLONG>(
                  (static_cast<ULONGLONG>(static_cast<DWORD>(*distance_high)) << 32) |
                  static_cast<DWORD>(distance))
            : static_cast<LONGLONG>(distance);
    LONGLONG target = 0;
    if (!seek_target(*file, move, method, &target)) return INVALID_SET_FILE_POINTER;
    // A caller without the high word could not learn where a larger
    // position is, so the pointer stays put.
    if (distance_high == nullptr && target > 0xFFFFFFFFLL) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_SET_FILE_POINTER;
    }
    file->position.store(target, std::memory_order_relaxed);
    if (distance_high != nullptr) *distance_high = static_cast<LONG>(target >> 32);
    const DWORD low = static_cast<DWORD>(target);
    // The one success that looks like a failure: callers tell them apart
    // by the last error.
    if (low == INVALID_SET_FILE_POINTER) SetLastError(NO_ERROR);
    return low;
}

QZ_EXTERN_C BOOL SetFilePointerEx(HANDLE handle, LARGE_INTEGER distance,
                                  PLARGE_INTEGER new_position, DWORD method) {
    if (injected(FaultOp::Seek)) return FALSE;
    HandleRef<FileObject> file = lookup_file(handle);
    if (!file) return FALSE;
    LONGLONG target = 0;
    if (!seek_target(*file, distance.QuadPart, method, &target)) return FALSE;
    file->position.store(target, std::memory_order_relaxed);
    if (new_position != nullptr) new_position->QuadPart = target;
    return TRUE;
}

QZ_EXTERN_C BOOL SetEndOfFile(HANDLE handle) {
    if (injected(FaultOp::Truncate)) return FALSE;
    HandleRef<FileObject> file = lookup_file(handle);
    if (!file) return FALSE;
    if (!(file->access & kAccessWrite) || (file->access & kAccessAppend)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    // Cutting a mapped file would leave its views pointing past the end,
    // where touching them kills the process; Windows refuses it too.
    if (file_is_mapped(file->identity)) {
        SetLastError(ERROR_USER_MAPPED_FILE);
        return FALSE;
    }
    if (::ftruncate(file->fd, file->position.load(std::memory_order_relaxed)) != 0) {
        set_last_error_from_errno();
        return FALSE;
    }
    return TRUE;
}

QZ_EXTERN_C BOOL GetFileSizeEx(HANDLE handle, PLARGE_INTEGER size) {
    HandleRef<FileObject> file = lookup_file(handle);
    if (!file) return FALSE;
    if (size == nullptr) {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    struct stat st;
    if (::fstat(file->fd, &st) != 0) {
        set_last_error_from_errno();
        return FALSE;
    }
    size->QuadPart = st.st_size;
    return TRUE;
}

QZ_EXTERN_C DWORD GetFileSize(HANDLE handle, LPDWORD size_high) {
    LARGE_INTEGER size;
    if (!GetFileSizeEx(handle, &size)) return INVALID_FILE_SIZE;
    if (size_high != nullptr) *size_high = static_cast<DWORD>(size.QuadPart >> 32);
    const DWORD low = static_cast<DWORD>(size.QuadPart);
    if (low == INVALID_FILE_SIZE) SetLastError(NO_ERROR);
    return low;
}

QZ_EXTERN_C BOOL FlushFileBuffers(HANDLE handle) {
    HandleRef<FileObject> file = lookup_file(handle);
    if (!file) return FALSE;
    if (!(file->access & kAccessWrite)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    // Devices such as /dev/null have nothing to flush and say EINVAL.
    if (::fsync(file->fd) != 0 && errno != EINVAL) {
        set_last_error_from_errno();
        return FALSE;
    }
    return TRUE;
}

QZ_EXTERN_C DWORD GetFileAttributesW(LPCWSTR path) {
    std::string native;
    if (!path_to_native(path, &native)) return INVALID_FILE_ATTRIBUTES;
    struct stat st;
    if (::stat(native.c_str(), &st) != 0) {
        SetLastError(path_error_from_errno(errno, native));
        return INVALID_FILE_ATTRIBUTES;
    }
    DWORD attributes = 0;
    if (S_ISDIR(st.st_mode)) attributes |= FILE_ATTRIBUTE_DIRECTORY;
    if (!(st.st_mode & S_IWUSR)) attributes |= FILE_ATTRIBUTE_READONLY;
    return attributes != 0 ? attributes : FILE_ATTRIBUTE_NORMAL;
}

namespace {

/*
 * Runs `remove` on a file unless a handle of this process refuses to share
 * deletion, which Windows reports as a sharing violation.
 */
template <class Remove>
BOOL remove_unless_shared(const std::string& native, Remove remove) {
    struct stat st;
    if (::lstat(native.c_str(), &st) != 0) {
        SetLastError(path_error_from_errno(errno, native));
        return FALSE;
    }
    std::lock_guard<std::mutex> guard(open_files().lock);
    auto it = open_files().nodes.find(FileIdentity{st.st_dev, st.st_ino});
    if (it != open_files().nodes.end() && refuses_delete(it->second)) {
        SetLastError(ERROR_SHARING_VIOLATION);
        return FALSE;
    }
    const DWORD error = remove(st);
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return FALSE;
    }
    return TRUE;
}

/* rename() that never replaces an existing destination; returns an errno. */
int rename_no_replace(const std::string& from, const std::string& to) {
#ifdef RENAME_NOREPLACE
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    // EINVAL also means "flag not supported by this file system".
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) return errno;
#endif
    // A hard link fails when the name exists, so it is an atomic check.
    if (::link(from.c_str(), to.c_str()) == 0) {
        ::unlink(from.c_str());
        return 0;
    }
    if (errno == EEXIST || errno == ENOENT || errno == EXDEV) return errno;
    // Folders cannot be linked: check, then rename.
    struct stat st;
    if (::lstat(to.c_str(), &st) == 0) return EEXIST;
    return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

}  // namespace

QZ_EXTERN_C BOOL DeleteFileW(LPCWSTR path) {
    std::string native;
    if (!path_to_native(path, &native) || injected(FaultOp::Rename)) return FALSE;
    return remove_unless_shared(native, [&](const struct stat& st) -> DWORD {
        if (S_ISDIR(st.st_mode)) return ERROR_ACCESS_DENIED;
        return ::unlink(native.c_str()) == 0 ? ERROR_SUCCESS : set_last_error_from_errno();
    });
}

QZ_EXTERN_C BOOL MoveFileW(LPCWSTR from, LPCWSTR to) {
    std::string source, target;
    if (!path_to_native(from, &source) || !path_to_native(to, &target) ||
        injected(FaultOp::Rename))
        return FALSE;
    return remove_unless_shared(source, [&](const struct stat&) -> DWORD {
        const int error = rename_no_replace(source, target);
        if (error == 0) return ERROR_SUCCESS;
        if (error == EEXIST || error == ENOTEMPTY) return ERROR_ALREADY_EXISTS;
        return path_error_from_errno(error, target);
    });
}

QZ_EXTERN_C BOOL CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES) {
    std::string native;
    if (!path_to_native(path, &native)) return FALSE;
    if (::mkdir(native.c_str(), 0777) == 0) return TRUE;
    const int error = errno;
    if (error == EEXIST) {
        SetLastError(ERROR_ALREADY_EXISTS);
    } else if (error == ENOENT || error == ENOTDIR) {
        SetLastError(ERROR_PATH_NOT_FOUND);
    } else {
        SetLastError(win32_error_from_errno(error));
    }
    return FALSE;
}

QZ_EXTERN_C BOOL RemoveDirectoryW(LPCWSTR path) {
    std::string native;
    if (!path_to_native(path, &native)) return FALSE;
    struct stat st;
    if (::lstat(native.c_str(), &st) != 0) {
        SetLastError(path_error_from_errno(errno, native));
        return FALSE;
    }
    if (!S_ISDIR(st.st_mode)) {
        SetLastError(ERROR_DIRECTORY);
        return FALSE;
    }
    if (::rmdir(native.c_str()) == 0) return TRUE;
    const int error = errno;
    SetLastError(error == ENOTEMPTY || error == EEXIST ? ERROR_DIR_NOT_EMPTY
                                                       : win32_error_from_errno(error));
    return FALSE;
}
