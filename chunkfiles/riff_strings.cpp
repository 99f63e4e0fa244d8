// riff_*: 8-bit text bodies in the ANSI code page.
#include <climits>
#include <memory>
#include <string>

#include "chunkfiles/riff_io.h"
#include "qz/riff.h"

using namespace qz::riff;

namespace {

struct HeapBlockFree {
    void operator()(char* p) const { HeapFree(GetProcessHeap(), 0, p); }
};
using HeapText = std::unique_ptr<char[], HeapBlockFree>;

/* A zeroed scratch block of the process heap; null when none is to be had. */
HeapText zeroed_text(SIZE_T bytes) {
    return HeapText(static_cast<char*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, bytes)));
}

constexpr uint8_t kPad = 0;

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_WriteANSIString(HANDLE file, LPCWSTR text,
                                                           DWORD* written) {
    if (written) *written = 0;
    const size_t length = text ? std::char_traits<WCHAR>::length(text) : 0;
    if (length >= size_t(INT_MAX)) return E_OUTOFMEMORY;
    const auto bytes = DWORD(length + 1);
    HeapText ansi = zeroed_text(bytes);
    if (!ansi) return E_OUTOFMEMORY;
    // An empty string stays the single 0 of the zeroed block.
    if (length)
        WideCharToMultiByte(CP_ACP, 0, text, int(length), ansi.get(), int(bytes), nullptr, nullptr);
    ansi[length] = 0;
    FileSource sink(file);
    if (!sink.write(ansi.get(), bytes)) return QZE_FILE_WRITE;
    DWORD total = bytes;
    if (bytes & 1) {
        if (!sink.write(&kPad, 1)) return QZE_FILE_WRITE;
        ++total;
    }
    if (written) *written = total;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_ReadANSIString(HANDLE file, LPWSTR buffer,
                                                          DWORD buffer_length, DWORD* count) {
    if (!buffer || !count) return E_INVALIDARG;
    const DWORD body = *count;
    const DWORD n = body < buffer_length ? body : buffer_length;
    HeapText ansi = zeroed_text(n ? n : 1);
    if (!ansi) return E_OUTOFMEMORY;
    FileSource source(file);
    if (n) {
        if (!source.read(ansi.get(), n)) return QZE_FILE_READ;
        // The last byte that fits is the terminator, even when it cuts the text.
        ansi[n - 1] = 0;
    }
    int chars = 0;
    if (n) {
        const int room = buffer_length > DWORD(INT_MAX) ? INT_MAX : int(buffer_length);
        chars = MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, ansi.get(), int(n), buffer, room);
    }
    if (buffer_length) {
        if (chars == 0) buffer[0] = 0;
        buffer[buffer_length - 1] = 0;
    }
    const int64_t rest = int64_t(body - n) + (body & 1);
    if (rest && !source.skip(rest)) return QZE_FILE_READ;
    // One more than the body, whatever its parity: the count the callers
    // have always added to their offsets for a terminated, padded string.
    *count = body + 1;
    return S_OK;
}
