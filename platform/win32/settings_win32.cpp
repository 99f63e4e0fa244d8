// The settings backend on Windows: one registry key per store,
// HKEY_CURRENT_USER\Software\<product>\<major>.<minor>\<section>, numbers as
// REG_DWORD and texts as REG_SZ values.
#include <string>
#include <vector>

#include "platform/platform.h"
#include "platform/win32api.h"
#include "qz/qzresult.h"

namespace qz::platform {

namespace {

using Text = std::basic_string<WCHAR>;

Text key_path(const SettingsLocation& location) {
    const unsigned major = (location.version >> 24) & 0xFF;
    const unsigned minor = (location.version >> 16) & 0xFF;
    return L"Software\\" + location.product + L"\\" + std::to_wstring(major) + L"." +
           std::to_wstring(minor) + L"\\" + location.section;
}

HRESULT from_registry_error(LONG error) {
    return error == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(DWORD(error));
}

class Key {
public:
    ~Key() {
        if (key_) RegCloseKey(key_);
    }
    HKEY* out() { return &key_; }
    HKEY get() const { return key_; }

private:
    HKEY key_ = nullptr;
};

}  // namespace

HRESULT load_settings(const SettingsLocation& location, SettingValues* values) {
    values->clear();
    Key key;
    const LONG opened =
        RegOpenKeyExW(HKEY_CURRENT_USER, key_path(location).c_str(), 0, KEY_READ, key.out());
    if (opened == ERROR_FILE_NOT_FOUND) return S_FALSE;
    if (opened != ERROR_SUCCESS) return from_registry_error(opened);
    std::vector<WCHAR> name(16384);
    std::vector<BYTE> data(65536);
    for (DWORD index = 0;; ++index) {
        DWORD name_length = DWORD(name.size());
        DWORD data_length = DWORD(data.size());
        DWORD type = 0;
        const LONG read = RegEnumValueW(key.get(), index, name.data(), &name_length, nullptr, &type,
                                        data.data(), &data_length);
        if (read == ERROR_NO_MORE_ITEMS) break;
        if (read == ERROR_MORE_DATA) continue;  // a value too large for a setting
        if (read != ERROR_SUCCESS) return from_registry_error(read);
        SettingValue value;
        if (type == REG_DWORD && data_length == sizeof(DWORD)) {
            value.is_number = true;
            value.number = *reinterpret_cast<const DWORD*>(data.data());
        } else if (type == REG_SZ) {
            const auto* text = reinterpret_cast<const WCHAR*>(data.data());
            size_t length = data_length / sizeof(WCHAR);
            while (length > 0 && text[length - 1] == 0) --length;
            value.text.assign(text, length);
        } else {
            continue;
        }
        (*values)[Text(name.data(), name_length)] = value;
    }
    return S_OK;
}

HRESULT save_setting(const SettingsLocation& location, const SettingValues& values,
                     const std::basic_string<WCHAR>& changed) {
    Key key;
    const LONG created = RegCreateKeyExW(HKEY_CURRENT_USER, key_path(location).c_str(), 0, nullptr,
                                         0, KEY_READ | KEY_WRITE, nullptr, key.out(), nullptr);
    if (created != ERROR_SUCCESS) return from_registry_error(created);
    const auto found = values.find(changed);
    if (found == values.end()) {
        const LONG removed = RegDeleteValueW(key.get(), changed.c_str());
        return removed == ERROR_FILE_NOT_FOUND ? S_OK : from_registry_error(removed);
    }
    const SettingValue& value = found->second;
    if (value.is_number)
        return from_registry_error(RegSetValueExW(key.get(), changed.c_str(), 0, REG_DWORD,
                                                  reinterpret_cast<const BYTE*>(&value.number),
                                                  sizeof(DWORD)));
    return from_registry_error(RegSetValueExW(key.get(), changed.c_str(), 0, REG_SZ,
                                              reinterpret_cast<const BYTE*>(value.text.c_str()),
                                              DWORD((value.text.size() + 1) * sizeof(WCHAR))));
}

}  // namespace qz::platform
