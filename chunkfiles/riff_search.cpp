// riff_*: the chunk and list searches, list counts and steps, through the
// shared walk and a look-ahead block.
#include "chunkfiles/riff_io.h"
#include "qz/riff.h"

using namespace qz::riff;
using qz::chunks::RiffLayout;
using qz::chunks::walk_ahead;

namespace {

constexpr auto rewind_for_walk = [](auto& file, DWORD* remaining) {
    DWORD form = 0;
    return rewind_to_top_level(file, remaining, &form);
};

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_FindChunkHeader(HANDLE file, DWORD id, DWORD* size,
                                                           DWORD* remaining) {
    return walk_ahead(
        file,
        [&](auto& source) {
            return qz::chunks::find_chunk<RiffLayout>(source, id, size, remaining);
        },
        size, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_FindChunkHeaderInRIFF(HANDLE file, DWORD id, DWORD* size,
                                                                 DWORD* remaining) {
    return walk_ahead(
        file,
        [&](auto& source) {
            return qz::chunks::find_chunk_in_file<RiffLayout>(source, rewind_for_walk, id, size,
                                                              remaining);
        },
        size, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_FindListChunk(HANDLE file, DWORD list_type, DWORD* size,
                                                         DWORD* remaining) {
    return walk_ahead(
        file,
        [&](auto& source) {
            return qz::chunks::find_list<RiffLayout>(source, list_type, size, remaining);
        },
        size, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_FindListChunkFromStart(HANDLE file, DWORD list_type,
                                                                  DWORD* size) {
    return walk_ahead(
        file,
        [&](auto& source) {
            return qz::chunks::find_list_in_file<RiffLayout>(source, rewind_for_walk, list_type,
                                                             size);
        },
        size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_GetNumListEntries(HANDLE file, DWORD* count,
                                                             DWORD* remaining) {
    if (!count) return E_INVALIDARG;
    return walk_ahead(
        file,
        [&](auto& source) {
            return qz::chunks::count_entries<RiffLayout>(source, count, remaining);
        },
        count, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_SeekListEntry(HANDLE file, DWORD index,
                                                         DWORD* remaining) {
    return walk_ahead(
        file,
        [&](auto& source) { return qz::chunks::seek_entry<RiffLayout>(source, index, remaining); },
        remaining);
}
