/*
 * codepage.h - the character routines behind the code-page functions.
 *
 * The POSIX layer knows two 8-bit encodings: UTF-8 and Windows-1252, which
 * stands in for the Windows "ANSI" code page. MultiByteToWideChar and
 * WideCharToMultiByte are built on these routines, and so is the conversion
 * of UTF-16 paths to the UTF-8 names the operating system expects, so the
 * library has one UTF-8 encoder and decoder.
 */
#ifndef QZ_PLATFORM_POSIX_CODEPAGE_H
#define QZ_PLATFORM_POSIX_CODEPAGE_H

#include <cstddef>
#include <string>

#include "platform/posix/win32_internal.h"

namespace qz::posix {

/* What the decoders return for a sequence that is not well formed. */
inline constexpr char32_t kBadSequence = 0xFFFFFFFFu;
inline constexpr char32_t kReplacementChar = 0xFFFDu;

/*
 * Decodes the character at p (p < end) and moves p past it. An ill-formed
 * sequence yields kBadSequence and skips its maximal ill-formed part (at
 * least one byte), so each broken sequence counts as one bad character, the
 * way the Unicode standard recommends replacing them.
 */
char32_t utf8_decode(const unsigned char*& p, const unsigned char* end);

/* Decodes one character from UTF-16; a lone surrogate yields kBadSequence. */
char32_t utf16_decode(const WCHAR*& p, const WCHAR* end);

/* Writes the UTF-8 form of scalar value c (not a surrogate) and returns its length, 1 to 4. */
size_t utf8_encode(char32_t c, unsigned char* out);

/* The character of a Windows-1252 byte; every byte has one. */
char16_t cp1252_decode(unsigned char byte);

/* The Windows-1252 byte of c, or -1 when the code page has none. */
int cp1252_encode(char32_t c);

/*
 * Appends the UTF-8 form of `length` UTF-16 units to *out. Fails (false)
 * on a lone surrogate, which has no UTF-8 form; may throw std::bad_alloc.
 */
bool utf16_to_utf8(const WCHAR* text, size_t length, std::string* out);

}  // namespace qz::posix

#endif
