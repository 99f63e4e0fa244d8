// QzZip_* and QzZipEnum_*: opening archives, reading the central directory,
// listing entries.
//
// The end record is searched backwards from the end of the archive, through
// a trailing comment of up to 65,535 bytes. Every record of the directory
// is decoded field by field and checked against the bytes the archive has
// before anything it names is used.
#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <set>

#include "base/byteorder.h"
#include "base/guard.h"
#include "documents/zip_archive.h"

using qz::base::load_le16;
using qz::base::load_le32;
using qz::base::load_le64;

namespace qz::zip {

bool Source::read(uint64_t offset, void* out, size_t count) {
    if (offset > size() || count > size() - offset) return false;
    if (count == 0) return true;
    const BYTE* bytes = map(offset, count);
    if (!bytes) return false;
    std::memcpy(out, bytes, count);
    release();
    return true;
}

namespace {

constexpr uint32_t kUnset32 = 0xFFFFFFFF;  // the field lives in the ZIP64 extra

class MemorySource : public Source {
public:
    MemorySource(const void* data, DWORD size)
        : data_(static_cast<const BYTE*>(data)), size_(size) {}
    uint64_t size() const override { return size_; }
    const BYTE* map(uint64_t offset, size_t) override { return data_ + offset; }
    void release() override {}

private:
    const BYTE* data_;
    DWORD size_;
};

/*
 * A file read through views mapped at the system's allocation granularity:
 * a view starts at the granule holding the first byte wanted, and the
 * caller gets the address of that byte inside it.
 */
class FileSource : public Source {
public:
    FileSource(HANDLE mapping, uint64_t size, DWORD granularity)
        : mapping_(mapping), size_(size), granularity_(granularity) {}
    ~FileSource() override {
        release();
        CloseHandle(mapping_);
    }
    uint64_t size() const override { return size_; }
    const BYTE* map(uint64_t offset, size_t count) override {
        release();
        const uint64_t start = offset - offset % granularity_;
        const uint64_t span = offset - start + count;
        if (span > SIZE_T(-1)) return nullptr;
        view_ =
            MapViewOfFile(mapping_, FILE_MAP_READ, DWORD(start >> 32), DWORD(start), SIZE_T(span));
        return view_ ? static_cast<const BYTE*>(view_) + (offset - start) : nullptr;
    }
    void release() override {
        if (view_) UnmapViewOfFile(view_);
        view_ = nullptr;
    }

private:
    HANDLE mapping_;
    uint64_t size_;
    DWORD granularity_;
    void* view_ = nullptr;
};

/* The registry of live archives and enumerators, so that a stale or
   foreign handle is refused rather than followed. */
struct Registry {
    std::mutex lock;
    std::set<const void*> live;
    uint32_t next_stamp = 1;
};

Registry& registry() {
    static Registry* r = new Registry;
    return *r;
}

bool is_live(const void* object) {
    std::lock_guard<std::mutex> hold(registry().lock);
    return registry().live.count(object) != 0;
}

/* Where the end record and the directory are. */
struct EndRecord {
    uint64_t at = 0;
    uint16_t count = 0;
    uint32_t directory_bytes = 0;
    uint32_t directory_offset = 0;
};

/*
 * Searches back for the end record. A candidate counts when its comment
 * fits the bytes after it and the directory it names ends before it; a
 * comment that happens to hold the signature is stepped over that way.
 */
HRESULT find_end_record(Source& source, EndRecord* end) {
    const uint64_t size = source.size();
    if (size < kEndRecordBytes) return QZE_CORRUPT_OR_UNKNOWN;
    const uint64_t tail = std::min<uint64_t>(size, kEndRecordBytes + kMaxCommentBytes);
    const uint64_t tail_start = size - tail;
    const BYTE* bytes = source.map(tail_start, size_t(tail));
    if (!bytes) return QZE_FILE_READ;
    HRESULT hr = QZE_CORRUPT_OR_UNKNOWN;
    for (uint64_t pos = tail - kEndRecordBytes + 1; pos-- > 0;) {
        const BYTE* r = bytes + pos;
        if (load_le32(r) != kEndRecordId) continue;
        const uint16_t this_disk = load_le16(r + 4);          // number of this disk
        const uint16_t directory_disk = load_le16(r + 6);     // disk with the directory
        const uint16_t count_here = load_le16(r + 8);         // entries on this disk
        const uint16_t count = load_le16(r + 10);             // entries in total
        const uint32_t directory_bytes = load_le32(r + 12);   // size of the directory
        const uint32_t directory_offset = load_le32(r + 16);  // offset of the directory
        const uint16_t comment_bytes = load_le16(r + 20);     // comment length
        const uint64_t at = tail_start + pos;
        if (at + kEndRecordBytes + comment_bytes > size) continue;
        // A ZIP64 locator just before the record means the real values live
        // in the ZIP64 end record, which this reader does not take.
        if (pos >= 20 && load_le32(r - 20) == kZip64EndLocatorId) {
            hr = QZE_UNSUPPORTED_FORMAT;
            break;
        }
        if (this_disk != 0 || directory_disk != 0 || count_here != count) {
            hr = QZE_UNSUPPORTED_FORMAT;
            break;
        }
        if (uint64_t(directory_offset) + directory_bytes > at) continue;
        end->at = at;
        end->count = count;
        end->directory_bytes = directory_bytes;
        end->directory_offset = directory_offset;
        hr = S_OK;
        break;
    }
    source.release();
    return hr;
}

/* Applies the ZIP64 extra block: each field left all ones in the header
   comes from the block, in the block's fixed order. */
bool apply_zip64(const BYTE* data, uint16_t length, uint32_t raw_uncompressed,
                 uint32_t raw_compressed, uint32_t raw_offset, Entry* e) {
    uint16_t at = 0;
    auto take = [&](uint64_t* field) {
        if (at + 8 > length) return false;
        *field = load_le64(data + at);
        at += 8;
        return true;
    };
    if (raw_uncompressed == kUnset32 && !take(&e->uncompressed)) return false;
    if (raw_compressed == kUnset32 && !take(&e->compressed)) return false;
    if (raw_offset == kUnset32 && !take(&e->local_offset)) return false;
    return true;
}

/*
 * Walks the extra field: ZIP64 sizes, and the Info-ZIP Unicode path, which
 * replaces an 8-bit name when its CRC shows it was made from that name.
 */
bool read_extra(const BYTE* extra, uint16_t length, const BYTE* raw_name, uint16_t name_bytes,
                uint32_t raw_uncompressed, uint32_t raw_compressed, uint32_t raw_offset, Entry* e) {
    bool zip64_needed =
        raw_uncompressed == kUnset32 || raw_compressed == kUnset32 || raw_offset == kUnset32;
    uint32_t at = 0;
    while (at + 4 <= length) {
        const uint16_t id = load_le16(extra + at);         // block id
        const uint16_t bytes = load_le16(extra + at + 2);  // block size
        const BYTE* data = extra + at + 4;
        if (at + 4 + bytes > length) break;  // a torn last block is ignored
        if (id == kExtraZip64 && zip64_needed) {
            if (!apply_zip64(data, bytes, raw_uncompressed, raw_compressed, raw_offset, e))
                return false;
            zip64_needed = false;
        } else if (id == kExtraUnicodePath && bytes > 5 && data[0] == 1 &&
                   !(e->flags & kFlagUtf8Name)) {
            const uint32_t name_crc = load_le32(data + 1);  // CRC-32 of the stored name
            if (name_crc == crc_of(raw_name, name_bytes)) {
                Text unicode;
                if (from_bytes(reinterpret_cast<const char*>(data + 5), bytes - 5u, true, &unicode))
                    e->name = unicode;
            }
        }
        at += 4u + bytes;
    }
    return !zip64_needed;
}

/* Decodes the central directory, held in `d` of `size` bytes. */
HRESULT read_directory(const BYTE* d, uint32_t size, const EndRecord& end, uint64_t archive_bytes,
                       std::vector<Entry>* entries) {
    uint32_t at = 0;
    while (at < size) {
        if (size - at < kCentralHeaderBytes) return QZE_CORRUPT_OR_UNKNOWN;
        const BYTE* c = d + at;
        if (load_le32(c) != kCentralHeaderId) return QZE_CORRUPT_OR_UNKNOWN;  // signature
        Entry e;
        // c + 4: version made by, c + 6: version needed (not needed here)
        e.flags = load_le16(c + 8);                           // general-purpose flags
        e.method = load_le16(c + 10);                         // compression method
        e.dos_time = load_le16(c + 12);                       // modification time
        e.dos_date = load_le16(c + 14);                       // modification date
        e.crc = load_le32(c + 16);                            // CRC-32
        const uint32_t raw_compressed = load_le32(c + 20);    // compressed size
        const uint32_t raw_uncompressed = load_le32(c + 24);  // uncompressed size
        const uint16_t name_bytes = load_le16(c + 28);        // name length
        const uint16_t extra_bytes = load_le16(c + 30);       // extra-field length
        const uint16_t comment_bytes = load_le16(c + 32);     // comment length
        // c + 34: disk number start, c + 36: internal, c + 38: external attributes
        const uint32_t raw_offset = load_le32(c + 42);  // offset of the local header
        const uint32_t record_bytes =
            kCentralHeaderBytes + name_bytes + extra_bytes + comment_bytes;
        if (size - at < record_bytes) return QZE_CORRUPT_OR_UNKNOWN;
        e.compressed = raw_compressed;
        e.uncompressed = raw_uncompressed;
        e.local_offset = raw_offset;
        const BYTE* name = c + kCentralHeaderBytes;
        if (!from_bytes(reinterpret_cast<const char*>(name), name_bytes,
                        (e.flags & kFlagUtf8Name) != 0, &e.name))
            return QZE_CORRUPT_OR_UNKNOWN;
        if (!read_extra(name + name_bytes, extra_bytes, name, name_bytes, raw_uncompressed,
                        raw_compressed, raw_offset, &e))
            return QZE_CORRUPT_OR_UNKNOWN;
        // The entry's header and data must lie in the entry area, before
        // the directory.
        e.damaged = e.local_offset > end.directory_offset ||
                    end.directory_offset - e.local_offset < kLocalHeaderBytes ||
                    e.compressed > end.directory_offset - e.local_offset - kLocalHeaderBytes ||
                    end.directory_offset > archive_bytes;
        e.limit = end.directory_offset;
        entries->push_back(std::move(e));
        at += record_bytes;
    }
    // The end record's count is 16 bits: a directory of more entries wraps it.
    if (uint16_t(entries->size()) != end.count) return QZE_CORRUPT_OR_UNKNOWN;
    return S_OK;
}

/*
 * Marks entries whose header and data share bytes with another entry's,
 * and bounds each entry by the next local header: the local header's own
 * name and extra lengths, which the directory does not give, must not carry
 * its data into the next entry.
 */
void mark_overlaps(std::vector<Entry>& entries) {
    std::vector<size_t> order(entries.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
        return entries[a].local_offset < entries[b].local_offset;
    });
    for (size_t k = 1; k < order.size(); ++k) {
        Entry& before = entries[order[k - 1]];
        Entry& after = entries[order[k]];
        before.limit = std::min(before.limit, after.local_offset);
        if (before.damaged) continue;
        const uint64_t before_end = before.local_offset + kLocalHeaderBytes + before.compressed;
        if (after.local_offset < before_end) {
            before.damaged = true;
            after.damaged = true;
        }
    }
}

HRESULT register_archive(Archive* archive) {
    std::lock_guard<std::mutex> hold(registry().lock);
    archive->stamp = registry().next_stamp++;
    registry().live.insert(archive);
    return S_OK;
}

HRESULT open_source(std::unique_ptr<Source> source, HQZZIP* zip) {
    Archive* archive = nullptr;
    const HRESULT hr = read_archive(std::move(source), &archive);
    if (FAILED(hr)) return hr;
    *zip = reinterpret_cast<HQZZIP>(archive);
    return S_OK;
}

HRESULT last_error_result() {
    const DWORD error = GetLastError();
    return error ? HRESULT(0x80070000u | (error & 0xFFFFu)) : E_FAIL;
}

HRESULT step(HQZZIPENUM handle, QZZIPENTRYINFO* info, bool safe_only) {
    Enumerator* e = enumerator_of(handle);
    if (!e) return E_INVALIDARG;
    const LONG count = LONG(e->archive->entries.size());
    LONG next = e->index + 1;
    while (safe_only && next < count && !is_safe_name(e->archive->entries[size_t(next)].name))
        ++next;
    if (next >= count) {
        e->index = count;
        return S_FALSE;
    }
    e->index = next;
    if (info) {
        const Entry& entry = e->archive->entries[size_t(next)];
        *info = QZZIPENTRYINFO{};
        info->index = DWORD(next);
        info->flags = entry.flags;
        info->method = entry.method;
        info->dos_time = entry.dos_time;
        info->dos_date = entry.dos_date;
        info->crc32 = entry.crc;
        info->compressed_size = entry.compressed;
        info->uncompressed_size = entry.uncompressed;
        info->is_folder = entry.is_folder() ? TRUE : FALSE;
        info->name_length = DWORD(entry.name.size());
    }
    return S_OK;
}

}  // namespace

std::unique_ptr<Source> make_memory_source(const void* data, DWORD size) {
    return std::make_unique<MemorySource>(data, size);
}

std::unique_ptr<Source> make_file_source(LPCWSTR path, DWORD share, HRESULT* hr) {
    HANDLE file = CreateFileW(path, GENERIC_READ, share, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        *hr = QZE_FILE_OPEN;
        return nullptr;
    }
    LARGE_INTEGER size{};
    const BOOL sized = GetFileSizeEx(file, &size);
    // An empty file has no mapping, and no archive either.
    HANDLE mapping = sized && size.QuadPart > 0
                         ? CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr)
                         : nullptr;
    CloseHandle(file);
    if (!mapping) {
        *hr = sized ? QZE_CORRUPT_OR_UNKNOWN : QZE_FILE_READ;
        return nullptr;
    }
    SYSTEM_INFO info{};
    GetSystemInfo(&info);
    const DWORD granularity = info.dwAllocationGranularity ? info.dwAllocationGranularity : 65536;
    try {
        return std::make_unique<FileSource>(mapping, uint64_t(size.QuadPart), granularity);
    } catch (...) {
        CloseHandle(mapping);
        throw;
    }
}

HRESULT read_archive(std::unique_ptr<Source> source, Archive** archive) {
    EndRecord end;
    HRESULT hr = find_end_record(*source, &end);
    if (FAILED(hr)) return hr;
    auto made = std::make_unique<Archive>();
    made->end_record_count = end.count;
    if (end.directory_bytes) {
        const BYTE* directory = source->map(end.directory_offset, end.directory_bytes);
        if (!directory) return QZE_FILE_READ;
        hr = read_directory(directory, end.directory_bytes, end, source->size(), &made->entries);
        source->release();
        if (FAILED(hr)) return hr;
    } else if (end.count != 0) {
        return QZE_CORRUPT_OR_UNKNOWN;
    }
    mark_overlaps(made->entries);
    made->source = std::move(source);
    register_archive(made.get());
    *archive = made.release();
    return S_OK;
}

Archive* archive_of(HQZZIP zip) {
    Archive* archive = reinterpret_cast<Archive*>(zip);
    return archive && is_live(archive) ? archive : nullptr;
}

void release_archive(Archive* archive) {
    if (--archive->references > 0) return;
    {
        std::lock_guard<std::mutex> hold(registry().lock);
        registry().live.erase(archive);
    }
    delete archive;
}

Enumerator* enumerator_of(HQZZIPENUM handle) {
    Enumerator* e = reinterpret_cast<Enumerator*>(handle);
    if (!e || !is_live(e)) return nullptr;
    return e->archive->stamp == e->stamp ? e : nullptr;
}

const Entry* current_entry(const Enumerator& e) {
    if (e.index < 0 || size_t(e.index) >= e.archive->entries.size()) return nullptr;
    return &e.archive->entries[size_t(e.index)];
}

long find_entry(const Archive& archive, LPCWSTR name) {
    auto same = [](WCHAR a, WCHAR b) {
        if (a == u'/') a = u'\\';
        if (b == u'/') b = u'\\';
        return a == b;
    };
    const size_t length = std::char_traits<WCHAR>::length(name);
    for (size_t i = 0; i < archive.entries.size(); ++i) {
        const Text& candidate = archive.entries[i].name;
        if (candidate.size() == length &&
            std::equal(candidate.begin(), candidate.end(), name, same))
            return long(i);
    }
    return -1;
}

}  // namespace qz::zip

using namespace qz::zip;

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZip_Open(LPCWSTR path, DWORD flags, HQZZIP* zip) {
    if (zip) *zip = nullptr;
    if (!path || !zip) return E_INVALIDARG;
    return qz::base::guarded([&]() -> HRESULT {
        std::unique_ptr<Source> source;
        if (flags & QZZIP_OPEN_MEMORY) {
            const auto* memory = reinterpret_cast<const QZZIP_MEMORY*>(path);
            if (!memory->data) return E_INVALIDARG;
            source = make_memory_source(memory->data, memory->size);
        } else {
            HRESULT hr = S_OK;
            const DWORD share =
                FILE_SHARE_READ | ((flags & QZZIP_OPEN_SHARE_WRITE) ? FILE_SHARE_WRITE : 0);
            source = make_file_source(path, share, &hr);
            if (!source) return hr;
        }
        return open_source(std::move(source), zip);
    });
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZip_OpenResource(LPCWSTR name, DWORD, HQZZIP* zip,
                                                         HMODULE module) {
    if (zip) *zip = nullptr;
    if (!name || !zip) return E_INVALIDARG;
    return qz::base::guarded([&]() -> HRESULT {
        HRSRC found = FindResourceW(module, name, QZTEXT("ZIP"));
        if (!found) return last_error_result();
        const DWORD size = SizeofResource(module, found);
        HGLOBAL loaded = LoadResource(module, found);
        const void* bytes = loaded ? LockResource(loaded) : nullptr;
        if (!bytes) return last_error_result();
        return open_source(make_memory_source(bytes, size), zip);
    });
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZip_Close(HQZZIP zip) {
    if (!zip) return S_OK;
    Archive* archive = archive_of(zip);
    if (!archive) return E_HANDLE;
    release_archive(archive);
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZipEnum_Create(HQZZIP zip, HQZZIPENUM* enumerator) {
    if (enumerator) *enumerator = nullptr;
    if (!zip || !enumerator) return E_INVALIDARG;
    Archive* archive = archive_of(zip);
    if (!archive) return E_HANDLE;
    return qz::base::guarded([&]() -> HRESULT {
        auto e = std::make_unique<Enumerator>(Enumerator{archive, -1, 0, archive->stamp});
        {
            std::lock_guard<std::mutex> hold(registry().lock);
            registry().live.insert(e.get());
        }
        ++archive->references;
        *enumerator = reinterpret_cast<HQZZIPENUM>(e.release());
        return S_OK;
    });
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZipEnum_Destroy(HQZZIPENUM enumerator) {
    if (!enumerator) return S_OK;
    Enumerator* e = enumerator_of(enumerator);
    if (!e) return E_INVALIDARG;
    {
        std::lock_guard<std::mutex> hold(registry().lock);
        registry().live.erase(e);
    }
    release_archive(e->archive);
    delete e;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZipEnum_Next(HQZZIPENUM enumerator, QZZIPENTRYINFO* info) {
    return step(enumerator, info, false);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZipEnum_NextSafe(HQZZIPENUM enumerator,
                                                         QZZIPENTRYINFO* info) {
    return step(enumerator, info, true);
}

QZ_EXTERN_C QZ_API DWORD QZ_STDCALL QzZipEnum_GetFileCount(HQZZIP zip) {
    const Archive* archive = archive_of(zip);
    return archive ? DWORD(archive->entries.size()) : 0;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZipEnum_GetFileName(HQZZIPENUM enumerator, DWORD flags,
                                                            LPWSTR buffer, DWORD capacity) {
    Enumerator* e = enumerator_of(enumerator);
    if (!e || !buffer) return E_INVALIDARG;
    const Entry* entry = current_entry(*e);
    if (!entry) {
        if (capacity) buffer[0] = 0;
        return QZE_NOT_FOUND;
    }
    const Text& name = entry->name;
    const size_t copied = capacity ? std::min<size_t>(name.size(), capacity - 1) : 0;
    if (capacity) {
        name.copy(buffer, copied);
        buffer[copied] = 0;
        if (flags & QZZIP_NAME_NATIVE) {
#if defined(_WIN32)
            std::replace(buffer, buffer + copied, WCHAR(u'/'), WCHAR(u'\\'));
#else
            std::replace(buffer, buffer + copied, WCHAR(u'\\'), WCHAR(u'/'));
#endif
        }
    }
    return copied == name.size() && capacity ? S_OK : QZE_BUFFER_TOO_SMALL;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZipEnum_GetUncompressedSizeFromIndex(HQZZIP zip,
                                                                             DWORD index,
                                                                             ULONGLONG* size) {
    const Archive* archive = archive_of(zip);
    if (!archive || !size) return E_INVALIDARG;
    if (index >= archive->entries.size()) return QZE_NOT_FOUND;
    *size = archive->entries[index].uncompressed;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZipEnum_GetUncompressedSizeFromName(HQZZIP zip,
                                                                            LPCWSTR name,
                                                                            ULONGLONG* size) {
    const Archive* archive = archive_of(zip);
    if (!archive || !name || !size) return E_INVALIDARG;
    const long index = find_entry(*archive, name);
    if (index < 0) return QZE_NOT_FOUND;
    *size = archive->entries[size_t(index)].uncompressed;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZipEnum_GetTotalUncompressedSize(HQZZIP zip,
                                                                         ULONGLONG* size) {
    const Archive* archive = archive_of(zip);
    if (!archive || !size) return E_INVALIDARG;
    ULONGLONG total = 0;
    for (const Entry& e : archive->entries) total += e.uncompressed;
    *size = total;
    return S_OK;
}
