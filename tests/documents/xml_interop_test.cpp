// Real XML files that Debian ships, read by the document and by xmllint
// (libxml2-utils): element and attribute counts and one ASCII value must
// agree, for each file as it is (8-bit) and for a UTF-16LE copy made by
// iconv. Missing files or tools skip.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "qzkernel.h"
#include "tests/support/platform_testing.h"

namespace {

std::string run(const std::string& command) {
    std::string out;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[4096];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
        pclose(pipe);
    }
    if (!out.empty() && out.back() == '\n') out.pop_back();
    return out;
}

std::string xpath(const char* file, const std::string& expression) {
    return run("xmllint --nonet --xpath '" + expression + "' '" + file + "' 2>/dev/null");
}

// Element and attribute counts; namespace declarations are not attributes
// to XPath, and a name may carry the white space kept before it.
std::pair<long, long> count_tree(const QZXML_CONTENT* root) {
    long elements = 0, attributes = 0;
    std::vector<const QZXML_ELEMENT*> pending = {&root->u.element};
    while (!pending.empty()) {
        const QZXML_ELEMENT* e = pending.back();
        pending.pop_back();
        ++elements;
        for (LONG i = 0; i < e->attributes->count; ++i) {
            LPCWSTR name = static_cast<QZXML_ATTRIBUTE*>(QZLIST_ITEMPTR(e->attributes, i))->name;
            while (*name == ' ' || *name == '\t' || *name == '\r' || *name == '\n') ++name;
            attributes += std::u16string(name).rfind(u"xmlns", 0) != 0;
        }
        for (LONG i = 0; i < e->contents->count; ++i) {
            auto* c = static_cast<QZXML_CONTENT*>(QZLIST_ITEMPTR(e->contents, i));
            if (c->type == XML_CONTENT_ELEMENT) pending.push_back(&c->u.element);
        }
    }
    return {elements, attributes};
}

TEST(XmlInterop, DebianFilesAndTheirUtf16CopiesAgreeWithXmllint) {
    if (run("command -v xmllint").empty() || run("command -v iconv").empty())
        GTEST_SKIP() << "xmllint (libxml2-utils) or iconv is missing";
    // The text of root/child is compared too, where a child is named.
    const struct { const char* path; const char16_t *root, *child; const char* value; } files[] = {
        {"/etc/fonts/fonts.conf", u"fontconfig", u"description", "string(/fontconfig/description)"},
        {"/usr/share/mime/packages/freedesktop.org.xml", nullptr, nullptr, nullptr},
        {"/usr/share/xml/schema/xml-core/catalog.xml", nullptr, nullptr, nullptr},
    };
    qz::testing::TempDir dir;
    int read = 0;
    for (const auto& f : files) {
        if (!qz::testing::native_exists(f.path)) continue;
        const std::string copy = dir.file("copy" + std::to_string(read++) + ".xml");
        run("{ printf '\\377\\376'; iconv -f UTF-8 -t UTF-16LE '" + std::string(f.path) + "'; } > '" +
            copy + "'");
        for (const std::string& path : {std::string(f.path), copy}) {
            SCOPED_TRACE(path);
            CQzXML_Document doc;
            ASSERT_EQ(doc.OpenFile(qz::testing::wide(path).c_str()), S_OK);
            EXPECT_EQ(doc.ParseFile(), S_OK);
            QZXML_CONTENT* root = nullptr;
            doc.FindContentClose(doc.FindContentFirst(nullptr, &root));
            ASSERT_NE(root, nullptr);
            const auto [elements, attributes] = count_tree(root);
            EXPECT_EQ(std::to_string(elements), xpath(f.path, "count(//*)"));
            EXPECT_EQ(std::to_string(attributes), xpath(f.path, "count(//@*)"));
            if (!f.child) continue;
            WCHAR text[256];
            QZXML_CONTENT* top = nullptr;
            ASSERT_EQ(doc.FindChild(nullptr, f.root, &top), S_OK);
            ASSERT_EQ(doc.GetChildContentString(top, f.child, text, 256), S_OK);
            EXPECT_EQ(qz::testing::wide(xpath(f.path, f.value)), std::u16string(text));
        }
    }
    if (read == 0) GTEST_SKIP() << "none of the files is on this machine";
}

}  // namespace
