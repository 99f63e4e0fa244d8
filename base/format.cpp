// The library's printf-style formatter (see format.h for the conventions).
//
// One template serves wide and 8-bit output. The text is produced directly
// into the caller's buffer; nothing is ever written past `capacity`.
#include "base/format.h"

#include <cstdio>
#include <cstdint>
#include <type_traits>

#include "platform/win32api.h"

namespace qz::base {

namespace {

template <class CharT>
class Sink {
public:
    Sink(CharT* out, size_t capacity) : out_(out), capacity_(out ? capacity : 0) {}

    void put(CharT c) {
        if (length_ + 1 < capacity_)
            out_[length_++] = c;
        else
            truncated_ = true;
    }
    void repeat(CharT c, size_t n) {
        for (size_t i = 0; i < n; ++i) put(c);
    }
    FormatResult finish() {
        if (capacity_ > 0) out_[length_] = CharT(0);
        return {length_, truncated_};
    }

private:
    CharT* out_;
    size_t capacity_;
    size_t length_ = 0;
    bool truncated_ = false;
};

enum class Size { Default, Char, Short, Long, LongLong, Pointer, Max, LongDouble, Wide };

struct Directive {
    bool left = false;
    bool plus = false;
    bool space = false;
    bool alternate = false;
    bool zero = false;
    int width = 0;
    int precision = -1;
    Size size = Size::Default;
    char conversion = 0;
};

// One character of the other width, through the ANSI code page.
WCHAR widen(char c) {
    WCHAR w = 0;
    if (MultiByteToWideChar(CP_ACP, 0, &c, 1, &w, 1) != 1) w = WCHAR('?');
    return w;
}
char narrow(WCHAR w) {
    char c = 0;
    if (WideCharToMultiByte(CP_ACP, 0, &w, 1, &c, 1, nullptr, nullptr) != 1) c = '?';
    return c;
}

template <class CharT>
CharT convert_char(char c) {
    if constexpr (std::is_same_v<CharT, char>)
        return c;
    else
        return widen(c);
}
template <class CharT>
CharT convert_char(WCHAR w) {
    if constexpr (std::is_same_v<CharT, WCHAR>)
        return w;
    else
        return narrow(w);
}

template <class CharT>
void pad(Sink<CharT>& sink, int width, size_t used, CharT fill = CharT(' ')) {
    if (width > 0 && size_t(width) > used) sink.repeat(fill, size_t(width) - used);
}

// Writes a string of either width, honouring precision and width.
template <class CharT, class SrcT>
void put_string(Sink<CharT>& sink, const Directive& directive, const SrcT* text) {
    static const char kNull[] = "(null)";
    if (!text) {
        // Print "(null)" through the same path as an 8-bit string.
        Directive plain = directive;
        put_string<CharT, char>(sink, plain, kNull);
        return;
    }
    size_t length = 0;
    while (text[length] && (directive.precision < 0 || length < size_t(directive.precision)))
        ++length;
    if (!directive.left) pad(sink, directive.width, length);
    for (size_t i = 0; i < length; ++i) sink.put(convert_char<CharT>(text[i]));
    if (directive.left) pad(sink, directive.width, length);
}

template <class CharT>
void put_ascii(Sink<CharT>& sink, const char* text, size_t length) {
    for (size_t i = 0; i < length; ++i) sink.put(CharT(static_cast<unsigned char>(text[i])));
}

// Integer conversions: d i u o x X and p.
template <class CharT>
void put_integer(Sink<CharT>& sink, const Directive& directive, uint64_t magnitude, bool negative) {
    char digits[32];
    size_t count = 0;
    const char conv = directive.conversion;
    const unsigned base = (conv == 'o') ? 8 : (conv == 'x' || conv == 'X' || conv == 'p') ? 16 : 10;
    const char* alphabet = (conv == 'x') ? "0123456789abcdef" : "0123456789ABCDEF";
    for (uint64_t v = magnitude; v != 0; v /= base) digits[count++] = alphabet[v % base];

    size_t min_digits = directive.precision >= 0 ? size_t(directive.precision) : 1;
    if (conv == 'p') min_digits = 2 * sizeof(void*);
    if (directive.precision == 0 && magnitude == 0 && conv != 'p') min_digits = 0;
    const size_t zeros = count < min_digits ? min_digits - count : 0;

    char prefix[2];
    size_t prefix_length = 0;
    if (conv == 'd' || conv == 'i') {
        if (negative)
            prefix[prefix_length++] = '-';
        else if (directive.plus)
            prefix[prefix_length++] = '+';
        else if (directive.space)
            prefix[prefix_length++] = ' ';
    } else if (directive.alternate && magnitude != 0 && (conv == 'x' || conv == 'X')) {
        prefix[prefix_length++] = '0';
        prefix[prefix_length++] = conv;
    } else if (directive.alternate && conv == 'o' && zeros == 0) {
        prefix[prefix_length++] = '0';
    }

    const size_t body = prefix_length + zeros + count;
    const bool zero_fill = directive.zero && !directive.left && directive.precision < 0;
    if (!directive.left && !zero_fill) pad(sink, directive.width, body);
    put_ascii(sink, prefix, prefix_length);
    if (zero_fill) pad(sink, directive.width, body, CharT('0'));
    sink.repeat(CharT('0'), zeros);
    while (count > 0) sink.put(CharT(digits[--count]));
    if (directive.left) pad(sink, directive.width, body);
}

// Floating-point conversions go through the C library's formatting of the
// same conversion; the result is plain ASCII.
template <class CharT>
void put_floating(Sink<CharT>& sink, const Directive& directive, va_list& args) {
    char format[32];
    size_t n = 0;
    format[n++] = '%';
    if (directive.left) format[n++] = '-';
    if (directive.plus) format[n++] = '+';
    if (directive.space) format[n++] = ' ';
    if (directive.alternate) format[n++] = '#';
    if (directive.zero) format[n++] = '0';
    format[n++] = '*';
    format[n++] = '.';
    format[n++] = '*';
    if (directive.size == Size::LongDouble) format[n++] = 'L';
    format[n++] = directive.conversion;
    format[n] = 0;
    char text[512];
    const int precision = directive.precision < 0 ? 6 : directive.precision;
    const int width = directive.width < 480 ? directive.width : 480;
    const int clamped = precision < 400 ? precision : 400;
    int length;
    if (directive.size == Size::LongDouble)
        length =
            std::snprintf(text, sizeof text, format, width, clamped, va_arg(args, long double));
    else
        length = std::snprintf(text, sizeof text, format, width, clamped, va_arg(args, double));
    if (length < 0) return;
    put_ascii(sink, text, size_t(length) < sizeof text ? size_t(length) : sizeof text - 1);
}

template <class CharT>
int read_number(const CharT*& p) {
    int value = 0;
    while (*p >= CharT('0') && *p <= CharT('9')) {
        if (value < 100000) value = value * 10 + int(*p - CharT('0'));
        ++p;
    }
    return value;
}

template <class CharT>
const CharT* parse_directive(const CharT* p, Directive& directive, va_list& args) {
    for (;; ++p) {
        if (*p == CharT('-'))
            directive.left = true;
        else if (*p == CharT('+'))
            directive.plus = true;
        else if (*p == CharT(' '))
            directive.space = true;
        else if (*p == CharT('#'))
            directive.alternate = true;
        else if (*p == CharT('0'))
            directive.zero = true;
        else
            break;
    }
    if (*p == CharT('*')) {
        directive.width = va_arg(args, int);
        if (directive.width < 0) {
            directive.left = true;
            directive.width = directive.width == INT32_MIN ? 0 : -directive.width;
        }
        ++p;
    } else {
        directive.width = read_number(p);
    }
    if (*p == CharT('.')) {
        ++p;
        if (*p == CharT('*')) {
            directive.precision = va_arg(args, int);
            if (directive.precision < 0) directive.precision = -1;
            ++p;
        } else {
            directive.precision = read_number(p);
        }
    }
    if (*p == CharT('h')) {
        ++p;
        directive.size = Size::Short;
        if (*p == CharT('h')) {
            directive.size = Size::Char;
            ++p;
        }
    } else if (*p == CharT('l')) {
        ++p;
        directive.size = Size::Long;
        if (*p == CharT('l')) {
            directive.size = Size::LongLong;
            ++p;
        }
    } else if (*p == CharT('w')) {
        directive.size = Size::Wide;
        ++p;
    } else if (*p == CharT('L')) {
        directive.size = Size::LongDouble;
        ++p;
    } else if (*p == CharT('z') || *p == CharT('t')) {
        directive.size = Size::Pointer;
        ++p;
    } else if (*p == CharT('j')) {
        directive.size = Size::Max;
        ++p;
    } else if (*p == CharT('I')) {
        ++p;
        if (p[0] == CharT('6') && p[1] == CharT('4')) {
            directive.size = Size::LongLong;
            p += 2;
        } else if (p[0] == CharT('3') && p[1] == CharT('2')) {
            directive.size = Size::Long;
            p += 2;
        } else {
            directive.size = Size::Pointer;
        }
    }
    directive.conversion = (*p > 0 && *p < 128) ? char(*p) : 0;
    return p;
}

template <class CharT>
void put_signed(Sink<CharT>& sink, const Directive& directive, va_list& args) {
    int64_t value;
    switch (directive.size) {
        case Size::Char:
            value = static_cast<signed char>(va_arg(args, int));
            break;
        case Size::Short:
            value = static_cast<short>(va_arg(args, int));
            break;
        case Size::LongLong:
        case Size::Max:
            value = va_arg(args, long long);
            break;
        case Size::Pointer:
            value = va_arg(args, intptr_t);
            break;
        default:
            value = va_arg(args, int);
            break;  // "l" is 32 bits here
    }
    const uint64_t magnitude = value < 0 ? uint64_t(0) - uint64_t(value) : uint64_t(value);
    put_integer(sink, directive, magnitude, value < 0);
}

template <class CharT>
void put_unsigned(Sink<CharT>& sink, const Directive& directive, va_list& args) {
    uint64_t value;
    switch (directive.size) {
        case Size::Char:
            value = static_cast<unsigned char>(va_arg(args, unsigned));
            break;
        case Size::Short:
            value = static_cast<unsigned short>(va_arg(args, unsigned));
            break;
        case Size::LongLong:
        case Size::Max:
            value = va_arg(args, unsigned long long);
            break;
        case Size::Pointer:
            value = va_arg(args, uintptr_t);
            break;
        default:
            value = va_arg(args, unsigned);
            break;
    }
    put_integer(sink, directive, value, false);
}

// Does this conversion take a string (or character) of the other width?
template <class CharT>
bool wants_wide_argument(const Directive& directive, bool upper) {
    if (directive.size == Size::Short) return false;
    if (directive.size == Size::Long || directive.size == Size::Wide) return true;
    const bool natural_wide = std::is_same_v<CharT, WCHAR>;
    return upper ? !natural_wide : natural_wide;
}

template <class CharT>
void put_character(Sink<CharT>& sink, const Directive& directive, va_list& args, bool upper) {
    const int raw = va_arg(args, int);
    CharT c;
    if (wants_wide_argument<CharT>(directive, upper))
        c = convert_char<CharT>(WCHAR(raw));
    else
        c = convert_char<CharT>(char(raw));
    if (!directive.left) pad(sink, directive.width, 1);
    sink.put(c);
    if (directive.left) pad(sink, directive.width, 1);
}

template <class CharT>
FormatResult format_impl(CharT* out, size_t capacity, const CharT* format, va_list args) {
    Sink<CharT> sink(out, capacity);
    if (!format) return sink.finish();
    va_list ap;
    va_copy(ap, args);
    for (const CharT* p = format; *p; ++p) {
        if (*p != CharT('%')) {
            sink.put(*p);
            continue;
        }
        const CharT* start = p;
        Directive directive;
        p = parse_directive(p + 1, directive, ap);
        switch (directive.conversion) {
            case '%':
                sink.put(CharT('%'));
                break;
            case 'd':
            case 'i':
                put_signed(sink, directive, ap);
                break;
            case 'u':
            case 'o':
            case 'x':
            case 'X':
                put_unsigned(sink, directive, ap);
                break;
            case 'p':
                put_integer(sink, directive, reinterpret_cast<uintptr_t>(va_arg(ap, void*)), false);
                break;
            case 'c':
            case 'C':
                put_character(sink, directive, ap, directive.conversion == 'C');
                break;
            case 's':
            case 'S':
                if (wants_wide_argument<CharT>(directive, directive.conversion == 'S'))
                    put_string(sink, directive, va_arg(ap, const WCHAR*));
                else
                    put_string(sink, directive, va_arg(ap, const char*));
                break;
            case 'e':
            case 'E':
            case 'f':
            case 'F':
            case 'g':
            case 'G':
            case 'a':
            case 'A':
                put_floating(sink, directive, ap);
                break;
            default:
                // An unknown conversion is copied as it stands; the end of
                // the format stops the loop.
                for (const CharT* q = start; q <= p && *q; ++q) sink.put(*q);
                if (!*p) --p;
                break;
        }
    }
    va_end(ap);
    return sink.finish();
}

}  // namespace

FormatResult vformat(WCHAR* out, size_t capacity, const WCHAR* format, va_list args) {
    return format_impl(out, capacity, format, args);
}

FormatResult vformat(char* out, size_t capacity, const char* format, va_list args) {
    return format_impl(out, capacity, format, args);
}

FormatResult format(WCHAR* out, size_t capacity, const WCHAR* format, ...) {
    va_list args;
    va_start(args, format);
    const FormatResult result = vformat(out, capacity, format, args);
    va_end(args);
    return result;
}

FormatResult format(char* out, size_t capacity, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const FormatResult result = vformat(out, capacity, format, args);
    va_end(args);
    return result;
}

}  // namespace qz::base
