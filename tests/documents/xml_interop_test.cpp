// Real XML files that Debian ships, read by the document and by xmllint
// (libxml2-utils): element and attribute counts and a few values must
// agree, for the files as they are (8-bit) and for UTF-16LE copies made by
// iconv. A file or tool missing on the machine skips its test.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "qzkernel.h"
#include "support/platform_testing.h"

namespace {

using qz::testing::ScratchDir;

std::string run(const std::string& command) {
    std::string out;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    if (!pipe) return out;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe.get())) > 0) out.append(buffer, n);
    return out;
}

bool have_tool(const char* name) {
    return !run(std::string("command -v ") + name + " 2>/dev/null").empty();
}

std::string xpath(const std::string& file, const std::string& expression) {
    std::string out = run("xmllint --nonet --xpath '" + expression + "' '" + file + "' 2>/dev/null");
    if (!out.empty() && out.back() == '\n') out.pop_back();
    return out;
}

std::string utf8(LPCWSTR text) {
    std::string out;
    for (; *text; ++text) {
        unsigned c = *text;
        if (c >= 0xD800 && c < 0xDC00 && text[1] >= 0xDC00 && text[1] < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (*++text - 0xDC00);
        }
        if (c < 0x80) {
            out += char(c);
        } else if (c < 0x800) {
            out += {char(0xC0 | c >> 6), char(0x80 | (c & 0x3F))};
        } else if (c < 0x10000) {
            out += {char(0xE0 | c >> 12), char(0x80 | (c >> 6 & 0x3F)), char(0x80 | (c & 0x3F))};
        } else {
            out += {char(0xF0 | c >> 18), char(0x80 | (c >> 12 & 0x3F)),
                    char(0x80 | (c >> 6 & 0x3F)), char(0x80 | (c & 0x3F))};
        }
    }
    return out;
}

struct Counts {
    long elements = 0;
    long attributes = 0;  // namespace declarations are not attributes to XPath
};

Counts count_tree(CQzXML_Document& doc) {
    Counts counts;
    QZXML_CONTENT* root = nullptr;
    HANDLE h = doc.FindContentFirst(nullptr, &root);
    if (h == INVALID_HANDLE_VALUE) return counts;
    doc.FindContentClose(h);
    std::vector<const QZXML_ELEMENT*> pending = {&root->u.element};
    while (!pending.empty()) {
        const QZXML_ELEMENT* e = pending.back();
        pending.pop_back();
        ++counts.elements;
        for (LONG i = 0; i < e->attributes->count; ++i) {
            auto* a = static_cast<QZXML_ATTRIBUTE*>(QZLIST_ITEMPTR(e->attributes, i));
            std::string name = utf8(a->name);
            name.erase(0, name.find_first_not_of(" \t\r\n"));
            if (name.rfind("xmlns", 0) != 0) ++counts.attributes;
        }
        for (LONG i = 0; i < e->contents->count; ++i) {
            auto* c = static_cast<QZXML_CONTENT*>(QZLIST_ITEMPTR(e->contents, i));
            if (c->type == XML_CONTENT_ELEMENT) pending.push_back(&c->u.element);
        }
    }
    return counts;
}

struct RealFile {
    const char* path;
    const char* path_in_tree;  // for GetChildContentString, from the root
    const char* value_xpath;   // the same text for xmllint
};

const RealFile kFiles[] = {
    {"/etc/fonts/fonts.conf", "fontconfig/description", "string(/fontconfig/description)"},
    {"/usr/share/xml/schema/xml-core/catalog.xml", nullptr, nullptr},
    {"/usr/share/mime/packages/freedesktop.org.xml", nullptr, nullptr},
};

// Walks "a/b" from the document level with FindChild, then reads the last
// name's text.
std::string text_at(CQzXML_Document& doc, const std::string& path) {
    QZXML_CONTENT* at = nullptr;
    size_t from = 0;
    for (size_t slash; (slash = path.find('/', from)) != std::string::npos; from = slash + 1) {
        const std::u16string name = qz::testing::widen(path.substr(from, slash - from));
        QZXML_CONTENT* child = nullptr;
        if (doc.FindChild(at, name.c_str(), &child) != S_OK || !child) return "<missing>";
        at = child;
    }
    WCHAR text[512];
    const std::u16string last = qz::testing::widen(path.substr(from));
    if (doc.GetChildContentString(at, last.c_str(), text, 512) != S_OK) return "<missing>";
    return utf8(text);
}

void check_file(const RealFile& f, const std::string& copy, bool utf16) {
    SCOPED_TRACE(copy);
    CQzXML_Document doc;
    const std::u16string wide = qz::testing::widen(copy);
    ASSERT_EQ(doc.OpenFile(wide.c_str()), S_OK);
    EXPECT_EQ(doc.ParseFile(), S_OK);
    const Counts counts = count_tree(doc);
    EXPECT_EQ(std::to_string(counts.elements), xpath(f.path, "count(//*)"));
    EXPECT_EQ(std::to_string(counts.attributes), xpath(f.path, "count(//@*)"));
    if (f.path_in_tree) {
        const std::string expected = xpath(f.path, f.value_xpath);
        // 8-bit text is read through the ANSI code page, so only ASCII
        // values can agree there; UTF-16 ones always must.
        bool ascii = true;
        for (char c : expected) ascii = ascii && (unsigned char)c < 0x80;
        if (utf16 || ascii) {
            EXPECT_EQ(text_at(doc, f.path_in_tree), expected);
        }
    }
}

TEST(XmlInterop, DebianFilesAgreeWithXmllint) {
    if (!have_tool("xmllint")) GTEST_SKIP() << "xmllint (libxml2-utils) is not installed";
    int read = 0;
    for (const RealFile& f : kFiles) {
        if (!qz::testing::native_exists(f.path)) continue;
        check_file(f, f.path, false);
        ++read;
    }
    if (read == 0) GTEST_SKIP() << "none of the files is on this machine";
}

TEST(XmlInterop, Utf16CopiesMadeByIconvAgreeWithXmllint) {
    if (!have_tool("xmllint") || !have_tool("iconv")) GTEST_SKIP() << "xmllint or iconv missing";
    ScratchDir dir;
    int read = 0;
    for (const RealFile& f : kFiles) {
        if (!qz::testing::native_exists(f.path)) continue;
        const std::string copy = dir.native("copy" + std::to_string(read) + ".xml");
        run("{ printf '\\377\\376'; iconv -f UTF-8 -t UTF-16LE '" + std::string(f.path) +
            "'; } > '" + copy + "'");
        check_file(f, copy, true);
        ++read;
    }
    if (read == 0) GTEST_SKIP() << "none of the files is on this machine";
}

}  // namespace
