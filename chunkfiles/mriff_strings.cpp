// mriff_*: text chunks of an image's "INFO" list.
#include <algorithm>

#include "chunkfiles/mriff_io.h"

using namespace qz::mriff;
using qz::chunks::RiffLayout;

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_GetInfoString(_tMRIFF* m, DWORD id, LPSTR buffer,
                                                          DWORD bufferSize, DWORD* remaining) {
    if (!m) return E_POINTER;
    MemorySource image(*m);
    const DWORD start = image.offset();
    DWORD list_left = 0;
    HRESULT hr = qz::chunks::find_list<RiffLayout>(image, kInfoList, &list_left, remaining);
    DWORD text_size = 0;
    if (SUCCEEDED(hr)) hr = qz::chunks::find_chunk<RiffLayout>(image, id, &text_size, &list_left);
    if (SUCCEEDED(hr)) hr = mriff_ReadData(m, buffer, std::min(text_size, bufferSize));
    image.move_to(start);
    return hr;
}
