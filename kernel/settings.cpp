// The kernel's settings stores: an in-memory view of one section, written
// through to the platform's backend on every change.
#include "kernel/settings.h"

#include <memory>
#include <mutex>
#include <new>

#include "platform/platform.h"

struct QZMETRIC__ {
    qz::platform::SettingsLocation location;
    qz::platform::SettingValues values;
    std::mutex mutex;
};

namespace qz::settings {

namespace {

using Text = std::basic_string<WCHAR>;

bool is_empty(LPCWSTR text) {
    return !text || !text[0];
}

// Applies a change to a copy, persists it, and keeps it only when the
// backend accepted it.
template <class Change>
HRESULT change(HQZMETRIC store, LPCWSTR name, Change&& apply) {
    if (!store) return E_HANDLE;
    if (is_empty(name)) return E_INVALIDARG;
    try {
        std::lock_guard<std::mutex> lock(store->mutex);
        qz::platform::SettingValues values = store->values;
        const Text key(name);
        const HRESULT applied = apply(values, key);
        if (FAILED(applied)) return applied;
        const HRESULT hr = qz::platform::save_setting(store->location, values, key);
        if (FAILED(hr)) return hr;
        store->values.swap(values);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace

HRESULT open(LPCWSTR product, DWORD version, LPCWSTR section, HQZMETRIC* store) {
    if (!store) return E_POINTER;
    *store = nullptr;
    if (is_empty(product) || is_empty(section)) return E_INVALIDARG;
    try {
        auto opened = std::make_unique<QZMETRIC__>();
        opened->location.product = product;
        opened->location.version = version;
        opened->location.section = section;
        const HRESULT hr = qz::platform::load_settings(opened->location, &opened->values);
        if (FAILED(hr)) return hr;
        *store = opened.release();
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT close(HQZMETRIC store) {
    delete store;
    return S_OK;
}

HRESULT get_number(HQZMETRIC store, LPCWSTR name, DWORD* value) {
    if (!store) return E_HANDLE;
    if (is_empty(name) || !value) return E_INVALIDARG;
    std::lock_guard<std::mutex> lock(store->mutex);
    const auto found = store->values.find(name);
    if (found == store->values.end() || !found->second.is_number) return QZE_NOT_FOUND;
    *value = found->second.number;
    return S_OK;
}

HRESULT get_text(HQZMETRIC store, LPCWSTR name, std::basic_string<WCHAR>* value) {
    if (!store) return E_HANDLE;
    if (is_empty(name) || !value) return E_INVALIDARG;
    try {
        std::lock_guard<std::mutex> lock(store->mutex);
        const auto found = store->values.find(name);
        if (found == store->values.end() || found->second.is_number) return QZE_NOT_FOUND;
        *value = found->second.text;
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT set_number(HQZMETRIC store, LPCWSTR name, DWORD value) {
    return change(store, name, [&](qz::platform::SettingValues& values, const Text& key) {
        qz::platform::SettingValue& slot = values[key];
        slot.is_number = true;
        slot.number = value;
        slot.text.clear();
        return S_OK;
    });
}

HRESULT set_text(HQZMETRIC store, LPCWSTR name, LPCWSTR value) {
    return change(store, name, [&](qz::platform::SettingValues& values, const Text& key) {
        qz::platform::SettingValue& slot = values[key];
        slot.is_number = false;
        slot.number = 0;
        slot.text = value ? value : QZTEXT("");
        return S_OK;
    });
}

HRESULT remove(HQZMETRIC store, LPCWSTR name) {
    return change(store, name, [&](qz::platform::SettingValues& values, const Text& key) {
        return values.erase(key) ? S_OK : QZE_NOT_FOUND;
    });
}

}  // namespace qz::settings
