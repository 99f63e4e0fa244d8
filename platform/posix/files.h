/*
 * files.h - file handles of the POSIX layer, shared with file mapping.
 *
 * Each file handle owns one descriptor and its own position (reads and
 * writes go through pread/pwrite, so a ReadFile costs one system call).
 * Files are identified by (device, inode): the table of open files keyed by
 * that identity is where share modes are checked and where mappings are
 * counted so that a mapped file cannot be cut under its views.
 */
#ifndef QZ_PLATFORM_POSIX_FILES_H
#define QZ_PLATFORM_POSIX_FILES_H

#include <sys/types.h>

#include <atomic>
#include <string>

#include "platform/posix/handles.h"

namespace qz::posix {

struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator<(const FileIdentity& other) const {
        return device != other.device ? device < other.device : inode < other.inode;
    }
};

/* What a handle may do with its file: the GENERIC_* rights reduced to bits. */
enum FileAccess : DWORD {
    kAccessRead = 1,
    kAccessWrite = 2,
    kAccessAppend = 8, /* writes only at the end (with kAccessWrite) */
};

class FileObject : public HandleObject {
public:
    FileObject(int fd, DWORD access, DWORD share, FileIdentity identity, bool seekable)
        : HandleObject(HandleKind::File),
          fd(fd),
          access(access),
          share(share),
          identity(identity),
          seekable(seekable) {}
    ~FileObject() override;
    bool close() override;

    const int fd;
    const DWORD access; /* FileAccess bits */
    const DWORD share;  /* FILE_SHARE_* bits */
    const FileIdentity identity;
    /* False for pipes and the like, which have no position of their own. */
    const bool seekable;
    std::atomic<LONGLONG> position{0};

    /* Set while the handle is being opened, under the table lock. */
    bool registered = false; /* listed in the table of open files */

private:
    /* Leaves the table of open files; the descriptor stays open until the
       last call using the handle returns. */
    void release();
    bool closed_ = false;
};

/*
 * A mapping of the file came or went. While any exists the file cannot be
 * cut or extended.
 */
void add_file_mapping(const FileIdentity& identity);
void remove_file_mapping(const FileIdentity& identity);

/* True while a mapping of the file exists. */
bool file_is_mapped(const FileIdentity& identity);

}  // namespace qz::posix

#endif
