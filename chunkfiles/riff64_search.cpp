// riff64_*: the chunk and list searches, list counts and steps, through
// the shared walk and a look-ahead block.
#include "chunkfiles/riff64_io.h"
#include "qz/riff64.h"

using namespace qz::riff64;
using qz::chunks::walk_ahead;

namespace {

constexpr auto rewind_for_walk = [](auto& file, LONGLONG* remaining) {
    return rewind_to_top_level(file, remaining);
};

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_FindChunkHeader(HANDLE file, GUID label,
                                                             ULONGLONG* size, LONGLONG* remaining) {
    return walk_ahead(
        file,
        [&](auto& source) {
            return qz::chunks::find_chunk<Riff64Layout>(source, label, size, remaining);
        },
        size, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_FindChunkHeaderInRIFF(HANDLE file, GUID label,
                                                                   ULONGLONG* size,
                                                                   LONGLONG* remaining) {
    return walk_ahead(
        file,
        [&](auto& source) {
            return qz::chunks::find_chunk_in_file<Riff64Layout>(source, rewind_for_walk, label,
                                                                size, remaining);
        },
        size, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_FindListChunk(HANDLE file, GUID list_type,
                                                           ULONGLONG* size, LONGLONG* remaining) {
    return walk_ahead(
        file,
        [&](auto& source) {
            return qz::chunks::find_list<Riff64Layout>(source, list_type, size, remaining);
        },
        size, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_FindListChunkFromStart(HANDLE file, GUID list_type,
                                                                    ULONGLONG* size) {
    return walk_ahead(
        file,
        [&](auto& source) {
            return qz::chunks::find_list_in_file<Riff64Layout>(source, rewind_for_walk, list_type,
                                                               size);
        },
        size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_GetNumListEntries(HANDLE file, DWORD* count,
                                                               LONGLONG* remaining) {
    if (!count) return E_INVALIDARG;
    return walk_ahead(
        file,
        [&](auto& source) {
            return qz::chunks::count_entries<Riff64Layout>(source, count, remaining);
        },
        count, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_SeekListEntry(HANDLE file, DWORD index,
                                                           LONGLONG* remaining) {
    return walk_ahead(
        file,
        [&](auto& source) {
            return qz::chunks::seek_entry<Riff64Layout>(source, index, remaining);
        },
        remaining);
}
