// The three entity references the XML reader knows, and the helpers that
// add and remove them.
#include "documents/xml_internal.h"

namespace {

struct Entity {
    WCHAR character;
    const WCHAR* text;
    SIZE_T length;
};

const WCHAR kAmp[] = {'&', 'a', 'm', 'p', ';', 0};
const WCHAR kLt[] = {'&', 'l', 't', ';', 0};
const WCHAR kGt[] = {'&', 'g', 't', ';', 0};

// Tried in this order.
const Entity kEntities[] = {{'&', kAmp, 5}, {'<', kLt, 4}, {'>', kGt, 4}};

bool begins(LPCWSTR text, const Entity& e) {
    for (SIZE_T i = 0; i < e.length; ++i)
        if (text[i] != e.text[i]) return false;
    return true;
}

const Entity* entity_at(LPCWSTR text) {
    for (const Entity& e : kEntities)
        if (begins(text, e)) return &e;
    return nullptr;
}

const Entity* entity_for(WCHAR c) {
    for (const Entity& e : kEntities)
        if (e.character == c) return &e;
    return nullptr;
}

}  // namespace

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzXML_DoesStringNeedEscapes(LPCWSTR text) {
    if (!text) return FALSE;
    for (; *text; ++text) {
        if (*text == '<' || *text == '>') return TRUE;
        if (*text == '&' && !begins(text, kEntities[0])) return TRUE;
    }
    return FALSE;
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzXML_DoesStringHaveEscapes(LPCWSTR text) {
    if (!text) return FALSE;
    for (; *text; ++text)
        if (*text == '&' && entity_at(text)) return TRUE;
    return FALSE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzXML_RemoveEscapes(LPWSTR text) {
    if (!text) return E_POINTER;
    LPWSTR out = text;
    for (LPCWSTR in = text; *in;) {
        const Entity* e = *in == '&' ? entity_at(in) : nullptr;
        if (e) {
            *out++ = e->character;
            in += e->length;
        } else {
            *out++ = *in++;
        }
    }
    *out = 0;
    return S_OK;
}

// The capacity bounds only the first entity text: it is copied cut to what
// is left of the capacity, after which the capacity counts as spent, so
// later entity texts are skipped over (the output moves past them, leaving
// the zeroes or whatever the destination held). Plain characters are never
// checked. Callers size the destination for the whole escaped text.
QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzXML_AddEscapes(LPWSTR destination, DWORD capacity,
                                                       LPCWSTR source) {
    if (!destination || !source) return E_POINTER;
    SIZE_T at = 0;
    bool spent = false;
    for (LPCWSTR in = source; *in; ++in) {
        const Entity* e = entity_for(*in);
        if (!e || (*in == '&' && begins(in, kEntities[0]))) {
            destination[at++] = *in;
            continue;
        }
        if (!spent) {
            const SIZE_T room = capacity > at ? SIZE_T(capacity) - at : 0;
            // A truncating copy: at most room - 1 characters and a terminator.
            if (room > 0) {
                const SIZE_T n = e->length < room - 1 ? e->length : room - 1;
                for (SIZE_T k = 0; k < n; ++k) destination[at + k] = e->text[k];
                destination[at + n] = 0;
            }
            spent = true;
        }
        at += e->length;
    }
    destination[at] = 0;
    return S_OK;
}
