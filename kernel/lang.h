// Internal side of the language service: the kernel's own instance (the
// frame opens it during early initialisation and closes it in late
// termination) and the locale rules, reachable from the tests.
#ifndef QZ_KERNEL_LANG_H
#define QZ_KERNEL_LANG_H

#include <string>

#include "qz/qzlang.h"

namespace qz::lang {

// The kernel's language instance, or null when none is open.
HQZLANG kernel_instance();
// Makes `lang` the kernel's instance (null: none) and returns the previous one.
HQZLANG exchange_kernel_instance(HQZLANG lang);

// The language slot for a locale name such as "de_DE.UTF-8"; English for
// anything unknown.
DWORD language_from_locale(const std::string& locale);
// Separators and units for a locale name, with its language slot.
QZINTERNATIONALS internationals_from_locale(const std::string& locale);

}  // namespace qz::lang

#endif
