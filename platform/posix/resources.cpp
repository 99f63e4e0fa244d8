// Module resources: the registry a host fills (QzPosix_AddResource) and the
// Win32 functions that find and load from it.
//
// A resource handle (HRSRC) and a loaded resource (HGLOBAL) are both the
// address of the registry entry, which lives until the host removes it.
// Entries are never freed while the process runs, so a handle the library
// still holds stays readable even after removal; only its data pointer is
// the host's to keep valid.
#include <list>
#include <mutex>
#include <new>
#include <string>

#include "platform/posix/win32_internal.h"

namespace qz::posix {

namespace {

struct ResourceEntry {
    HMODULE module;
    std::u16string type;
    std::u16string name;
    LPCVOID data;
    DWORD size;
    bool live;
};

struct ResourceRegistry {
    std::mutex lock;
    std::list<ResourceEntry> entries;  // stable addresses
};

ResourceRegistry& registry() {
    static ResourceRegistry* r = new ResourceRegistry;
    return *r;
}

char16_t fold(char16_t c) {
    return c >= u'a' && c <= u'z' ? char16_t(c - u'a' + u'A') : c;
}

bool same_name(const std::u16string& a, LPCWSTR b) {
    size_t i = 0;
    for (; i < a.size() && b[i]; ++i)
        if (fold(a[i]) != fold(b[i])) return false;
    return i == a.size() && b[i] == 0;
}

HMODULE module_or_host(HMODULE module) {
    return module ? module : GetModuleHandleW(nullptr);
}

bool valid_name(LPCWSTR text) {
    return text && text[0];
}

ResourceEntry* find_entry(HMODULE module, LPCWSTR type, LPCWSTR name, bool* type_seen) {
    *type_seen = false;
    for (ResourceEntry& e : registry().entries) {
        if (!e.live || e.module != module || !same_name(e.type, type)) continue;
        *type_seen = true;
        if (same_name(e.name, name)) return &e;
    }
    return nullptr;
}

}  // namespace

}  // namespace qz::posix

using namespace qz::posix;

QZ_EXTERN_C BOOL QzPosix_AddResource(HMODULE module, LPCWSTR type, LPCWSTR name, LPCVOID data,
                                     DWORD size) {
    if (!valid_name(type) || !valid_name(name) || (!data && size)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    try {
        module = module_or_host(module);
        std::lock_guard<std::mutex> hold(registry().lock);
        bool type_seen = false;
        if (ResourceEntry* e = find_entry(module, type, name, &type_seen)) {
            e->data = data;
            e->size = size;
            return TRUE;
        }
        registry().entries.push_back(ResourceEntry{module, type, name, data, size, true});
        return TRUE;
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
}

QZ_EXTERN_C BOOL QzPosix_RemoveResource(HMODULE module, LPCWSTR type, LPCWSTR name) {
    if (!valid_name(type) || !valid_name(name)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    module = module_or_host(module);
    std::lock_guard<std::mutex> hold(registry().lock);
    bool type_seen = false;
    ResourceEntry* e = find_entry(module, type, name, &type_seen);
    if (!e) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return FALSE;
    }
    e->live = false;
    return TRUE;
}

QZ_EXTERN_C HRSRC FindResourceW(HMODULE module, LPCWSTR name, LPCWSTR type) {
    if (!valid_name(type) || !valid_name(name)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    module = module_or_host(module);
    std::lock_guard<std::mutex> hold(registry().lock);
    bool type_seen = false;
    ResourceEntry* e = find_entry(module, type, name, &type_seen);
    if (!e) {
        SetLastError(type_seen ? ERROR_RESOURCE_NAME_NOT_FOUND : ERROR_RESOURCE_TYPE_NOT_FOUND);
        return nullptr;
    }
    return reinterpret_cast<HRSRC>(e);
}

QZ_EXTERN_C HGLOBAL LoadResource(HMODULE, HRSRC resource) {
    if (!resource) {
        SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
        return nullptr;
    }
    return reinterpret_cast<HGLOBAL>(resource);
}

QZ_EXTERN_C LPVOID LockResource(HGLOBAL loaded) {
    if (!loaded) return nullptr;
    std::lock_guard<std::mutex> hold(registry().lock);
    return const_cast<LPVOID>(reinterpret_cast<ResourceEntry*>(loaded)->data);
}

QZ_EXTERN_C DWORD SizeofResource(HMODULE, HRSRC resource) {
    if (!resource) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    std::lock_guard<std::mutex> hold(registry().lock);
    return reinterpret_cast<ResourceEntry*>(resource)->size;
}
