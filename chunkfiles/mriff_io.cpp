// The memory image as the mriff_ family reads and writes it.
#include "chunkfiles/mriff_io.h"

#include <algorithm>
#include <cstring>

namespace qz::mriff {

namespace {

// Puts `p` within lo .. hi (addresses), keeping it a pointer into the image.
void clamp_pointer(BYTE*& p, BYTE* base, uintptr_t lo, uintptr_t hi) {
    const uintptr_t at = uintptr_t(p);
    if (at < lo) p = base + (lo - uintptr_t(base));
    if (at > hi) p = base + (hi - uintptr_t(base));
}

}  // namespace

MemorySource::MemorySource(_tMRIFF& cursor) : m_(cursor) {
    const uintptr_t base = uintptr_t(m_.pBase);
    // Offsets are 32-bit: an image never spans more than 4 GiB - 1.
    const uintptr_t most = base + std::min<uintptr_t>(UINTPTR_MAX - base, 0xFFFFFFFFu);
    clamp_pointer(m_.pCapacityEnd, m_.pBase, base, most);
    clamp_pointer(m_.pDataEnd, m_.pBase, base, uintptr_t(m_.pCapacityEnd));
    clamp_pointer(m_.pCurrent, m_.pBase, base, uintptr_t(m_.pDataEnd));
}

DWORD MemorySource::read_short(void* buffer, DWORD count) {
    const DWORD n = std::min<DWORD>(count, DWORD(m_.pDataEnd - m_.pCurrent));
    if (n == 0) return 0;
    std::memcpy(buffer, m_.pCurrent, n);
    m_.pCurrent += n;
    return n;
}

DWORD MemorySource::write_some(const void* data, DWORD count) {
    const DWORD n = std::min<DWORD>(count, DWORD(m_.pCapacityEnd - m_.pCurrent));
    if (n == 0) return 0;
    // The data may come from the image itself.
    std::memmove(m_.pCurrent, data, n);
    m_.pCurrent += n;
    if (m_.pCurrent > m_.pDataEnd) m_.pDataEnd = m_.pCurrent;
    return n;
}

_tMRIFF read_cursor(LPCVOID base, DWORD size) {
    BYTE* bytes = static_cast<BYTE*>(const_cast<LPVOID>(base));
    _tMRIFF m{};
    m.pBase = bytes;
    m.pCurrent = bytes;
    m.pDataEnd = bytes + size;
    m.pCapacityEnd = bytes + size;
    m.dwInitialSize = size;
    m.dwCapacity = size;
    return m;
}

HRESULT read_file_header(MemorySource& image, DWORD* riff_size, DWORD* form_type) {
    const auto header = chunks::read_file_header<chunks::RiffLayout>(image);
    if (header.arrived < 8 || header.id != kRiffId) {
        if (header.arrived > 8) image.skip(int64_t(8) - int64_t(header.arrived));
        return QZE_NO_RIFF_HEADER;
    }
    if (header.arrived < kFileHeaderBytes) return QZE_FILE_READ;
    *riff_size = header.size;
    *form_type = header.form;
    return S_OK;
}

}  // namespace qz::mriff
