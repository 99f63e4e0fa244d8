// The language service: language instances, localised text records and the
// "$(AppName)" macro.
//
// A text record carries one text per shipped language, English first. An
// instance resolves records in its language slot and falls back to English
// when the record is shorter or leaves that slot empty, so a product can
// ship a language before every text is translated.
#include <algorithm>
#include <cctype>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "base/guard.h"
#include "base/spin_lock.h"
#include "kernel/lang.h"
#include "platform/platform.h"
#include "platform/win32api.h"
#include "qz/qzresult.h"

struct QZLANG__ {
    DWORD signature = 0;
    HMODULE module = nullptr;
    std::atomic<DWORD> language{QZLANG_ENGLISH};
    std::mutex mutex;  // guards intl and tables
    QZINTERNATIONALS intl{};
    std::vector<std::pair<const QZLANGSTRING*, int>> tables;
};

namespace qz::lang {

namespace {

constexpr DWORD kLangSignature = 0x474E414C;  // "LANG"
constexpr WCHAR kAppNameMacro[] = QZTEXT("$(AppName)");
constexpr size_t kAppNameMacroLength = sizeof(kAppNameMacro) / sizeof(WCHAR) - 1;
constexpr WCHAR kFallbackAppName[] = QZTEXT("Application");

std::atomic<HQZLANG> g_kernel_instance{nullptr};

bool is_live(HQZLANG lang) {
    return lang != nullptr && lang->signature == kLangSignature;
}

// The instance a call means: the given one, or the kernel's for null.
HQZLANG resolve(HQZLANG lang) {
    return lang ? lang : g_kernel_instance.load();
}

// ---- locale rules ---------------------------------------------------------

struct LanguageRule {
    const char* iso;  // ISO 639 code
    DWORD slot;
    WCHAR decimal, thousand, date_sep;
};

constexpr LanguageRule kLanguages[] = {
    {"en", QZLANG_ENGLISH, u'.', u',', u'/'},  {"de", QZLANG_GERMAN, u',', u'.', u'.'},
    {"fr", QZLANG_FRENCH, u',', 0x00A0, u'/'}, {"es", QZLANG_SPANISH, u',', u'.', u'/'},
    {"it", QZLANG_ITALIAN, u',', u'.', u'/'},  {"ja", QZLANG_JAPANESE, u'.', u',', u'/'},
};

// Territories that do not measure in metric units.
constexpr const char* kImperialTerritories[] = {"US", "LR", "MM"};

struct LocaleParts {
    std::string language;   // lower case
    std::string territory;  // upper case
};

// "de_DE.UTF-8@euro" -> {"de", "DE"}; Windows names ("de-DE") arrive with
// the same shape once the separator is read either way.
LocaleParts split_locale(const std::string& locale) {
    LocaleParts parts;
    size_t i = 0;
    for (; i < locale.size() && std::isalpha(static_cast<unsigned char>(locale[i])); ++i)
        parts.language += char(std::tolower(static_cast<unsigned char>(locale[i])));
    if (i < locale.size() && (locale[i] == '_' || locale[i] == '-')) {
        for (++i; i < locale.size() && std::isalpha(static_cast<unsigned char>(locale[i])); ++i)
            parts.territory += char(std::toupper(static_cast<unsigned char>(locale[i])));
    }
    return parts;
}

const LanguageRule& rule_for(const std::string& language) {
    for (const LanguageRule& rule : kLanguages)
        if (language == rule.iso) return rule;
    return kLanguages[0];
}

// The user's language slot, read from the locale once per process.
DWORD user_language() {
    static const DWORD language = language_from_locale(qz::platform::user_locale_name());
    return language;
}

// ---- the application name ---------------------------------------------------

struct AppName {
    qz::base::SpinLock mutex;
    bool overridden = false;
    bool default_known = false;
    WCHAR name[MAX_PATH] = {};
    WCHAR default_name[MAX_PATH] = {};
};

// Constant-initialised, so texts can be expanded from the load hooks and
// from other libraries' constructors.
constinit AppName g_app_name;

AppName& app_name_state() {
    return g_app_name;
}

void copy_name(WCHAR* target, const WCHAR* source, size_t length) {
    length = std::min<size_t>(length, MAX_PATH - 1);
    std::copy(source, source + length, target);
    target[length] = 0;
}

size_t text_length(const WCHAR* text) {
    size_t n = 0;
    while (text[n]) ++n;
    return n;
}

// The host executable's file name without folder and extension.
void compute_default_name(WCHAR* target) {
    WCHAR path[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) {
        copy_name(target, kFallbackAppName, text_length(kFallbackAppName));
        return;
    }
    size_t start = 0;
    for (size_t i = 0; i < length; ++i)
        if (path[i] == u'\\' || path[i] == u'/') start = i + 1;
    size_t end = length;
    for (size_t i = length; i > start + 1; --i) {
        if (path[i - 1] == u'.') {
            end = i - 1;
            break;
        }
    }
    if (end == start) {
        copy_name(target, kFallbackAppName, text_length(kFallbackAppName));
        return;
    }
    copy_name(target, path + start, end - start);
}

// Copies the current application name into `target` (MAX_PATH characters).
void current_app_name(WCHAR* target) {
    AppName& state = app_name_state();
    std::lock_guard<qz::base::SpinLock> lock(state.mutex);
    if (state.overridden) {
        copy_name(target, state.name, text_length(state.name));
        return;
    }
    if (!state.default_known) {
        compute_default_name(state.default_name);
        state.default_known = true;
    }
    copy_name(target, state.default_name, text_length(state.default_name));
}

// Appends characters to a caller's buffer up to a limit, or only counts
// them when there is no buffer.
class TextSink {
public:
    TextSink(WCHAR* buffer, int capacity)
        : buffer_(capacity > 0 ? buffer : nullptr),
          limit_(buffer_ ? size_t(capacity) - 1 : SIZE_MAX) {}
    bool put(WCHAR c) {
        if (written_ >= limit_) return false;
        if (buffer_) buffer_[written_] = c;
        ++written_;
        return true;
    }
    int finish() {
        if (buffer_) buffer_[written_] = 0;
        return int(std::min<size_t>(written_, 0x7FFFFFFF));
    }

private:
    WCHAR* buffer_;
    size_t limit_;
    size_t written_ = 0;
};

bool starts_with_macro(const WCHAR* text) {
    for (size_t i = 0; i < kAppNameMacroLength; ++i)
        if (text[i] != kAppNameMacro[i]) return false;
    return true;
}

}  // namespace

HQZLANG kernel_instance() {
    return g_kernel_instance.load();
}

HQZLANG exchange_kernel_instance(HQZLANG lang) {
    return g_kernel_instance.exchange(lang);
}

DWORD language_from_locale(const std::string& locale) {
    return rule_for(split_locale(locale).language).slot;
}

QZINTERNATIONALS internationals_from_locale(const std::string& locale) {
    const LocaleParts parts = split_locale(locale);
    const LanguageRule& rule = rule_for(parts.language);
    QZINTERNATIONALS intl{};
    intl.language = rule.slot;
    intl.decimal[0] = rule.decimal;
    intl.thousand[0] = rule.thousand;
    intl.date_sep[0] = rule.date_sep;
    intl.time_sep[0] = u':';
    intl.metric = 1;
    for (const char* territory : kImperialTerritories)
        if (parts.territory == territory) intl.metric = 0;
    return intl;
}

}  // namespace qz::lang

using namespace qz::lang;

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzLang_Open(HMODULE module, HQZLANG* lang) {
    if (!lang) return E_POINTER;
    *lang = nullptr;
    return qz::base::guarded([&] {
        auto instance = std::make_unique<QZLANG__>();
        instance->module = module;
        instance->intl = internationals_from_locale(qz::platform::user_locale_name());
        instance->language.store(user_language());
        instance->intl.language = instance->language.load();
        instance->signature = kLangSignature;
        *lang = instance.release();
        return S_OK;
    });
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzLang_Close(HQZLANG lang) {
    if (!lang) return S_OK;
    if (!is_live(lang)) return E_HANDLE;
    HQZLANG expected = lang;
    g_kernel_instance.compare_exchange_strong(expected, nullptr);
    lang->signature = 0;
    delete lang;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzLang_SetLanguage(HQZLANG lang, DWORD language) {
    if (language >= QZLANG_COUNT) return E_INVALIDARG;
    HQZLANG instance = resolve(lang);
    if (!is_live(instance)) return E_HANDLE;
    instance->language.store(language);
    return qz::base::guarded([&] {
        std::lock_guard<std::mutex> lock(instance->mutex);
        instance->intl.language = language;
        return S_OK;
    });
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzLang_SetAppName(LPCWSTR name) {
    AppName& state = app_name_state();
    std::lock_guard<qz::base::SpinLock> lock(state.mutex);
    state.overridden = name != nullptr && name[0] != 0;
    if (state.overridden) copy_name(state.name, name, text_length(name));
    return S_OK;
}

namespace qz::lang {

HRESULT get_internationals(HQZLANG lang, QZINTERNATIONALS* out) {
    const std::string locale = qz::platform::user_locale_name();
    if (!lang) {
        // No instance: refresh the kernel's cached settings from the user's
        // locale, keeping the language the kernel instance was told to use.
        QZINTERNATIONALS fresh = internationals_from_locale(locale);
        HQZLANG kernel = g_kernel_instance.load();
        if (is_live(kernel)) {
            std::lock_guard<std::mutex> lock(kernel->mutex);
            fresh.language = kernel->language.load();
            kernel->intl = fresh;
        }
        if (out) *out = fresh;
        return S_OK;
    }
    if (!is_live(lang)) return E_HANDLE;
    std::lock_guard<std::mutex> lock(lang->mutex);
    if (out) *out = lang->intl;
    return S_OK;
}

}  // namespace qz::lang

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzLang_GetInternationals(HQZLANG lang,
                                                               QZINTERNATIONALS* out) {
    return qz::base::guarded([&] { return get_internationals(lang, out); });
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzLang_AddStrings(HQZLANG lang, const QZLANGSTRING* table,
                                                        int count) {
    if (count < 0 || (count > 0 && !table)) return E_INVALIDARG;
    HQZLANG instance = resolve(lang);
    if (!is_live(instance)) return E_HANDLE;
    if (count == 0) return S_OK;
    return qz::base::guarded([&] {
        std::lock_guard<std::mutex> lock(instance->mutex);
        instance->tables.emplace_back(table, count);
        return S_OK;
    });
}

QZ_EXTERN_C QZ_API LPCWSTR QZ_STDCALL QzGetString(HQZLANG lang, const QZLOCALTEXT* record) {
    if (!record || record->marker != QZLANG_TEXT_MARKER || record->count == 0) return nullptr;
    HQZLANG instance = resolve(lang);
    DWORD slot = user_language();
    if (instance) {
        if (!is_live(instance)) return nullptr;
        slot = instance->language.load();
    }
    // The record is laid out with `count` text pointers; index from the
    // start of that array rather than through the one-element declaration.
    const LPCWSTR* texts = &record->text[0];
    LPCWSTR text = slot < record->count ? texts[slot] : nullptr;
    if (!text || !text[0]) text = texts[QZLANG_ENGLISH];
    return text;
}

QZ_EXTERN_C QZ_API int QZ_STDCALL QzLoadString(HQZLANG lang, UINT id, LPWSTR buffer, int capacity) {
    if (!buffer || capacity < 1) return 0;
    buffer[0] = 0;
    HQZLANG instance = resolve(lang);
    if (!is_live(instance)) return 0;
    const QZLOCALTEXT* record = nullptr;
    const bool searched = qz::base::guarded<bool>(false, false, [&] {
        std::lock_guard<std::mutex> lock(instance->mutex);
        for (auto table = instance->tables.rbegin(); table != instance->tables.rend() && !record;
             ++table) {
            for (int i = 0; i < table->second; ++i) {
                if (table->first[i].id == id) {
                    record = table->first[i].text;
                    break;
                }
            }
        }
        return true;
    });
    if (!searched) return 0;
    LPCWSTR text = QzGetString(instance, record);
    if (!text) return 0;
    return QzLang_ExpandText(text, buffer, capacity);
}

QZ_EXTERN_C QZ_API int QZ_STDCALL QzLang_ExpandText(LPCWSTR text, LPWSTR buffer, int capacity) {
    TextSink sink(buffer, capacity);
    if (!text) return sink.finish();
    WCHAR name[MAX_PATH];
    bool name_known = false;
    for (const WCHAR* p = text; *p;) {
        if (!starts_with_macro(p)) {
            if (!sink.put(*p++)) break;
            continue;
        }
        if (!name_known) {
            current_app_name(name);
            name_known = true;
        }
        bool room = true;
        for (const WCHAR* n = name; *n && room; ++n) room = sink.put(*n);
        if (!room) break;
        p += kAppNameMacroLength;
    }
    return sink.finish();
}
