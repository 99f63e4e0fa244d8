// File mapping: CreateFileMappingW, MapViewOfFile, UnmapViewOfFile.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <mutex>
#include <new>
#include <unordered_map>

#include "platform/posix/files.h"

namespace qz::posix {

namespace {

/* Views must start on the Windows allocation granularity, whatever the page size. */
constexpr ULONGLONG kAllocationGranularity = 64 * 1024;

/*
 * The section behind a mapping handle. It holds its own descriptor, so the
 * file handle may be closed first, and it lives as long as the handle or
 * any view of it: on Windows views outlive the mapping handle too. While it
 * lives the file counts as mapped and keeps its size.
 */
struct Section {
    Section(int fd, ULONGLONG size, DWORD protect, FileIdentity identity)
        : fd(fd), size(size), protect(protect), identity(identity) {}
    ~Section() {
        ::close(fd);
        remove_file_mapping(identity);
    }
    Section(const Section&) = delete;
    Section& operator=(const Section&) = delete;

    const int fd;
    const ULONGLONG size;
    const DWORD protect; /* PAGE_READONLY, PAGE_READWRITE or PAGE_WRITECOPY */
    const FileIdentity identity;
};

class MappingObject : public HandleObject {
public:
    explicit MappingObject(std::shared_ptr<Section> section)
        : HandleObject(HandleKind::Mapping), section(std::move(section)) {}
    const std::shared_ptr<Section> section;
};

struct View {
    size_t length = 0;
    std::shared_ptr<Section> section;
};

struct ViewRegistry {
    std::mutex lock;
    std::unordered_map<const void*, View> views;
};

ViewRegistry& view_registry() {
    static ViewRegistry* registry = new ViewRegistry;
    return *registry;
}

/* Undoes add_file_mapping unless a Section took over that duty. */
class MappingClaim {
public:
    explicit MappingClaim(const FileIdentity& identity) : identity_(identity) {
        add_file_mapping(identity_);
    }
    ~MappingClaim() {
        if (held_) remove_file_mapping(identity_);
    }
    MappingClaim(const MappingClaim&) = delete;
    MappingClaim& operator=(const MappingClaim&) = delete;
    void hand_over() { held_ = false; }

private:
    FileIdentity identity_;
    bool held_ = true;
};

HANDLE fail_mapping(DWORD error) {
    SetLastError(error);
    return nullptr;
}

/* The size of the section: the file's, or the one asked for (growing the file if allowed). */
DWORD section_size(const FileObject& file, DWORD protect, ULONGLONG wanted, ULONGLONG* size) {
    struct stat st;
    if (::fstat(file.fd, &st) != 0) return win32_error_from_errno(errno);
    const auto file_size = static_cast<ULONGLONG>(st.st_size);
    if (wanted == 0) {
        // Nothing to map in an empty file.
        if (file_size == 0) return ERROR_FILE_INVALID;
        *size = file_size;
        return ERROR_SUCCESS;
    }
    if (wanted > static_cast<ULONGLONG>(std::numeric_limits<off_t>::max())) {
        return ERROR_INVALID_PARAMETER;
    }
    if (wanted > file_size) {
        // Only a writable section may grow its file; a read-only one larger
        // than the file has nothing behind its end.
        if (protect != PAGE_READWRITE) return ERROR_NOT_ENOUGH_MEMORY;
        if (::ftruncate(file.fd, static_cast<off_t>(wanted)) != 0) {
            return win32_error_from_errno(errno);
        }
    }
    *size = wanted;
    return ERROR_SUCCESS;
}

}  // namespace

}  // namespace qz::posix

using namespace qz::posix;

QZ_EXTERN_C HANDLE CreateFileMappingW(HANDLE handle, LPSECURITY_ATTRIBUTES, DWORD protect,
                                      DWORD size_high, DWORD size_low, LPCWSTR name) {
    HandleRef<FileObject> file = lookup<FileObject>(handle, HandleKind::File);
    if (!file) return nullptr;
    // Named sections are shared between processes; this layer has none.
    if (name != nullptr) return fail_mapping(ERROR_INVALID_PARAMETER);
    // The high bits are SEC_* section attributes, which change nothing here.
    const DWORD page = protect & 0xFFu;
    if (page != PAGE_READONLY && page != PAGE_READWRITE && page != PAGE_WRITECOPY) {
        return fail_mapping(ERROR_INVALID_PARAMETER);
    }
    if (!(file->access & kAccessRead)) return fail_mapping(ERROR_ACCESS_DENIED);
    if (page == PAGE_READWRITE && !(file->access & kAccessWrite)) {
        return fail_mapping(ERROR_ACCESS_DENIED);
    }

    // Claim the file first, so no SetEndOfFile can cut it between the size
    // check and the first view.
    MappingClaim claim(file->identity);
    ULONGLONG size = 0;
    const ULONGLONG wanted = (static_cast<ULONGLONG>(size_high) << 32) | size_low;
    if (const DWORD error = section_size(*file, page, wanted, &size)) return fail_mapping(error);
    const int fd = ::fcntl(file->fd, F_DUPFD_CLOEXEC, 0);
    if (fd < 0) return fail_mapping(win32_error_from_errno(errno));

    std::shared_ptr<Section> section;
    try {
        section = std::make_shared<Section>(fd, size, page, file->identity);
    } catch (const std::bad_alloc&) {
        ::close(fd);
        return fail_mapping(ERROR_NOT_ENOUGH_MEMORY);
    }
    claim.hand_over();
    std::shared_ptr<MappingObject> mapping;
    try {
        mapping = std::make_shared<MappingObject>(std::move(section));
    } catch (const std::bad_alloc&) {
        return fail_mapping(ERROR_NOT_ENOUGH_MEMORY);
    }
    HANDLE result = register_handle(mapping);
    if (result != nullptr) SetLastError(ERROR_SUCCESS);
    return result;
}

QZ_EXTERN_C LPVOID MapViewOfFile(HANDLE handle, DWORD access, DWORD offset_high, DWORD offset_low,
                                 SIZE_T bytes) {
    HandleRef<MappingObject> mapping = lookup<MappingObject>(handle, HandleKind::Mapping);
    if (!mapping) return nullptr;
    const Section& section = *mapping->section;

    // FILE_MAP_ALL_ACCESS carries the write bit, so write wins; a copy view
    // is private and may be written whatever the section allows.
    const bool write = access & FILE_MAP_WRITE;
    const bool copy = !write && (access & FILE_MAP_COPY);
    const bool read = access & FILE_MAP_READ;
    if (!write && !copy && !read) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (write && section.protect != PAGE_READWRITE) {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    const ULONGLONG offset = (static_cast<ULONGLONG>(offset_high) << 32) | offset_low;
    if (offset % kAllocationGranularity != 0) {
        SetLastError(ERROR_MAPPED_ALIGNMENT);
        return nullptr;
    }
    if (offset >= section.size || (bytes != 0 && bytes > section.size - offset)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    const size_t length = bytes != 0 ? bytes : static_cast<size_t>(section.size - offset);
    const int protection = PROT_READ | (write || copy ? PROT_WRITE : 0);
    void* address = ::mmap(nullptr, length, protection, copy ? MAP_PRIVATE : MAP_SHARED, section.fd,
                           static_cast<off_t>(offset));
    if (address == MAP_FAILED) {
        SetLastError(errno == ENOMEM ? ERROR_NOT_ENOUGH_MEMORY : win32_error_from_errno(errno));
        return nullptr;
    }
    try {
        std::lock_guard<std::mutex> guard(view_registry().lock);
        view_registry().views.emplace(address, View{length, mapping->section});
    } catch (const std::bad_alloc&) {
        ::munmap(address, length);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    return address;
}

QZ_EXTERN_C BOOL UnmapViewOfFile(LPCVOID address) {
    View view;
    {
        std::lock_guard<std::mutex> guard(view_registry().lock);
        auto it = view_registry().views.find(address);
        if (it == view_registry().views.end()) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return FALSE;
        }
        view = std::move(it->second);
        view_registry().views.erase(it);
    }
    ::munmap(const_cast<void*>(address), view.length);
    return TRUE;  // the section goes with `view` if this was its last user
}
