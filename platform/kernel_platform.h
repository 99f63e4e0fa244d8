/*
 * kernel_platform.h - what the kernel frame asks of the operating system
 * beyond the Win32 subset: the user's locale, the default message box, the
 * window-related start-up steps, display state and the settings backend.
 * platform/posix/ and platform/win32/ each implement every function here.
 */
#ifndef QZ_PLATFORM_KERNEL_PLATFORM_H
#define QZ_PLATFORM_KERNEL_PLATFORM_H

#include <string>

#include "qz/qzdefs.h"

namespace qz::platform {

/*
 * The user's locale as "ll" or "ll_CC" (ISO 639 language, ISO 3166
 * territory), for example "de_DE"; empty when the system names none.
 */
std::string user_locale_name();

/*
 * The message box shown when the host installed no handler: MessageBoxW on
 * Windows; on POSIX caption and text on standard error, answering IDOK.
 */
int show_default_message_box(HWND owner, LPCWSTR text, LPCWSTR caption, UINT style);

}  // namespace qz::platform

#endif
