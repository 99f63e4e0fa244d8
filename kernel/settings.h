// The kernel's settings stores ("metrics"): named numbers and texts kept
// per product, version and section. The frame opens the store of section
// "Kernel" at load time. Values are read and written by name; every change
// is written through to the backend (a small file under $XDG_CONFIG_HOME or
// ~/.config on POSIX, the user's registry on Windows).
#ifndef QZ_KERNEL_SETTINGS_H
#define QZ_KERNEL_SETTINGS_H

#include <string>

#include "qz/qzdefs.h"
#include "qz/qzresult.h"

typedef struct QZMETRIC__* HQZMETRIC;

namespace qz::settings {

// Opens a store and reads what it holds. E_POINTER, E_INVALIDARG for an
// empty product or section, E_OUTOFMEMORY, or the backend's failure when
// the stored values cannot be read.
HRESULT open(LPCWSTR product, DWORD version, LPCWSTR section, HQZMETRIC* store);
// Closes a store (null: S_OK).
HRESULT close(HQZMETRIC store);

// QZE_NOT_FOUND when the value is absent or of the other kind.
HRESULT get_number(HQZMETRIC store, LPCWSTR name, DWORD* value);
HRESULT get_text(HQZMETRIC store, LPCWSTR name, std::basic_string<WCHAR>* value);
// Store a value, replacing one of either kind; the backend's failure code
// leaves the store's view unchanged.
HRESULT set_number(HQZMETRIC store, LPCWSTR name, DWORD value);
HRESULT set_text(HQZMETRIC store, LPCWSTR name, LPCWSTR value);
// QZE_NOT_FOUND when there is no such value.
HRESULT remove(HQZMETRIC store, LPCWSTR name);

}  // namespace qz::settings

#endif
