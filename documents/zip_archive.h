// The reader's archive object: where the bytes come from and what the
// central directory says about each entry. Shared by the directory reader
// (zip_read.cpp) and extraction (zip_extract.cpp).
#ifndef QZ_DOCUMENTS_ZIP_ARCHIVE_H
#define QZ_DOCUMENTS_ZIP_ARCHIVE_H

#include <memory>
#include <vector>

#include "documents/zip_internal.h"

namespace qz::zip {

/*
 * The operations on an archive's bytes, one implementation per kind of
 * source (a file read through mapped views, or bytes in memory). At most
 * one mapped range is live at a time: map() replaces the previous one.
 */
class Source {
public:
    virtual ~Source() = default;
    /* Total bytes of the archive. */
    virtual uint64_t size() const = 0;
    /* The bytes [offset, offset + count), which the caller has checked lie
       within size(); null when the system cannot provide them. */
    virtual const BYTE* map(uint64_t offset, size_t count) = 0;
    /* Gives up the mapped range. */
    virtual void release() = 0;

    /* Copies [offset, offset + count) out; false past the end or on failure. */
    bool read(uint64_t offset, void* out, size_t count);
};

std::unique_ptr<Source> make_memory_source(const void* data, DWORD size);
/* A file source; null with *hr set (QZE_FILE_OPEN, QZE_CORRUPT_OR_UNKNOWN). */
std::unique_ptr<Source> make_file_source(LPCWSTR path, DWORD share, HRESULT* hr);

struct Entry {
    Text name; /* as stored, decoded */
    uint16_t flags = 0;
    uint16_t method = 0;
    uint16_t dos_time = 0;
    uint16_t dos_date = 0;
    uint32_t crc = 0;
    uint64_t compressed = 0;
    uint64_t uncompressed = 0;
    uint64_t local_offset = 0;
    /* Where the entry's bytes must end: the next local header, or the directory. */
    uint64_t limit = 0;
    /* Set at open: the entry's data lies outside the entry area, or shares
       bytes with another entry's; it cannot be extracted. */
    bool damaged = false;

    bool is_folder() const {
        return !name.empty() && (name.back() == u'/' || name.back() == u'\\');
    }
};

struct Archive {
    std::unique_ptr<Source> source;
    std::vector<Entry> entries;
    uint16_t end_record_count = 0;
    LONG references = 1;
    uint32_t stamp = 0; /* distinguishes archives made at the same address */
};

/* What an enumerator handle points to. */
struct Enumerator {
    Archive* archive;
    LONG index;     /* -1 before the first entry */
    DWORD reserved; /* 0 */
    uint32_t stamp; /* the archive's stamp when the enumerator was made */
};

/* The live enumerator behind a handle, or null. */
Enumerator* enumerator_of(HQZZIPENUM handle);
/* The entry the enumerator stands on, or null. */
const Entry* current_entry(const Enumerator& e);

/* Reads the directory of `source` into a new archive. */
HRESULT read_archive(std::unique_ptr<Source> source, Archive** archive);

/* The live archive behind a handle, or null. */
Archive* archive_of(HQZZIP zip);
/* Drops one reference; the last one frees the archive. */
void release_archive(Archive* archive);

/* The entry named `name` (slash and backslash alike), or -1. */
long find_entry(const Archive& archive, LPCWSTR name);

/* True when `name` can be joined to a folder without leaving it. */
bool is_safe_name(const Text& name);

}  // namespace qz::zip

#endif
