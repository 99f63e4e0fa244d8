// `qzk xml`: the tree an XML document parses to, as indented text or JSON,
// or the text of one element found by its path.
#include <cstdio>
#include <string>
#include <vector>

#include "tools/qzk/input.h"
#include "tools/qzk/qzk.h"

namespace qzk {

namespace {

constexpr const char* kName = "xml";

const char* type_name(XML_CONTENT_TYPE type) {
    switch (type) {
        case XML_CONTENT_ELEMENT:
            return "element";
        case XML_CONTENT_CHARDATA:
            return "text";
        case XML_CONTENT_CDATA:
            return "cdata";
        case XML_CONTENT_PI:
            return "pi";
        case XML_CONTENT_COMMENT:
            return "comment";
    }
    return "unknown";
}

QZXML_CONTENT* item_at(const tQZLIST* list, LONG i) {
    return static_cast<QZXML_CONTENT*>(QZLIST_ITEMPTR(list, i));
}

std::string attributes_text(const QZXML_ELEMENT* e, bool json) {
    std::string out;
    for (LONG i = 0; i < e->attributes->count; ++i) {
        auto* a = static_cast<QZXML_ATTRIBUTE*>(QZLIST_ITEMPTR(e->attributes, i));
        if (json) {
            if (i) out.append(", ");
            out.append("{\"name\": ").append(json_quote(utf8(a->name)));
            out.append(", \"value\": ").append(json_quote(utf8(a->value))).append("}");
        } else {
            out.append(" ").append(utf8(a->name)).append("=\"");
            out.append(utf8(a->value)).append("\"");
        }
    }
    return out;
}

// Depth first with an explicit stack: documents may nest very deeply.
void print_tree(const QZXML_CONTENT* root, bool json) {
    struct Frame {
        const QZXML_ELEMENT* element;
        LONG next;
    };
    std::vector<Frame> stack;
    std::string indent;
    auto open = [&](const QZXML_CONTENT* c, bool first) {
        if (json) {
            std::printf("%s%s{\"type\": \"%s\"", first ? "" : ",\n", indent.c_str(),
                        type_name(c->type));
        }
        if (c->type != XML_CONTENT_ELEMENT) {
            if (json) {
                std::printf(", \"text\": %s}", json_quote(utf8(c->u.text)).c_str());
            } else {
                std::printf("%s%s: %s\n", indent.c_str(), type_name(c->type),
                            json_quote(utf8(c->u.text)).c_str());
            }
            return;
        }
        const QZXML_ELEMENT* e = &c->u.element;
        if (json) {
            std::printf(", \"name\": %s, \"empty\": %s, \"attributes\": [%s], \"contents\": [",
                        json_quote(utf8(e->name)).c_str(), e->empty ? "true" : "false",
                        attributes_text(e, true).c_str());
            if (e->contents->count) std::printf("\n");
        } else {
            std::printf("%s<%s%s%s>\n", indent.c_str(), utf8(e->name).c_str(),
                        attributes_text(e, false).c_str(), e->empty ? "/" : "");
        }
        stack.push_back({e, 0});
        indent += "  ";
    };
    if (!root) {
        if (json) std::printf("null\n");
        return;
    }
    open(root, true);
    while (!stack.empty()) {
        Frame& f = stack.back();
        if (f.next == f.element->contents->count) {
            const bool had = f.next > 0;
            stack.pop_back();
            indent.resize(indent.size() - 2);
            if (json) std::printf("%s%s]}", had ? "\n" : "", had ? indent.c_str() : "");
            continue;
        }
        const LONG i = f.next++;
        open(item_at(f.element->contents, i), i == 0);
    }
    if (json) std::printf("\n");
}

// Splits "a/b/c" into its names.
std::vector<std::string> split_path(const std::string& path) {
    std::vector<std::string> names;
    size_t at = 0;
    for (;;) {
        const size_t slash = path.find('/', at);
        names.push_back(path.substr(at, slash - at));
        if (slash == std::string::npos) return names;
        at = slash + 1;
    }
}

int get_path(CQzXML_Document& doc, const std::string& path, const std::string& file) {
    const std::vector<std::string> names = split_path(path);
    QZXML_CONTENT* at = nullptr;  // the document level
    for (size_t i = 0; i + 1 < names.size(); ++i) {
        QZXML_CONTENT* child = nullptr;
        const HRESULT hr = doc.FindChild(at, utf16(names[i]).c_str(), &child);
        if (FAILED(hr) || !child) return fail(kName, QZE_NOT_FOUND, file + ": " + names[i]);
        at = child;
    }
    // The text's length, then the text through GetChildContentString.
    const std::basic_string<WCHAR> last = utf16(names.back());
    QZXML_CONTENT* leaf = nullptr;
    DWORD length = 1;
    if (SUCCEEDED(doc.FindChild(at, last.c_str(), &leaf)) && leaf) {
        doc.GetContentStringReqLen(&leaf->u.element, &length);
    }
    std::vector<WCHAR> text(length);
    const HRESULT hr = doc.GetChildContentString(at, last.c_str(), text.data(), int(length));
    if (FAILED(hr)) return fail(kName, hr, file + ": " + path);
    std::printf("%s\n", utf8(text.data()).c_str());
    return 0;
}

}  // namespace

int run_xml(const Args& args) {
    Args rest = args;
    const bool json = take_flag(rest, "--json");
    std::string path;
    for (size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] == "--get" && i + 1 < rest.size()) {
            path = rest[i + 1];
            rest.erase(rest.begin() + long(i), rest.begin() + long(i) + 2);
            break;
        }
    }
    if (rest.size() != 1) {
        std::fprintf(stderr, "usage: %s\n", kXmlUsage);
        return 2;
    }
    InputImage input(rest[0]);
    if (FAILED(input.status())) return fail(kName, input.status(), rest[0]);
    CQzXML_Document doc;
    HRESULT hr = doc.OpenMemory(input.data(), input.size());
    if (FAILED(hr)) return fail(kName, hr, rest[0]);
    hr = doc.ParseFile();
    if (!path.empty()) return get_path(doc, path, rest[0]);
    QZXML_CONTENT* root = nullptr;
    const HANDLE find = doc.FindContentFirst(nullptr, &root);
    if (find != INVALID_HANDLE_VALUE) doc.FindContentClose(find);
    print_tree(root, json);
    // The tree is shown even when part of the text was malformed.
    return FAILED(hr) ? fail(kName, hr, rest[0]) : 0;
}

const char kXmlUsage[] =
    "qzk xml FILE [--json] [--get a/b/c]   (--get prints the text of the first element "
    "at that path)";

}  // namespace qzk
