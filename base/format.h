/*
 * format.h - the library's printf-style formatter, with the Windows
 * conventions every family that formats text relies on.
 *
 * Conversions: %c %d %i %u %o %x %X %p %s %S %e %E %f %g %G %%, flags
 * "-+ 0#", width and precision (also "*"), sizes h hh l ll I I32 I64 z w.
 * In a wide format %s takes a wide string and %S (or %hs) an 8-bit one; in
 * an 8-bit format %s takes an 8-bit string and %S (or %ls, %ws) a wide
 * one. 8-bit strings are read in the ANSI code page. %c follows the same
 * rule for characters. "l" is 32 bits, as on Windows. %p prints
 * 2 * sizeof(void*) upper-case hex digits. A null string prints "(null)".
 *
 * Output never passes `capacity` units: at most capacity - 1 characters are
 * written and a terminating zero always follows when capacity > 0.
 */
#ifndef QZ_BASE_FORMAT_H
#define QZ_BASE_FORMAT_H

#include <cstdarg>
#include <cstddef>

#include "qz/qzdefs.h"

namespace qz::base {

struct FormatResult {
    size_t length;  /* characters written, without the terminating zero */
    bool truncated; /* the full text did not fit */
};

FormatResult vformat(WCHAR* out, size_t capacity, const WCHAR* format, va_list args);
FormatResult vformat(char* out, size_t capacity, const char* format, va_list args);
FormatResult format(WCHAR* out, size_t capacity, const WCHAR* format, ...);
FormatResult format(char* out, size_t capacity, const char* format, ...);

}  // namespace qz::base

#endif
