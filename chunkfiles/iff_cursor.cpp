// iff_*: moves of the file pointer over chunks.
#include "chunkfiles/iff_io.h"
#include "qz/iff.h"

using namespace qz::iff;

QZ_EXTERN_C QZ_API DWORD QZ_STDCALL iff_SkipChunk(HANDLE file, DWORD size) {
    const uint64_t body = qz::chunks::aligned<IffLayout>(size);
    FileSource(file).skip(int64_t(body));
    return DWORD(body);
}
