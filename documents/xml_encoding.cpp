// The character readers: classes, advancing, matching and reading runs of
// text in 8-bit ANSI and UTF-16 little-endian sources.
#include "documents/xml_encoding.h"

#include <cstdint>
#include <cstring>
#include <new>

namespace qz::xml {

// clang-format off
const unsigned char kAsciiClass[128] = {
    //  0-8: controls; 9, 10: tab, line feed; 11, 12: controls; 13: return
    0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 0, 0, 1, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    //  space !  "  #  $  %  &  '  (   )   *   +   ,   -   .   /
    1, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 26, 17,
    //  0-9, :  ;  <  =  >  ?
    18, 18, 18, 18, 18, 18, 18, 18, 18, 18, 19, 20, 21, 22, 23, 24,
    //  @  A-O
    7, 26, 26, 26, 26, 26, 26, 26, 26, 26, 26, 26, 26, 26, 26, 26,
    //  P-Z  [  \  ]  ^  _
    26, 26, 26, 26, 26, 26, 26, 26, 26, 26, 26, 27, 7, 28, 7, 26,
    //  `  a-o
    7, 26, 26, 26, 26, 26, 26, 26, 26, 26, 26, 26, 26, 26, 26, 26,
    //  p-z  {  |  }  ~  127
    26, 26, 26, 26, 26, 26, 26, 26, 26, 26, 26, 7, 7, 7, 7, 7,
};
// clang-format on

namespace {

// Bytes 0x80-0xFF are characters of the ANSI code page (letters, signs,
// and on double-byte code pages the parts of one character); taking them
// as name characters lets them begin character data and stand in names, as
// the UTF-16 reader does with every unit above 127.
int byte_class(BYTE b) { return b < 0x80 ? int(kAsciiClass[b]) : int(kClassName); }

int unit_class(WCHAR u) { return u < 0x80 ? int(kAsciiClass[u]) : int(kClassName); }

WCHAR fold(WCHAR c) { return c >= 'A' && c <= 'Z' ? WCHAR(c + ('a' - 'A')) : c; }

WCHAR load_unit(const BYTE* p) { return WCHAR(p[0] | (p[1] << 8)); }

// The longest run handed to the code-page functions at once.
constexpr SIZE_T kConvertChunk = SIZE_T(1) << 28;

// Widens `count` ANSI bytes into `out`; returns the characters written.
SIZE_T widen(const BYTE* source, SIZE_T count, LPWSTR out) {
    SIZE_T written = 0;
    SIZE_T i = 0;
    while (i < count) {
        // Plain ASCII is the same in every ANSI code page.
        while (i < count && source[i] < 0x80) out[written++] = WCHAR(source[i++]);
        if (i == count) break;
        SIZE_T run = i;
        while (run < count && source[run] >= 0x80 && run - i < kConvertChunk) ++run;
        const int made =
            MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, reinterpret_cast<LPCSTR>(source + i),
                                int(run - i), out + written, int(run - i));
        // A byte the code page cannot map stays a character of its own.
        if (made <= 0) {
            for (SIZE_T k = i; k < run; ++k) out[written++] = WCHAR(source[k]);
        } else {
            written += SIZE_T(made);
        }
        i = run;
    }
    return written;
}

// The stop set narrowed to ANSI bytes, as a 256-bit table.
struct ByteSet {
    uint64_t bits[4] = {};
    int count = 0;
    BYTE first = 0;
    void add(BYTE b) {
        if (count++ == 0) first = b;
        bits[b >> 6] |= uint64_t(1) << (b & 63);
    }
    bool has(BYTE b) const { return (bits[b >> 6] >> (b & 63)) & 1; }
};

ByteSet narrow_set(LPCWSTR stops) {
    ByteSet set;
    for (; stops && *stops; ++stops) {
        if (*stops < 0x80) {
            set.add(BYTE(*stops));
            continue;
        }
        char narrow[8];
        const int made =
            WideCharToMultiByte(CP_ACP, 0, stops, 1, narrow, sizeof narrow, nullptr, nullptr);
        for (int k = 0; k < made; ++k) set.add(BYTE(narrow[k]));
    }
    return set;
}

}  // namespace

HRESULT create_reader(const BYTE* start, ULONGLONG length, QzXMLEncoding** reader) {
    *reader = nullptr;
    // A source larger than the address space cannot be mapped anyway.
    const SIZE_T bytes = length > ULONGLONG(SIZE_MAX) ? SIZE_MAX : SIZE_T(length);
    const bool utf16 = start && bytes >= 2 && start[0] == 0xFF && start[1] == 0xFE;
    const SIZE_T size = utf16 ? sizeof(QzXMLEncodingUtf16) : sizeof(QzXMLEncodingUtf8);
    const HGLOBAL handle = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, size);
    void* memory = handle ? GlobalLock(handle) : nullptr;
    if (!memory) {
        if (handle) GlobalFree(handle);
        return E_OUTOFMEMORY;
    }
    if (utf16) {
        auto* r = new (memory) QzXMLEncodingUtf16(start, bytes);
        r->Advance();  // over the byte-order mark
        *reader = r;
    } else {
        *reader = new (memory) QzXMLEncodingUtf8(start, bytes);
    }
    return S_OK;
}

}  // namespace qz::xml

using namespace qz::xml;

QzXMLEncoding::QzXMLEncoding(const BYTE* start, SIZE_T length)
    : m_refs(1), m_start(start), m_length(length), m_position(start), m_end(start + length) {}

HRESULT QZ_STDCALL QzXMLEncoding::QueryInterface(const GUID&, void** object) {
    if (object) *object = nullptr;
    return E_NOTIMPL;
}

ULONG QZ_STDCALL QzXMLEncoding::AddRef() { return ULONG(InterlockedIncrement(&m_refs)); }

ULONG QZ_STDCALL QzXMLEncoding::Release() {
    const LONG left = InterlockedDecrement(&m_refs);
    if (left == 0) {
        this->~QzXMLEncoding();
        const HGLOBAL handle = GlobalHandle(this);
        GlobalUnlock(handle);
        GlobalFree(handle);
    }
    return ULONG(left);
}

BOOL QZ_STDCALL QzXMLEncoding::AtEnd() { return m_position >= m_end; }

// ---- 8-bit --------------------------------------------------------------------

void QZ_STDCALL QzXMLEncodingUtf8::Advance() {
    if (m_position < m_end) ++m_position;
}

int QZ_STDCALL QzXMLEncodingUtf8::CharClass() {
    return m_position < m_end ? byte_class(*m_position) : kClassEnd;
}

BOOL QZ_STDCALL QzXMLEncodingUtf8::Match(LPCWSTR text, BOOL ignore_case) {
    if (!text) return FALSE;
    const BYTE* p = m_position;
    for (; *text; ++text) {
        char narrow[8];
        int made = 1;
        if (*text < 0x80) {
            narrow[0] = char(*text);
        } else {
            made = WideCharToMultiByte(CP_ACP, 0, text, 1, narrow, sizeof narrow, nullptr,
                                       nullptr);
            if (made <= 0) return FALSE;
        }
        for (int k = 0; k < made; ++k, ++p) {
            if (p >= m_end) return FALSE;
            const BYTE want = BYTE(narrow[k]);
            const bool same = ignore_case ? fold(*p) == fold(want) : *p == want;
            if (!same) return FALSE;
        }
    }
    m_position = p;
    return TRUE;
}

SIZE_T QZ_STDCALL QzXMLEncodingUtf8::ReadUntil(LPCWSTR stops, LPWSTR out) {
    const ByteSet set = narrow_set(stops);
    const SIZE_T left = SIZE_T(m_end - m_position);
    SIZE_T count = left;
    if (set.count == 1) {
        const void* hit = std::memchr(m_position, set.first, left);
        if (hit) count = SIZE_T(static_cast<const BYTE*>(hit) - m_position);
    } else if (set.count > 1) {
        for (SIZE_T i = 0; i < left; ++i) {
            if (set.has(m_position[i])) {
                count = i;
                break;
            }
        }
    }
    if (out) {
        out[widen(m_position, count, out)] = 0;
        m_position += count;
    }
    return count;
}

// ---- UTF-16 -------------------------------------------------------------------

// An odd last byte is not a whole code unit and is never read.
QzXMLEncodingUtf16::QzXMLEncodingUtf16(const BYTE* start, SIZE_T length)
    : QzXMLEncodingUtf(start, length) {
    m_end = start + (length & ~SIZE_T(1));
}

void QZ_STDCALL QzXMLEncodingUtf16::Advance() {
    if (m_position < m_end) m_position += 2;
}

int QZ_STDCALL QzXMLEncodingUtf16::CharClass() {
    return m_position < m_end ? unit_class(load_unit(m_position)) : kClassEnd;
}

BOOL QZ_STDCALL QzXMLEncodingUtf16::Match(LPCWSTR text, BOOL ignore_case) {
    if (!text) return FALSE;
    const BYTE* p = m_position;
    for (; *text; ++text, p += 2) {
        if (p >= m_end) return FALSE;
        const WCHAR have = load_unit(p);
        const bool same = ignore_case ? fold(have) == fold(*text) : have == *text;
        if (!same) return FALSE;
    }
    m_position = p;
    return TRUE;
}

SIZE_T QZ_STDCALL QzXMLEncodingUtf16::ReadUntil(LPCWSTR stops, LPWSTR out) {
    const SIZE_T left = SIZE_T(m_end - m_position) / 2;
    SIZE_T count = 0;
    for (; count < left; ++count) {
        const WCHAR u = load_unit(m_position + 2 * count);
        bool stop = false;
        for (LPCWSTR s = stops; s && *s && !stop; ++s) stop = *s == u;
        if (stop) break;
    }
    if (out) {
        std::memcpy(out, m_position, count * sizeof(WCHAR));
        out[count] = 0;
        m_position += 2 * count;
    }
    return count;
}
