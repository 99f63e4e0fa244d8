// iff_*, aiff_*: byte swaps in memory and single big-endian fields on the file.
#include "chunkfiles/iff_io.h"
#include "qz/iff.h"

using namespace qz::iff;
using qz::base::load_be16;
using qz::base::load_le16;
using qz::base::load_le32;
using qz::base::store_be16;
using qz::base::store_be32;

// A swap is a load in one byte order stored in the other.
QZ_EXTERN_C QZ_API void QZ_STDCALL iff_ByteSwap16(LPVOID buffer, DWORD count) {
    auto* bytes = static_cast<unsigned char*>(buffer);
    for (DWORD i = 0; bytes && i < count; ++i)
        store_be16(bytes + 2 * size_t(i), load_le16(bytes + 2 * size_t(i)));
}

QZ_EXTERN_C QZ_API void QZ_STDCALL iff_ByteSwap32(LPVOID buffer, DWORD count) {
    auto* bytes = static_cast<unsigned char*>(buffer);
    for (DWORD i = 0; bytes && i < count; ++i)
        store_be32(bytes + 4 * size_t(i), load_le32(bytes + 4 * size_t(i)));
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL iff_ReadDWORD(HANDLE file, DWORD* value) {
    if (!value) return E_INVALIDARG;
    FileSource source(file);
    return qz::chunks::read_size<IffLayout>(source, value) ? S_OK : QZE_FILE_READ;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL iff_ReadWORD(HANDLE file, WORD* value) {
    if (!value) return E_INVALIDARG;
    unsigned char bytes[2];
    if (!FileSource(file).read(bytes, sizeof bytes)) return QZE_FILE_READ;
    *value = load_be16(bytes);
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL iff_WriteDWORD(HANDLE file, DWORD value) {
    FileSource sink(file);
    return qz::chunks::write_size<IffLayout>(sink, value) ? S_OK : QZE_FILE_WRITE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL iff_WriteWORD(HANDLE file, WORD value) {
    unsigned char bytes[2];
    store_be16(bytes, value);
    return FileSource(file).write(bytes, sizeof bytes) ? S_OK : QZE_FILE_WRITE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL aiff_WriteByteSwap16(HANDLE file, WORD value) {
    return iff_WriteWORD(file, value);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL aiff_WriteByteSwap32(HANDLE file, DWORD value) {
    return iff_WriteDWORD(file, value);
}
