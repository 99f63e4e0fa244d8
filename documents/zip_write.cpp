// CArchive: the one-pass zip writer.
//
// Each entry is a local header, its name and (for files) the raw deflate
// stream. The header goes out first with CRC and compressed size zero; once
// the data is written they are patched in place, so no data descriptor is
// needed. A copy of every header is kept in the entry list, from which the
// central directory is written at the end.
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "base/byteorder.h"
#include "base/guard.h"
#include "documents/zip_internal.h"

using namespace qz::zip;
using qz::base::load_le16;
using qz::base::load_le32;
using qz::base::store_le16;
using qz::base::store_le32;

namespace {

constexpr uint16_t kVersionFile = 20;
constexpr uint16_t kVersionFolder = 0;
constexpr uint16_t kVersionMadeBy = 0;
/* The text bit, set on every entry (binary ones too): archives made by
   earlier releases carry it, and identical input must give identical bytes. */
constexpr uint16_t kInternalAttributes = 1;
constexpr DWORD kInputBufferBytes = 131072;
constexpr DWORD kOutputBufferBytes = 132394;
constexpr int kMemoryLevel = 8;
constexpr int kRawDeflateWindow = -15;

/* What the writer keeps of each entry, one fixed-size item of the list. */
struct EntryRecord {
    BYTE local_header[kLocalHeaderBytes]; /* as written, CRC and size filled in */
    DWORD header_offset;
    WCHAR name[MAX_PATH];  /* relative name; its length is the header's */
    WCHAR extra[MAX_PATH]; /* written as the extra field when its length is set; never is */
};

/* Builds a local header: everything but the CRC and compressed size. */
void build_local_header(BYTE* h, uint16_t version, WORD dos_time, WORD dos_date,
                        uint32_t uncompressed, uint16_t name_length) {
    store_le32(h + 0, kLocalHeaderId);  // signature
    store_le16(h + 4, version);         // version needed to extract
    store_le16(h + 6, 0);               // general-purpose flags
    store_le16(h + 8, kMethodDeflate);  // method, folders included
    store_le16(h + 10, dos_time);       // modification time
    store_le16(h + 12, dos_date);       // modification date
    store_le32(h + 14, 0);              // CRC-32, patched later
    store_le32(h + 18, 0);              // compressed size, patched later
    store_le32(h + 22, uncompressed);   // uncompressed size (low 32 bits)
    store_le16(h + 26, name_length);    // name length
    store_le16(h + 28, 0);              // extra-field length
}

/* The central header of an entry, from the local header kept for it. */
void build_central_header(BYTE* c, const EntryRecord& e) {
    const BYTE* h = e.local_header;
    store_le32(c + 0, kCentralHeaderId);      // signature
    store_le16(c + 4, kVersionMadeBy);        // version made by
    store_le16(c + 6, load_le16(h + 4));      // version needed
    store_le16(c + 8, load_le16(h + 6));      // flags
    store_le16(c + 10, load_le16(h + 8));     // method
    store_le16(c + 12, load_le16(h + 10));    // time
    store_le16(c + 14, load_le16(h + 12));    // date
    store_le32(c + 16, load_le32(h + 14));    // CRC-32
    store_le32(c + 20, load_le32(h + 18));    // compressed size
    store_le32(c + 24, load_le32(h + 22));    // uncompressed size
    store_le16(c + 28, load_le16(h + 26));    // name length
    store_le16(c + 30, load_le16(h + 28));    // extra-field length
    store_le16(c + 32, 0);                    // comment length
    store_le16(c + 34, 0);                    // disk number start
    store_le16(c + 36, kInternalAttributes);  // internal attributes
    store_le32(c + 38, 0);                    // external attributes
    store_le32(c + 42, e.header_offset);      // offset of the local header
}

void build_end_record(BYTE* r, uint16_t entries, uint32_t directory_bytes,
                      uint32_t directory_offset) {
    store_le32(r + 0, kEndRecordId);       // signature
    store_le16(r + 4, 0);                  // number of this disk
    store_le16(r + 6, 0);                  // disk holding the directory
    store_le16(r + 8, entries);            // entries on this disk
    store_le16(r + 10, entries);           // entries in total
    store_le32(r + 12, directory_bytes);   // size of the directory
    store_le32(r + 16, directory_offset);  // offset of the directory
    store_le16(r + 20, 0);                 // comment length
}

bool write_all(HANDLE file, const void* bytes, DWORD count) {
    DWORD written = 0;
    return count == 0 || (WriteFile(file, bytes, count, &written, nullptr) && written == count);
}

bool is_separator(WCHAR c) {
    return c == u'\\' || c == u'/';
}

/* Name bytes of the record: the ANSI form, held to the recorded length. */
std::string name_bytes(const EntryRecord& e) {
    std::string bytes = to_ansi(Text(e.name));
    bytes.resize(load_le16(e.local_header + 26), '_');
    return bytes;
}

/* Zeroed movable global memory, locked, freed on scope exit. */
struct GlobalBuffer {
    explicit GlobalBuffer(SIZE_T bytes) {
        handle = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, bytes);
        data = handle ? static_cast<BYTE*>(GlobalLock(handle)) : nullptr;
    }
    ~GlobalBuffer() {
        if (!handle) return;
        if (data) GlobalUnlock(handle);
        GlobalFree(handle);
    }
    GlobalBuffer(const GlobalBuffer&) = delete;
    GlobalBuffer& operator=(const GlobalBuffer&) = delete;
    HGLOBAL handle = nullptr;
    BYTE* data = nullptr;
};

struct HandleCloser {
    void operator()(HANDLE h) const {
        if (h && h != INVALID_HANDLE_VALUE) CloseHandle(h);
    }
};
using UniqueHandle = std::unique_ptr<void, HandleCloser>;

struct FindCloser {
    void operator()(HANDLE h) const {
        if (h && h != INVALID_HANDLE_VALUE) FindClose(h);
    }
};
using UniqueFind = std::unique_ptr<void, FindCloser>;

bool is_dot_name(const WCHAR* name) {
    return (name[0] == u'.' && name[1] == 0) ||
           (name[0] == u'.' && name[1] == u'.' && name[2] == 0);
}

Text child_path(const Text& folder, const WCHAR* name) {
    Text path = folder;
    if (path.empty() || !is_separator(path.back())) path += u'\\';
    path += name;
    return path;
}

/* Bytes under `path`: a file's size, or every file below a folder. */
ULONGLONG tree_bytes(const Text& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return 0;
    if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        UniqueHandle file(CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        LARGE_INTEGER size{};
        if (file.get() == INVALID_HANDLE_VALUE || !GetFileSizeEx(file.get(), &size)) return 0;
        return ULONGLONG(size.QuadPart);
    }
    WIN32_FIND_DATAW found;
    UniqueFind find(FindFirstFileW(child_path(path, QZTEXT("*.*")).c_str(), &found));
    if (find.get() == INVALID_HANDLE_VALUE) return 0;
    ULONGLONG total = 0;
    do {
        if (is_dot_name(found.cFileName)) continue;
        if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
            total += tree_bytes(child_path(path, found.cFileName));
        else
            total += (ULONGLONG(found.nFileSizeHigh) << 32) | found.nFileSizeLow;
    } while (FindNextFileW(find.get(), &found));
    return total;
}

/* The folder part of `path`, separator included (empty for a bare name). */
Text folder_part(const Text& path) {
    size_t cut = path.size();
    while (cut > 0 && !is_separator(path[cut - 1])) --cut;
    return path.substr(0, cut);
}

HRESULT deflate_error(int code) {
    if (code == Z_MEM_ERROR) return E_OUTOFMEMORY;
    if (code == Z_BUF_ERROR) return QZE_BUFFER_TOO_SMALL;
    return QZE_FILE_WRITE;
}

/* One AddEntryToArchive call: the archive's state and what it adds. */
class EntryWriter {
public:
    EntryWriter(HANDLE archive, tQZLIST* entries, DWORD* offset, IQzProgress* progress, int level,
                DWORD flags, size_t base_length)
        : archive_(archive),
          entries_(entries),
          offset_(offset),
          progress_(progress),
          level_(level),
          flags_(flags),
          base_length_(base_length) {}

    HRESULT add_path(const Text& path) {
        const DWORD attributes = GetFileAttributesW(path.c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY))
            return add_folder_tree(path);
        return add_file(path);
    }

private:
    /*
     * The entry name: the path past the base folder, with backslashes.
     * S_FALSE when the path is no longer than the base (nothing to add),
     * QZE_BAD_FILE_NAME when the name does not fit the entry record.
     */
    HRESULT relative_name(const Text& path, bool folder, Text* name) const {
        if (path.size() <= base_length_) return S_FALSE;
        *name = path.substr(base_length_);
        std::replace(name->begin(), name->end(), WCHAR(u'/'), WCHAR(u'\\'));
        if (folder && name->back() != u'\\') *name += u'\\';
        return name->size() < MAX_PATH ? S_OK : QZE_BAD_FILE_NAME;
    }

    HRESULT append_record(const EntryRecord& record) {
        return QzList_InsertList(entries_, -1, &record, 1);
    }

    HRESULT write(const void* bytes, DWORD count) {
        if (!write_all(archive_, bytes, count)) return QZE_FILE_WRITE;
        *offset_ += count;
        return S_OK;
    }

    HRESULT add_folder_tree(const Text& path) {
        HRESULT hr = add_folder_entry(path);
        if (FAILED(hr)) return hr;
        WIN32_FIND_DATAW found;
        UniqueFind find(FindFirstFileW(child_path(path, QZTEXT("*.*")).c_str(), &found));
        if (find.get() == INVALID_HANDLE_VALUE) return S_OK;  // nothing listed: an empty folder
        do {
            if (is_dot_name(found.cFileName)) continue;
            const Text child = child_path(path, found.cFileName);
            hr = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) ? add_folder_tree(child)
                                                                     : add_file(child);
            if (FAILED(hr)) return hr;
        } while (FindNextFileW(find.get(), &found));
        return S_OK;
    }

    HRESULT add_folder_entry(const Text& path) {
        Text name;
        HRESULT hr = relative_name(path, true, &name);
        if (hr != S_OK) return hr == S_FALSE ? S_OK : hr;
        // Folders carry the current time taken as UTC, without the local
        // conversion that file times get.
        FILETIME now;
        GetSystemTimeAsFileTime(&now);
        WORD dos_date = 0, dos_time = 0;
        FileTimeToDosDateTime(&now, &dos_date, &dos_time);

        auto record = std::make_unique<EntryRecord>();
        std::memset(record.get(), 0, sizeof(EntryRecord));
        name.copy(record->name, name.size());
        build_local_header(record->local_header, kVersionFolder, dos_time, dos_date, 0,
                           uint16_t(name.size()));
        record->header_offset = *offset_;
        hr = append_record(*record);
        if (FAILED(hr)) return hr;
        hr = write(record->local_header, kLocalHeaderBytes);
        if (FAILED(hr)) return hr;
        const std::string bytes = name_bytes(*record);
        return write(bytes.data(), DWORD(bytes.size()));
    }

    HRESULT add_file(const Text& path) {
        Text name;
        HRESULT hr = relative_name(path, false, &name);
        if (hr != S_OK) return hr == S_FALSE ? S_OK : hr;
        const DWORD share =
            FILE_SHARE_READ | ((flags_ & QZARCHIVE_SHARE_WRITE) ? FILE_SHARE_WRITE : 0);
        UniqueHandle input(CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING,
                                       FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
        if (input.get() == INVALID_HANDLE_VALUE) return QZE_FILE_OPEN;
        LARGE_INTEGER size{};
        if (!GetFileSizeEx(input.get(), &size)) return QZE_FILE_READ;
        FILETIME written{}, local{};
        WORD dos_date = 0, dos_time = 0;
        if (GetFileTime(input.get(), nullptr, nullptr, &written) &&
            FileTimeToLocalFileTime(&written, &local))
            FileTimeToDosDateTime(&local, &dos_date, &dos_time);

        auto record = std::make_unique<EntryRecord>();
        std::memset(record.get(), 0, sizeof(EntryRecord));
        name.copy(record->name, name.size());
        const std::string bytes = to_ansi(name);
        if (bytes.size() > 0xFFFF) return QZE_BAD_FILE_NAME;
        build_local_header(record->local_header, kVersionFile, dos_time, dos_date,
                           uint32_t(size.QuadPart), uint16_t(bytes.size()));
        record->header_offset = *offset_;

        // The real position, not the 32-bit offset: patching must find the
        // header even in an archive past 4 GiB.
        LARGE_INTEGER zero{}, header_at{};
        if (!SetFilePointerEx(archive_, zero, &header_at, FILE_CURRENT)) return QZE_FILE_WRITE;
        hr = write(record->local_header, kLocalHeaderBytes);
        if (SUCCEEDED(hr)) hr = write(bytes.data(), DWORD(bytes.size()));
        if (FAILED(hr)) return hr;

        uint32_t crc = 0, compressed = 0;
        hr = compress(input.get(), ULONGLONG(size.QuadPart), &crc, &compressed);
        if (FAILED(hr)) return hr;

        store_le32(record->local_header + kLocalCrcOffset, crc);
        store_le32(record->local_header + kLocalCrcOffset + 4, compressed);
        LARGE_INTEGER end{}, patch_at{};
        patch_at.QuadPart = header_at.QuadPart + kLocalCrcOffset;
        if (!SetFilePointerEx(archive_, zero, &end, FILE_CURRENT) ||
            !SetFilePointerEx(archive_, patch_at, nullptr, FILE_BEGIN) ||
            !write_all(archive_, record->local_header + kLocalCrcOffset, 8) ||
            !SetFilePointerEx(archive_, end, nullptr, FILE_BEGIN))
            return QZE_FILE_WRITE;
        return append_record(*record);
    }

    /* Deflates `size` bytes of `input` into the archive. */
    HRESULT compress(HANDLE input, ULONGLONG size, uint32_t* crc_out, uint32_t* compressed_out) {
        GlobalBuffer in(kInputBufferBytes), out(kOutputBufferBytes);
        if (!in.data || !out.data) return E_OUTOFMEMORY;
        z_stream z{};
        int code = deflateInit2(&z, level_, Z_DEFLATED, kRawDeflateWindow, kMemoryLevel,
                                Z_DEFAULT_STRATEGY);
        if (code != Z_OK) return deflate_error(code);
        struct End {
            z_stream* z;
            ~End() { deflateEnd(z); }
        } end{&z};

        uLong crc = crc32(0, nullptr, 0);
        uint32_t compressed = 0;
        // Writes what deflate produced, if anything, and rearms the buffer.
        auto flush_output = [&]() -> HRESULT {
            const DWORD produced = DWORD(kOutputBufferBytes - z.avail_out);
            if (produced) {
                HRESULT hr = write(out.data, produced);
                if (FAILED(hr)) return hr;
                compressed += produced;
            }
            z.next_out = out.data;
            z.avail_out = kOutputBufferBytes;
            return S_OK;
        };
        z.next_out = out.data;
        z.avail_out = kOutputBufferBytes;

        ULONGLONG done = 0;
        while (done < size) {
            const DWORD want = DWORD(std::min<ULONGLONG>(kInputBufferBytes, size - done));
            DWORD got = 0;
            if (!ReadFile(input, in.data, want, &got, nullptr)) return QZE_FILE_READ;
            if (got == 0) break;  // the file shrank under us: archive what there was
            done += got;
            if (progress_) {
                if (progress_->QueryCancel() == QZE_CANCELLED) return QZE_CANCELLED;
                progress_->SetPosition(done);
            }
            crc = crc32(crc, in.data, got);
            z.next_in = in.data;
            z.avail_in = got;
            do {
                code = deflate(&z, Z_NO_FLUSH);
                if (code != Z_OK && code != Z_BUF_ERROR) return deflate_error(code);
                HRESULT hr = flush_output();
                if (FAILED(hr)) return hr;
            } while (z.avail_in > 0);
        }
        do {
            code = deflate(&z, Z_FINISH);
            if (code != Z_OK && code != Z_STREAM_END) return deflate_error(code);
            HRESULT hr = flush_output();
            if (FAILED(hr)) return hr;
        } while (code != Z_STREAM_END);
        if (progress_) progress_->SetPosition(done);
        *crc_out = uint32_t(crc);
        *compressed_out = compressed;
        return S_OK;
    }

    HANDLE archive_;
    tQZLIST* entries_;
    DWORD* offset_;
    IQzProgress* progress_;
    int level_;
    DWORD flags_;
    size_t base_length_;
};

}  // namespace

CArchive::CArchive()
    : m_file(nullptr), m_entries(nullptr), m_offset(0), m_progress(nullptr), m_level(-1) {}

CArchive::~CArchive() {
    Close();
}

HRESULT CArchive::Open(LPCWSTR archive_path, int level) {
    if (!archive_path) return E_INVALIDARG;
    Close();
    HANDLE file = CreateFileW(archive_path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return QZE_FILE_CREATE;
    tQZLIST* entries = nullptr;
    const HRESULT hr =
        QzList_CreateExZ(&entries, sizeof(EntryRecord), 0, 0, QZLIST_VALUES, 0, 0, 0);
    if (FAILED(hr)) {
        CloseHandle(file);
        return hr;
    }
    m_file = file;
    m_entries = entries;
    m_offset = 0;
    m_level = level;
    return S_OK;
}

HRESULT CArchive::AddEntryToArchive(LPCWSTR path, IQzProgress* progress, DWORD flags) {
    return qz::base::guarded([&]() -> HRESULT {
        if (!path) return E_INVALIDARG;
        if (!m_file || !m_entries) return QZE_FILE_CREATE;
        m_progress = progress;
        Text full(path);
        while (full.size() > 1 && is_separator(full.back())) full.pop_back();
        const Text base = folder_part(full);
        EntryWriter writer(m_file, m_entries, &m_offset, m_progress, m_level, flags, base.size());
        return writer.add_path(full);
    });
}

HRESULT CArchive::AddCentralDirectory() {
    if (!m_entries || !m_file) return S_OK;
    return qz::base::guarded([&]() -> HRESULT {
        // An entry that failed while patching its header may have left the
        // position there: the directory goes after everything written.
        const LARGE_INTEGER zero{};
        if (!SetFilePointerEx(m_file, zero, nullptr, FILE_END)) return QZE_FILE_WRITE;
        const DWORD start = m_offset;
        BYTE header[kCentralHeaderBytes];
        const LONG count = QZLIST_COUNT(m_entries);
        for (LONG i = 0; i < count; ++i) {
            const auto& e = *static_cast<const EntryRecord*>(QZLIST_ITEMADDR(m_entries, i));
            build_central_header(header, e);
            const std::string name = name_bytes(e);
            if (!write_all(m_file, header, kCentralHeaderBytes) ||
                !write_all(m_file, name.data(), DWORD(name.size())))
                return QZE_FILE_WRITE;
            m_offset += kCentralHeaderBytes + DWORD(name.size());
            const uint16_t extra_length = load_le16(e.local_header + 28);
            if (extra_length) {
                std::string extra = to_ansi(Text(e.extra));
                extra.resize(extra_length, '\0');
                if (!write_all(m_file, extra.data(), extra_length)) return QZE_FILE_WRITE;
                m_offset += extra_length;
            }
        }
        BYTE end[kEndRecordBytes];
        // More than 65,535 entries wrap the 16-bit counts.
        build_end_record(end, uint16_t(count), m_offset - start, start);
        if (!write_all(m_file, end, kEndRecordBytes)) return QZE_FILE_WRITE;
        m_offset += kEndRecordBytes;
        return S_OK;
    });
}

HRESULT CArchive::DoArchive(LPCWSTR archive_path, tQZLIST* paths, int level) {
    return qz::base::guarded([&]() -> HRESULT {
        if (!archive_path) return E_INVALIDARG;
        const LONG count = paths ? QZLIST_COUNT(paths) : 0;
        auto path_at = [&](LONG i) { return static_cast<LPCWSTR>(QZLIST_ITEMPTR(paths, i)); };

        // Sizes are reckoned in whole KiB, each input rounded down.
        ULONGLONG needed_kib = 0;
        for (LONG i = 0; i < count; ++i)
            if (path_at(i)) needed_kib += tree_bytes(Text(path_at(i))) / 1024;
        const Text folder = folder_part(Text(archive_path));
        if (needed_kib >= (ULONGLONG(1) << 32)) return QZE_DISK_FULL;
        // A folder whose space cannot be asked for cannot hold the archive
        // either; opening it tells the caller so.
        ULARGE_INTEGER free_bytes{};
        if (GetDiskFreeSpaceExW(folder.empty() ? nullptr : folder.c_str(), &free_bytes, nullptr,
                                nullptr) &&
            free_bytes.QuadPart / 1024 <= needed_kib)
            return QZE_DISK_FULL;

        if (FAILED(Open(archive_path, level))) return QZE_FILE_CREATE;
        HRESULT hr = S_OK;
        for (LONG i = 0; i < count && SUCCEEDED(hr); ++i)
            if (path_at(i)) hr = AddEntryToArchive(path_at(i), nullptr, 0);
        hr = AddCentralDirectory();
        Close();
        return hr;
    });
}

void CArchive::Close() {
    if (m_file) {
        CloseHandle(m_file);
        m_file = nullptr;
    }
    if (m_entries) {
        QzList_DeleteList(m_entries, 0, -1, FALSE);
        QzList_Destroy(m_entries);
        m_entries = nullptr;
    }
}
