// riff64_*: the chunk and list searches, list counts and steps, through
// the shared walk.
#include "chunkfiles/riff64_io.h"
#include "qz/riff64.h"

using namespace qz::riff64;

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_FindChunkHeader(HANDLE file, GUID label,
                                                             ULONGLONG* size, LONGLONG* remaining) {
    FileSource source(file);
    return qz::chunks::find_chunk<Riff64Layout>(source, label, size, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_FindChunkHeaderInRIFF(HANDLE file, GUID label,
                                                                   ULONGLONG* size,
                                                                   LONGLONG* remaining) {
    FileSource source(file);
    return qz::chunks::find_chunk_in_file<Riff64Layout>(source, rewind_to_top_level, label, size,
                                                        remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_FindListChunk(HANDLE file, GUID list_type,
                                                           ULONGLONG* size, LONGLONG* remaining) {
    FileSource source(file);
    return qz::chunks::find_list<Riff64Layout>(source, list_type, size, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_FindListChunkFromStart(HANDLE file, GUID list_type,
                                                                    ULONGLONG* size) {
    FileSource source(file);
    return qz::chunks::find_list_in_file<Riff64Layout>(source, rewind_to_top_level, list_type,
                                                       size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_GetNumListEntries(HANDLE file, DWORD* count,
                                                               LONGLONG* remaining) {
    if (!count) return E_INVALIDARG;
    FileSource source(file);
    return qz::chunks::count_entries<Riff64Layout>(source, count, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_SeekListEntry(HANDLE file, DWORD index,
                                                           LONGLONG* remaining) {
    FileSource source(file);
    return qz::chunks::seek_entry<Riff64Layout>(source, index, remaining);
}
