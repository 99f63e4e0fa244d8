/*
 * qzzip.h - zip archives: CArchive writes them, QzZip_* and QzZipEnum_*
 * read, list and extract them.
 *
 * CArchive is a one-pass writer. Every file is compressed with raw deflate,
 * folders become empty entries whose names end in a backslash, and the
 * central directory follows the entries. Names are relative to the folder
 * that holds the path given, use backslashes, and are written in the ANSI
 * code page. The records are plain PKWARE zip: no ZIP64, no data
 * descriptors, no archive comment, one disk; sizes and offsets are the low
 * 32 bits, and entry counts wrap past 65,535. Folder entries keep method 8
 * with no data, which some tools report as a warning.
 *
 * The reader opens an archive held in a file, in memory or in a module's
 * resource of type "ZIP", reads its central directory (finding the end
 * record behind a trailing comment) and extracts stored and deflate entries
 * (data descriptors, UTF-8 names with flag bit 11, ZIP64 sizes in the extra
 * field). Every offset and size is checked against the archive before it
 * is used. Extraction into a folder never writes outside it: an entry whose
 * name holds a ".." component, starts with a slash or backslash, or holds
 * a colon (a drive letter) is refused with QZE_BAD_FILE_NAME. A declared
 * size that the data does not inflate to, a CRC mismatch, entries whose
 * data overlap, or a size no deflate stream of that length can produce give
 * QZE_CORRUPT_OR_UNKNOWN, and a partial output file is removed.
 *
 * All functions return result codes (qzresult.h) unless stated.
 */
#ifndef QZ_QZZIP_H
#define QZ_QZZIP_H

#include "qzdefs.h"
#include "qzlist.h"
#include "qzresult.h"

#ifdef __cplusplus

#ifndef QZ_IQZPROGRESS_DEFINED
#define QZ_IQZPROGRESS_DEFINED
/*
 * The progress interface of long operations, implemented by the caller.
 * QueryCancel is asked before each piece of work; answering QZE_CANCELLED
 * stops the operation with that result (any other answer goes on).
 * SetPosition reports the bytes done so far; its answer is ignored.
 */
struct IQzProgress {
    virtual HRESULT QZ_STDCALL QueryCancel() = 0;
    virtual HRESULT QZ_STDCALL SetPosition(ULONGLONG position) = 0;

protected:
    ~IQzProgress() = default;
};
#endif

/* AddEntryToArchive flags: open the inputs sharing write access too. */
#define QZARCHIVE_SHARE_WRITE 0x00000001u

/*
 * The archive writer. Use DoArchive for the whole job, or Open, one
 * AddEntryToArchive per path, AddCentralDirectory and Close. The object
 * owns the archive handle and its list of written entries; the caller owns
 * the paths and the progress interface it passes (which must outlive the
 * calls that use it).
 */
class QZ_API CArchive {
public:
    /* No file, no entry list, offset 0, level -1 (zlib's default). */
    CArchive();
    /* Closes the archive handle and frees the entry list (as Close). */
    virtual ~CArchive();
    CArchive(const CArchive&) = delete;
    CArchive& operator=(const CArchive&) = delete;

    /*
     * Creates or truncates `archive_path` for writing (no sharing) and keeps
     * `level` (-1 default, 0 stored-in-deflate .. 9 best) for the entries.
     * An archive already open is closed first, without a directory.
     * E_INVALIDARG for a null path; QZE_FILE_CREATE when the file cannot be
     * created; E_OUTOFMEMORY.
     */
    HRESULT QZ_STDCALL Open(LPCWSTR archive_path, int level);

    /*
     * Adds the file `path`, or the folder `path` with everything under it
     * (a folder entry, then its children in the order the system lists
     * them, folders walked in turn). Names are relative to the folder part
     * of `path`; trailing separators of `path` are ignored. `progress` (may
     * be null) is asked before each 128 KiB of input and told the bytes
     * read of the current file. `flags`: QZARCHIVE_SHARE_WRITE.
     * E_INVALIDARG for a null path; QZE_FILE_CREATE when the archive is not
     * open; QZE_FILE_OPEN or QZE_FILE_READ for an input that cannot be
     * opened or read; QZE_FILE_WRITE for a failed write or a deflate error;
     * QZE_BUFFER_TOO_SMALL for a deflate buffer error; QZE_CANCELLED;
     * E_OUTOFMEMORY. Entries written before a failure stay in the archive.
     */
    HRESULT QZ_STDCALL AddEntryToArchive(LPCWSTR path, IQzProgress* progress, DWORD flags);

    /*
     * Writes the central directory of the entries added and the end record.
     * S_OK and nothing written when no archive was opened; QZE_FILE_WRITE.
     */
    HRESULT QZ_STDCALL AddCentralDirectory();

    /*
     * The whole job: checks that the free space of the archive's folder, in
     * KiB, exceeds the sum of the inputs' sizes in KiB (each file's or
     * folder's bytes divided by 1024; QZE_DISK_FULL otherwise), opens the
     * archive (QZE_FILE_CREATE), adds each non-null path of `paths` (a
     * pointer list of wide paths; null adds nothing) until one fails,
     * writes the central directory (also after a failure) and closes. Past
     * the space check and the opening, the result is that of writing the
     * directory: a failed path leaves the entries before it in a valid
     * archive.
     */
    HRESULT QZ_STDCALL DoArchive(LPCWSTR archive_path, tQZLIST* paths, int level);

    /* Closes the archive handle and destroys the entry list. */
    void QZ_STDCALL Close();

private:
    HANDLE m_file;           /* the archive, null when closed */
    tQZLIST* m_entries;      /* one record per written entry */
    DWORD m_offset;          /* where the next record goes */
    IQzProgress* m_progress; /* of the current AddEntryToArchive, may be null */
    int m_level;             /* zlib compression level */
};

#else
typedef struct IQzProgress IQzProgress;
#endif /* __cplusplus */

/* ---- reading ------------------------------------------------------------- */

/* An open archive and an enumerator of its entries. */
typedef struct QZZIP__* HQZZIP;
typedef struct QZZIPENUM__* HQZZIPENUM;

/*
 * QzZip_Open flags. With QZZIP_OPEN_MEMORY `path` is not a path but the
 * address of a QZZIP_MEMORY record (cast to LPCWSTR) naming bytes that the
 * caller keeps unchanged until the archive is closed; they are not copied.
 * QZZIP_OPEN_SHARE_WRITE lets other handles write the file while it is
 * open (read sharing only otherwise).
 */
#define QZZIP_OPEN_MEMORY 0x00000001u
#define QZZIP_OPEN_SHARE_WRITE 0x00000002u

typedef struct tQZZIP_MEMORY {
    LPCVOID data;
    DWORD size;
} QZZIP_MEMORY;

/* Extraction flags: fail with QZE_FILE_EXISTS rather than replace a file. */
#define QZZIP_EXTRACT_NO_OVERWRITE 0x00000001u

/* QzZipEnum_GetFileName flags: the name with the platform's separators
   rather than as stored. */
#define QZZIP_NAME_NATIVE 0x00000001u

/* What QzZipEnum_Next reports of the entry it steps to. */
typedef struct tQZZIPENTRYINFO {
    DWORD index;   /* position in the central directory */
    WORD flags;    /* general-purpose flags as stored */
    WORD method;   /* 0 stored, 8 deflate (others cannot be extracted) */
    WORD dos_time; /* modification time and date, MS-DOS format */
    WORD dos_date;
    DWORD crc32; /* of the uncompressed data */
    ULONGLONG compressed_size;
    ULONGLONG uncompressed_size;
    BOOL is_folder;    /* the name ends in a slash or backslash */
    DWORD name_length; /* UTF-16 units, without the terminating zero */
} QZZIPENTRYINFO;

QZ_EXTERN_C_BEGIN

/*
 * Opens an archive and reads its central directory. `flags`: QZZIP_OPEN_*.
 * *zip receives the handle (null on failure); release it with QzZip_Close.
 * E_INVALIDARG for a null path or out pointer (or a null QZZIP_MEMORY
 * record or data); QZE_FILE_OPEN when the file cannot be opened;
 * QZE_CORRUPT_OR_UNKNOWN when no valid directory is found;
 * QZE_UNSUPPORTED_FORMAT for a directory on several disks or in ZIP64
 * form; E_OUTOFMEMORY.
 */
QZ_API HRESULT QZ_STDCALL QzZip_Open(LPCWSTR path, DWORD flags, HQZZIP* zip);

/*
 * Opens the resource `name` of type "ZIP" in `module` (null: the host
 * executable; on POSIX hosts register resources with QzPosix_AddResource).
 * `flags` is reserved (0). The resource stays in place until QzZip_Close.
 * A resource that cannot be found or loaded gives the platform's last error
 * as a result code (0x8007xxxx); otherwise as QzZip_Open.
 */
QZ_API HRESULT QZ_STDCALL QzZip_OpenResource(LPCWSTR name, DWORD flags, HQZZIP* zip,
                                             HMODULE module);

/* Releases the caller's hold on the archive; enumerators keep it alive until
   they are destroyed. Null is ignored. S_OK; E_HANDLE for a foreign handle. */
QZ_API HRESULT QZ_STDCALL QzZip_Close(HQZZIP zip);

/*
 * Extracts the entry named `entry_name` (stored names; slash and backslash
 * match each other) to the file `target_path`, replacing it unless `flags`
 * has QZZIP_EXTRACT_NO_OVERWRITE. `progress` (may be null) is asked before
 * each piece and told the bytes written. A folder entry creates the folder.
 * E_INVALIDARG for a null argument; QZE_NOT_FOUND; QZE_FILE_EXISTS;
 * QZE_FILE_CREATE or QZE_FILE_WRITE; QZE_CORRUPT_OR_UNKNOWN (the partial
 * file is removed); QZE_UNSUPPORTED_FORMAT for an encrypted entry;
 * QZE_CANCELLED (the partial file is removed).
 */
QZ_API HRESULT QZ_STDCALL QzZip_ExtractFile(HQZZIP zip, LPCWSTR entry_name, LPCWSTR target_path,
                                            DWORD flags, IQzProgress* progress);

/*
 * Extracts the entry named `entry_name` into a new block of caller memory
 * (locked movable global memory; release it with GlobalUnlock and
 * GlobalFree(GlobalHandle(*data))). *data receives the block (null for an
 * empty entry and on failure), *size its bytes. E_INVALIDARG; QZE_NOT_FOUND;
 * QZE_SIZE_LIMIT for an entry of 4 GiB or more; E_OUTOFMEMORY; the
 * extraction codes of QzZip_ExtractFile.
 */
QZ_API HRESULT QZ_STDCALL QzZip_ExtractToMemory(HQZZIP zip, LPCWSTR entry_name, void** data,
                                                DWORD* size);

/*
 * Extracts every entry under the folder `folder` (created if missing),
 * creating the folders on the way. Entries with unsafe names are skipped
 * and the others extracted; a failed entry does not stop the rest, except
 * for QZE_CANCELLED and E_OUTOFMEMORY. `flags`: QZZIP_EXTRACT_NO_OVERWRITE.
 * `progress` (may be null) is told the bytes written in all. The result is
 * S_OK or the first failure (QZE_BAD_FILE_NAME for a skipped name).
 */
QZ_API HRESULT QZ_STDCALL QzZip_ExtractAll(HQZZIP zip, LPCWSTR folder, DWORD flags,
                                           IQzProgress* progress);

/*
 * Creates an enumerator standing before the first entry; it holds the
 * archive open until QzZipEnum_Destroy. E_INVALIDARG for a null argument,
 * E_HANDLE for a foreign archive handle, E_OUTOFMEMORY.
 */
QZ_API HRESULT QZ_STDCALL QzZipEnum_Create(HQZZIP zip, HQZZIPENUM* enumerator);
/* Destroys the enumerator and releases its hold on the archive. Null is ignored. */
QZ_API HRESULT QZ_STDCALL QzZipEnum_Destroy(HQZZIPENUM enumerator);

/*
 * Steps to the next entry and fills `info` (may be null). S_OK; S_FALSE
 * past the last entry (it stays there, `info` untouched); E_INVALIDARG for
 * a null or foreign enumerator. QzZipEnum_NextSafe steps over the entries
 * that extraction into a folder would refuse (unsafe names), so that a
 * host listing only what it can extract sees just those.
 */
QZ_API HRESULT QZ_STDCALL QzZipEnum_Next(HQZZIPENUM enumerator, QZZIPENTRYINFO* info);
QZ_API HRESULT QZ_STDCALL QzZipEnum_NextSafe(HQZZIPENUM enumerator, QZZIPENTRYINFO* info);

/* The number of entries in the directory (that of the end record, more when
   a directory of over 65,535 entries let it wrap); 0 for a null handle. */
QZ_API DWORD QZ_STDCALL QzZipEnum_GetFileCount(HQZZIP zip);

/*
 * Copies the current entry's name, with its terminating zero, into `buffer`
 * of `capacity` characters. `flags`: QZZIP_NAME_NATIVE. E_INVALIDARG for a
 * null enumerator or buffer; QZE_NOT_FOUND before the first entry and past
 * the last; QZE_BUFFER_TOO_SMALL when the name does not fit (the buffer
 * then holds as much of it as fits, terminated, when capacity > 0).
 */
QZ_API HRESULT QZ_STDCALL QzZipEnum_GetFileName(HQZZIPENUM enumerator, DWORD flags, LPWSTR buffer,
                                                DWORD capacity);

/* Uncompressed sizes: of the entry at `index`, of the entry named `name`,
   of all entries. E_INVALIDARG for a null argument; QZE_NOT_FOUND. */
QZ_API HRESULT QZ_STDCALL QzZipEnum_GetUncompressedSizeFromIndex(HQZZIP zip, DWORD index,
                                                                 ULONGLONG* size);
QZ_API HRESULT QZ_STDCALL QzZipEnum_GetUncompressedSizeFromName(HQZZIP zip, LPCWSTR name,
                                                                ULONGLONG* size);
QZ_API HRESULT QZ_STDCALL QzZipEnum_GetTotalUncompressedSize(HQZZIP zip, ULONGLONG* size);

/*
 * Extracts the current entry into `folder` (created if missing), under its
 * own relative name, or under `file_name` when that is not null (a name
 * relative to the folder, held to the same safety rules). `flags` and
 * `progress` as for QzZip_ExtractFile. QZE_NOT_FOUND when the enumerator
 * stands on no entry; QZE_BAD_FILE_NAME for an unsafe name; otherwise the
 * codes of QzZip_ExtractFile.
 */
QZ_API HRESULT QZ_STDCALL QzZipEnum_Extract(HQZZIPENUM enumerator, LPCWSTR folder,
                                            LPCWSTR file_name, DWORD flags, IQzProgress* progress);

/*
 * Extracts the current entry into the caller's `buffer` of `capacity`
 * bytes (null only with an empty entry). QZE_BUFFER_TOO_SMALL when the
 * entry is larger (nothing written); QZE_NOT_FOUND; the extraction codes.
 */
QZ_API HRESULT QZ_STDCALL QzZipEnum_ExtractToMemory(HQZZIPENUM enumerator, void* buffer,
                                                    DWORD capacity);

QZ_EXTERN_C_END

#endif /* QZ_QZZIP_H */
