// Code-page conversion: UTF-8 and Windows-1252 (the "ANSI" code page here).
#include "platform/posix/codepage.h"

#include <climits>
#include <cstring>

namespace qz::posix {

namespace {

/*
 * Windows-1252 differs from Latin-1 only in 0x80-0x9F, where it puts
 * typographic characters. Five of those bytes have no character of their
 * own; Windows maps them to the C1 controls of the same value and back, so
 * every byte survives a round trip, and so does this table.
 */
constexpr char16_t kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80-87
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // 88-8F
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90-97
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // 98-9F
};

}  // namespace

char32_t utf8_decode(const unsigned char*& p, const unsigned char* end) {
    const unsigned lead = *p++;
    if (lead < 0x80) return lead;
    // The lead byte fixes the number of continuation bytes and, for E0, ED,
    // F0 and F4, a narrower range of the first one; that range is what
    // rules out overlong forms, encoded surrogates and values past U+10FFFF.
    int continuation;
    char32_t c;
    unsigned low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        continuation = 1;
        c = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        continuation = 2;
        c = lead & 0x0F;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        continuation = 3;
        c = lead & 0x07;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return kBadSequence;
    }
    for (int i = 0; i < continuation; ++i) {
        // A byte out of range is not consumed: it may start the next character.
        if (p == end || *p < low || *p > high) return kBadSequence;
        c = (c << 6) | (*p++ & 0x3F);
        low = 0x80;
        high = 0xBF;
    }
    return c;
}

char32_t utf16_decode(const WCHAR*& p, const WCHAR* end) {
    const char32_t unit = *p++;
    if (unit < 0xD800 || unit > 0xDFFF) return unit;
    if (unit >= 0xDC00 || p == end || *p < 0xDC00 || *p > 0xDFFF) return kBadSequence;
    const char32_t trail = *p++;
    return 0x10000 + ((unit - 0xD800) << 10) + (trail - 0xDC00);
}

size_t utf8_encode(char32_t c, unsigned char* out) {
    if (c < 0x80) {
        out[0] = static_cast<unsigned char>(c);
        return 1;
    }
    if (c < 0x800) {
        out[0] = static_cast<unsigned char>(0xC0 | (c >> 6));
        out[1] = static_cast<unsigned char>(0x80 | (c & 0x3F));
        return 2;
    }
    if (c < 0x10000) {
        out[0] = static_cast<unsigned char>(0xE0 | (c >> 12));
        out[1] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
        out[2] = static_cast<unsigned char>(0x80 | (c & 0x3F));
        return 3;
    }
    out[0] = static_cast<unsigned char>(0xF0 | (c >> 18));
    out[1] = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F));
    out[2] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
    out[3] = static_cast<unsigned char>(0x80 | (c & 0x3F));
    return 4;
}

char16_t cp1252_decode(unsigned char byte) {
    if (byte >= 0x80 && byte <= 0x9F) return kCp1252High[byte - 0x80];
    return byte;
}

int cp1252_encode(char32_t c) {
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return static_cast<int>(c);
    for (int i = 0; i < 32; ++i) {
        if (kCp1252High[i] == c) return 0x80 + i;
    }
    return -1;
}

bool utf16_to_utf8(const WCHAR* text, size_t length, std::string* out) {
    // No unit takes more than three bytes (a pair takes four for its two),
    // so the text is written in place and the string cut to what it took.
    const size_t start = out->size();
    out->resize(start + 3 * length);
    auto* written = reinterpret_cast<unsigned char*>(out->data() + start);
    const WCHAR* p = text;
    const WCHAR* end = text + length;
    while (p < end) {
        if (*p < 0x80) {
            *written++ = static_cast<unsigned char>(*p++);
            continue;
        }
        const char32_t c = utf16_decode(p, end);
        if (c == kBadSequence) {
            out->resize(start);
            return false;
        }
        written += utf8_encode(c, written);
    }
    out->resize(size_t(reinterpret_cast<char*>(written) - out->data()));
    return true;
}

}  // namespace qz::posix

using namespace qz::posix;

namespace {

enum class CodePage { Utf8, Windows1252, Unknown };

constexpr UINT kCodePage1252 = 1252;

// Flags that Windows accepts for single-byte code pages; this layer has no
// composed forms or best-fit tables, so they change nothing here.
constexpr DWORD kMbSingleByteFlags =
    MB_PRECOMPOSED | 0x2u /* MB_COMPOSITE */ | 0x4u /* MB_USEGLYPHCHARS */ | MB_ERR_INVALID_CHARS;
constexpr DWORD kWcSingleByteFlags = WC_NO_BEST_FIT_CHARS | 0x200u /* WC_COMPOSITECHECK */ |
                                     0x10u /* WC_DISCARDNS */ | 0x20u /* WC_SEPCHARS */ |
                                     0x40u /* WC_DEFAULTCHAR */;

CodePage code_page_of(UINT code_page) {
    if (code_page == CP_UTF8) return CodePage::Utf8;
    if (code_page == CP_ACP || code_page == kCodePage1252) return CodePage::Windows1252;
    return CodePage::Unknown;
}

/*
 * Where converted units go. Without a target it only counts (the caller
 * asked for the length needed); with one it stores what fits and notes
 * whether anything did not.
 */
template <class Unit>
class Output {
public:
    Output(Unit* target, int capacity)
        : target_(capacity > 0 ? target : nullptr), capacity_(static_cast<size_t>(capacity)) {}

    void put(Unit unit) {
        if (target_ != nullptr && count_ < capacity_) target_[count_] = unit;
        ++count_;
    }

    /* The count to return, or 0 with the last error set. */
    int finish() const {
        if (target_ != nullptr && count_ > capacity_) {
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return 0;
        }
        if (count_ > static_cast<size_t>(INT_MAX)) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return 0;
        }
        return static_cast<int>(count_);
    }

private:
    Unit* target_;
    size_t capacity_;
    size_t count_ = 0;
};

bool valid_sizes(const void* source, int source_length, const void* target, int target_size) {
    if (source == nullptr || source_length == 0 || source_length < -1 || target_size < 0 ||
        (target_size > 0 && target == nullptr)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    return true;
}

size_t wide_length_with_zero(const WCHAR* text) {
    size_t n = 0;
    while (text[n] != 0) ++n;
    return n + 1;
}

void put_utf16(Output<WCHAR>& out, char32_t c) {
    if (c < 0x10000) {
        out.put(static_cast<WCHAR>(c));
    } else {
        c -= 0x10000;
        out.put(static_cast<WCHAR>(0xD800 + (c >> 10)));
        out.put(static_cast<WCHAR>(0xDC00 + (c & 0x3FF)));
    }
}

}  // namespace

QZ_EXTERN_C int MultiByteToWideChar(UINT code_page, DWORD flags, LPCSTR source, int source_length,
                                    LPWSTR target, int target_size) {
    const CodePage page = code_page_of(code_page);
    if (page == CodePage::Unknown) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const DWORD allowed = page == CodePage::Utf8 ? MB_ERR_INVALID_CHARS : kMbSingleByteFlags;
    if ((flags & ~allowed) != 0) {
        SetLastError(ERROR_INVALID_FLAGS);
        return 0;
    }
    if (!valid_sizes(source, source_length, target, target_size)) return 0;

    const size_t length = source_length == -1 ? std::strlen(source) + 1 : source_length;
    const auto* p = reinterpret_cast<const unsigned char*>(source);
    const auto* end = p + length;
    Output<WCHAR> out(target, target_size);
    if (page == CodePage::Windows1252) {
        while (p < end) out.put(cp1252_decode(*p++));
        return out.finish();
    }
    while (p < end) {
        char32_t c = *p < 0x80 ? *p++ : utf8_decode(p, end);
        if (c == kBadSequence) {
            if (flags & MB_ERR_INVALID_CHARS) {
                SetLastError(ERROR_NO_UNICODE_TRANSLATION);
                return 0;
            }
            c = kReplacementChar;
        }
        put_utf16(out, c);
    }
    return out.finish();
}

QZ_EXTERN_C int WideCharToMultiByte(UINT code_page, DWORD flags, LPCWSTR source, int source_length,
                                    LPSTR target, int target_size, LPCSTR default_char,
                                    LPBOOL used_default) {
    const CodePage page = code_page_of(code_page);
    if (page == CodePage::Unknown) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const DWORD allowed = page == CodePage::Utf8 ? WC_ERR_INVALID_CHARS : kWcSingleByteFlags;
    if ((flags & ~allowed) != 0) {
        SetLastError(ERROR_INVALID_FLAGS);
        return 0;
    }
    // UTF-8 represents everything, so a default character makes no sense
    // there and Windows refuses it.
    if (page == CodePage::Utf8 && (default_char != nullptr || used_default != nullptr)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if (!valid_sizes(source, source_length, target, target_size)) return 0;
    if (used_default != nullptr) *used_default = FALSE;

    const size_t length = source_length == -1 ? wide_length_with_zero(source) : source_length;
    const WCHAR* p = source;
    const WCHAR* end = source + length;
    Output<char> out(target, target_size);
    if (page == CodePage::Windows1252) {
        const char fallback = default_char != nullptr ? default_char[0] : '?';
        bool defaulted = false;
        while (p < end) {
            // A surrogate pair is one character and becomes one default byte.
            const int byte = cp1252_encode(utf16_decode(p, end));
            if (byte < 0) defaulted = true;
            out.put(byte < 0 ? fallback : static_cast<char>(byte));
        }
        const int result = out.finish();
        if (result != 0 && used_default != nullptr) *used_default = defaulted ? TRUE : FALSE;
        return result;
    }
    unsigned char bytes[4];
    while (p < end) {
        char32_t c = utf16_decode(p, end);
        if (c == kBadSequence) {
            if (flags & WC_ERR_INVALID_CHARS) {
                SetLastError(ERROR_NO_UNICODE_TRANSLATION);
                return 0;
            }
            c = kReplacementChar;
        }
        const size_t n = utf8_encode(c, bytes);
        for (size_t i = 0; i < n; ++i) out.put(static_cast<char>(bytes[i]));
    }
    return out.finish();
}
