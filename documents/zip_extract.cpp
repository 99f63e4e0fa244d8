// Extraction: an entry's data, checked against its sizes and CRC, into a
// file, a caller's buffer or a new block of caller memory.
//
// Nothing is allocated or written before the entry's declared sizes have
// been checked against the archive: the data must lie inside it, must not
// share bytes with another entry, and a deflate stream of that length must
// be able to produce the declared size. While inflating, the output is held
// to the declared size, so a stream that would give more stops with an
// error instead of growing anything.
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "base/byteorder.h"
#include "base/caller_memory.h"
#include "base/guard.h"
#include "documents/zip_archive.h"

using qz::base::load_le16;
using qz::base::load_le32;

namespace qz::zip {

bool is_safe_name(const Text& name) {
    if (name.empty() || name[0] == u'/' || name[0] == u'\\') return false;
    size_t start = 0;
    for (size_t i = 0; i <= name.size(); ++i) {
        const WCHAR c = i < name.size() ? name[i] : WCHAR(u'/');
        if (c == 0 || c == u':') return false;  // drive letters and streams
        if (c != u'/' && c != u'\\') continue;
        // Windows drops trailing dots and blanks from a path component, so
        // ". ." or "..." would climb like "..": any component of dots and
        // blanks alone, but for ".", is refused.
        const Text part = name.substr(start, i - start);
        if (part != QZTEXT(".") && !part.empty() &&
            part.find_first_not_of(QZTEXT(". ")) == Text::npos)
            return false;
        start = i + 1;
    }
    return true;
}

}  // namespace qz::zip

using namespace qz::zip;

namespace {

/* The largest expansion of deflate: a 258-byte match costs at least two
   bits, so one compressed byte gives at most 1,032 bytes. */
constexpr uint64_t kMaxDeflateRatio = 1032;
constexpr uint64_t kRatioSlack = 1024;
constexpr size_t kInputPiece = 1 << 20;
constexpr size_t kFileBuffer = 256 * 1024;
constexpr int kRawInflateWindow = -15;

/* Where extracted bytes go: space() offers room, commit() takes what was put there. */
class Sink {
public:
    virtual ~Sink() = default;
    virtual BYTE* space(size_t* room) = 0;
    virtual HRESULT commit(size_t bytes) = 0;
    virtual HRESULT finish() { return S_OK; }
};

class BufferSink : public Sink {
public:
    BufferSink(BYTE* buffer, size_t size) : buffer_(buffer), size_(size) {}
    BYTE* space(size_t* room) override {
        *room = size_ - used_;
        return buffer_ + used_;
    }
    HRESULT commit(size_t bytes) override {
        used_ += bytes;
        return S_OK;
    }

private:
    BYTE* buffer_;
    size_t size_;
    size_t used_ = 0;
};

class FileSink : public Sink {
public:
    explicit FileSink(HANDLE file) : file_(file), buffer_(new BYTE[kFileBuffer]) {}
    BYTE* space(size_t* room) override {
        *room = kFileBuffer - used_;
        return buffer_.get() + used_;
    }
    HRESULT commit(size_t bytes) override {
        used_ += bytes;
        return used_ == kFileBuffer ? flush() : S_OK;
    }
    HRESULT finish() override { return flush(); }

private:
    HRESULT flush() {
        DWORD written = 0;
        if (used_ &&
            (!WriteFile(file_, buffer_.get(), DWORD(used_), &written, nullptr) || written != used_))
            return QZE_FILE_WRITE;
        used_ = 0;
        return S_OK;
    }
    HANDLE file_;
    std::unique_ptr<BYTE[]> buffer_;
    size_t used_ = 0;
};

/*
 * Checks what can be checked before any output: the method, encryption,
 * the local header, and the sizes against the archive and each other.
 * *data_offset receives where the entry's data starts.
 */
HRESULT check_entry(Archive& archive, const Entry& e, uint64_t* data_offset) {
    if (e.flags & kFlagEncrypted) return QZE_UNSUPPORTED_FORMAT;
    if (e.method != kMethodStored && e.method != kMethodDeflate) return QZE_CORRUPT_OR_UNKNOWN;
    if (e.damaged) return QZE_CORRUPT_OR_UNKNOWN;
    BYTE h[kLocalHeaderBytes];
    if (!archive.source->read(e.local_offset, h, kLocalHeaderBytes)) return QZE_CORRUPT_OR_UNKNOWN;
    if (load_le32(h) != kLocalHeaderId) return QZE_CORRUPT_OR_UNKNOWN;  // signature
    const uint16_t name_bytes = load_le16(h + 26);                      // name length
    const uint16_t extra_bytes = load_le16(h + 28);                     // extra-field length
    const uint64_t start = e.local_offset + kLocalHeaderBytes + name_bytes + extra_bytes;
    if (start > e.limit || e.compressed > e.limit - start) return QZE_CORRUPT_OR_UNKNOWN;
    if (e.method == kMethodStored && e.compressed != e.uncompressed) return QZE_CORRUPT_OR_UNKNOWN;
    if (e.method == kMethodDeflate &&
        e.uncompressed / kMaxDeflateRatio > e.compressed + kRatioSlack)
        return QZE_CORRUPT_OR_UNKNOWN;
    *data_offset = start;
    return S_OK;
}

bool cancelled(IQzProgress* progress) {
    return progress && progress->QueryCancel() == QZE_CANCELLED;
}

HRESULT copy_stored(Source& source, uint64_t at, uint64_t size, Sink& sink, uint32_t* crc,
                    IQzProgress* progress, ULONGLONG base) {
    uint64_t done = 0;
    while (done < size) {
        if (cancelled(progress)) return QZE_CANCELLED;
        size_t room = 0;
        BYTE* out = sink.space(&room);
        const size_t piece = size_t(std::min<uint64_t>({size - done, room, kInputPiece}));
        const BYTE* in = source.map(at + done, piece);
        if (!in) return QZE_FILE_READ;
        std::memcpy(out, in, piece);
        source.release();
        *crc = uint32_t(crc32(*crc, out, uInt(piece)));
        HRESULT hr = sink.commit(piece);
        if (FAILED(hr)) return hr;
        done += piece;
        if (progress) progress->SetPosition(base + done);
    }
    return S_OK;
}

/*
 * Inflates the entry's data, giving the sink no more than the declared
 * size. A stream that ends early, runs past its compressed bytes, or would
 * write beyond the declared size is corrupt.
 */
HRESULT inflate_data(Source& source, uint64_t at, const Entry& e, Sink& sink, uint32_t* crc,
                     IQzProgress* progress, ULONGLONG base) {
    z_stream z{};
    if (inflateInit2(&z, kRawInflateWindow) != Z_OK) return E_OUTOFMEMORY;
    struct End {
        z_stream* z;
        Source* source;
        ~End() {
            inflateEnd(z);
            source->release();
        }
    } end{&z, &source};

    uint64_t fed = 0, produced = 0;
    BYTE probe = 0;
    for (;;) {
        if (cancelled(progress)) return QZE_CANCELLED;
        if (z.avail_in == 0 && fed < e.compressed) {
            const size_t piece = size_t(std::min<uint64_t>(e.compressed - fed, kInputPiece));
            const BYTE* in = source.map(at + fed, piece);
            if (!in) return QZE_FILE_READ;
            z.next_in = const_cast<BYTE*>(in);
            z.avail_in = uInt(piece);
            fed += piece;
        }
        size_t room = 0;
        BYTE* out = sink.space(&room);
        room = size_t(std::min<uint64_t>(room, e.uncompressed - produced));
        // With the declared size reached, a one-byte probe tells whether the
        // stream ends there or would go on.
        const bool probing = room == 0;
        z.next_out = probing ? &probe : out;
        z.avail_out = probing ? 1u : uInt(std::min<size_t>(room, 0x40000000u));
        const uInt offered = z.avail_out;
        const int code = inflate(&z, Z_NO_FLUSH);
        const size_t made = offered - z.avail_out;
        if (probing && made) return QZE_CORRUPT_OR_UNKNOWN;
        if (code == Z_MEM_ERROR) return E_OUTOFMEMORY;
        if (code != Z_OK && code != Z_STREAM_END && code != Z_BUF_ERROR)
            return QZE_CORRUPT_OR_UNKNOWN;
        if (made) {
            *crc = uint32_t(crc32(*crc, out, uInt(made)));
            HRESULT hr = sink.commit(made);
            if (FAILED(hr)) return hr;
            produced += made;
            if (progress) progress->SetPosition(base + produced);
        }
        if (code == Z_STREAM_END) break;
        if (made == 0 && z.avail_in == 0 && fed >= e.compressed) return QZE_CORRUPT_OR_UNKNOWN;
    }
    return produced == e.uncompressed ? S_OK : QZE_CORRUPT_OR_UNKNOWN;
}

/* Extracts entry `e` into `sink`, checking sizes and CRC. */
HRESULT extract_to(Archive& archive, const Entry& e, Sink& sink, IQzProgress* progress,
                   ULONGLONG base) {
    uint64_t at = 0;
    HRESULT hr = check_entry(archive, e, &at);
    if (FAILED(hr)) return hr;
    uint32_t crc = uint32_t(crc32(0, nullptr, 0));
    if (e.uncompressed == 0 && e.compressed == 0) {
        // An empty entry with no data at all: stored, or a folder entry that
        // keeps the deflate method without a stream.
    } else if (e.method == kMethodStored) {
        hr = copy_stored(*archive.source, at, e.compressed, sink, &crc, progress, base);
    } else {
        hr = inflate_data(*archive.source, at, e, sink, &crc, progress, base);
    }
    if (SUCCEEDED(hr)) hr = sink.finish();
    if (SUCCEEDED(hr) && crc != e.crc) hr = QZE_CORRUPT_OR_UNKNOWN;
    return hr;
}

bool is_separator(WCHAR c) {
    return c == u'/' || c == u'\\';
}

/* Creates `path` and the folders above it; true when it exists as a folder. */
bool make_folders(const Text& path) {
    for (size_t i = 1; i <= path.size(); ++i) {
        if (i < path.size() && !is_separator(path[i])) continue;
        const Text prefix = path.substr(0, i);
        const DWORD attributes = GetFileAttributesW(prefix.c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES) {
            if (!(attributes & FILE_ATTRIBUTE_DIRECTORY)) return false;
            continue;
        }
        if (!CreateDirectoryW(prefix.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS)
            return false;
    }
    return true;
}

Text parent_of(const Text& path) {
    size_t cut = path.size();
    while (cut > 0 && !is_separator(path[cut - 1])) --cut;
    while (cut > 1 && is_separator(path[cut - 1])) --cut;
    return path.substr(0, cut);
}

/* Writes entry `e` to the file `target` (or makes the folder); a failed
   file is removed. */
HRESULT extract_to_path(Archive& archive, const Entry& e, const Text& target, DWORD flags,
                        IQzProgress* progress, ULONGLONG base) {
    if (e.is_folder()) {
        Text folder = target;
        while (folder.size() > 1 && is_separator(folder.back())) folder.pop_back();
        return make_folders(folder) ? S_OK : QZE_FILE_CREATE;
    }
    uint64_t at = 0;
    HRESULT hr = check_entry(archive, e, &at);
    if (FAILED(hr)) return hr;
    const Text parent = parent_of(target);
    if (!parent.empty() && !make_folders(parent)) return QZE_FILE_CREATE;
    const DWORD disposition = (flags & QZZIP_EXTRACT_NO_OVERWRITE) ? CREATE_NEW : CREATE_ALWAYS;
    HANDLE file = CreateFileW(target.c_str(), GENERIC_WRITE, 0, nullptr, disposition,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        return error == ERROR_FILE_EXISTS ? QZE_FILE_EXISTS : QZE_FILE_CREATE;
    }
    try {
        FileSink sink(file);
        hr = extract_to(archive, e, sink, progress, base);
    } catch (...) {
        hr = E_OUTOFMEMORY;
    }
    CloseHandle(file);
    if (FAILED(hr)) DeleteFileW(target.c_str());
    return hr;
}

/* `folder` joined with a relative entry name, separators made backslashes. */
Text join(const Text& folder, const Text& name) {
    Text path = folder;
    if (!path.empty() && !is_separator(path.back())) path += u'\\';
    for (WCHAR c : name) path += c == u'/' ? WCHAR(u'\\') : c;
    return path;
}

HRESULT extract_named(HQZZIP zip, LPCWSTR name, const Entry** entry, Archive** archive) {
    *archive = archive_of(zip);
    if (!*archive || !name) return E_INVALIDARG;
    const long index = find_entry(**archive, name);
    if (index < 0) return QZE_NOT_FOUND;
    *entry = &(*archive)->entries[size_t(index)];
    return S_OK;
}

/* Extracts into a new block of caller memory. */
HRESULT extract_to_block(Archive& archive, const Entry& e, void** data, DWORD* size) {
    if (e.uncompressed > 0xFFFFFFFFu || e.uncompressed > SIZE_T(-1)) return QZE_SIZE_LIMIT;
    uint64_t at = 0;
    HRESULT hr = check_entry(archive, e, &at);
    if (FAILED(hr)) return hr;
    if (e.uncompressed == 0) {
        BufferSink empty(nullptr, 0);
        return extract_to(archive, e, empty, nullptr, 0);
    }
    void* block = qz::base::alloc_caller_block(SIZE_T(e.uncompressed));
    if (!block) return E_OUTOFMEMORY;
    BufferSink sink(static_cast<BYTE*>(block), size_t(e.uncompressed));
    hr = extract_to(archive, e, sink, nullptr, 0);
    if (FAILED(hr)) {
        qz::base::free_caller_block(block);
        return hr;
    }
    *data = block;
    *size = DWORD(e.uncompressed);
    return S_OK;
}

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZip_ExtractFile(HQZZIP zip, LPCWSTR entry_name,
                                                        LPCWSTR target_path, DWORD flags,
                                                        IQzProgress* progress) {
    return qz::base::guarded([&]() -> HRESULT {
        Archive* archive = nullptr;
        const Entry* entry = nullptr;
        if (!target_path) return E_INVALIDARG;
        const HRESULT hr = extract_named(zip, entry_name, &entry, &archive);
        if (FAILED(hr)) return hr;
        return extract_to_path(*archive, *entry, Text(target_path), flags, progress, 0);
    });
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZip_ExtractToMemory(HQZZIP zip, LPCWSTR entry_name,
                                                            void** data, DWORD* size) {
    if (data) *data = nullptr;
    if (size) *size = 0;
    if (!data || !size) return E_INVALIDARG;
    return qz::base::guarded([&]() -> HRESULT {
        Archive* archive = nullptr;
        const Entry* entry = nullptr;
        const HRESULT hr = extract_named(zip, entry_name, &entry, &archive);
        if (FAILED(hr)) return hr;
        return extract_to_block(*archive, *entry, data, size);
    });
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZip_ExtractAll(HQZZIP zip, LPCWSTR folder, DWORD flags,
                                                       IQzProgress* progress) {
    return qz::base::guarded([&]() -> HRESULT {
        Archive* archive = archive_of(zip);
        if (!archive || !folder) return E_INVALIDARG;
        const Text root(folder);
        if (!root.empty() && !make_folders(root)) return QZE_FILE_CREATE;
        HRESULT first = S_OK;
        ULONGLONG done = 0;
        for (const Entry& e : archive->entries) {
            HRESULT hr = is_safe_name(e.name) ? extract_to_path(*archive, e, join(root, e.name),
                                                                flags, progress, done)
                                              : QZE_BAD_FILE_NAME;
            if (hr == QZE_CANCELLED || hr == E_OUTOFMEMORY) return hr;
            if (FAILED(hr) && SUCCEEDED(first)) first = hr;
            if (SUCCEEDED(hr) && !e.is_folder()) done += e.uncompressed;
        }
        return first;
    });
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZipEnum_Extract(HQZZIPENUM enumerator, LPCWSTR folder,
                                                        LPCWSTR file_name, DWORD flags,
                                                        IQzProgress* progress) {
    return qz::base::guarded([&]() -> HRESULT {
        Enumerator* e = enumerator_of(enumerator);
        if (!e || !folder) return E_INVALIDARG;
        const Entry* entry = current_entry(*e);
        if (!entry) return QZE_NOT_FOUND;
        const Text name = file_name ? Text(file_name) : entry->name;
        if (!is_safe_name(name)) return QZE_BAD_FILE_NAME;
        const Text root(folder);
        if (!root.empty() && !make_folders(root)) return QZE_FILE_CREATE;
        return extract_to_path(*e->archive, *entry, join(root, name), flags, progress, 0);
    });
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzZipEnum_ExtractToMemory(HQZZIPENUM enumerator, void* buffer,
                                                                DWORD capacity) {
    return qz::base::guarded([&]() -> HRESULT {
        Enumerator* e = enumerator_of(enumerator);
        if (!e) return E_INVALIDARG;
        const Entry* entry = current_entry(*e);
        if (!entry) return QZE_NOT_FOUND;
        if (entry->uncompressed > capacity) return QZE_BUFFER_TOO_SMALL;
        if (!buffer && entry->uncompressed) return E_INVALIDARG;
        BufferSink sink(static_cast<BYTE*>(buffer), size_t(entry->uncompressed));
        return extract_to(*e->archive, *entry, sink, nullptr, 0);
    });
}
