// The XML document through its exported interface: what the parser makes
// of each construct (pinned as a compact dump of the tree), the queries,
// the entity helpers, files, allocation failures and deep nesting.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/faults.h"
#include "qzkernel.h"
#include "tests/support/platform_testing.h"

namespace {

using qz::testing::wide;
using qz::testing::WString;

std::string narrow(LPCWSTR text) {
    std::string out;
    char hex[8];
    for (; text && *text; ++text) {
        std::snprintf(hex, sizeof hex, "\\u%04X", unsigned(*text));
        out += *text < 0x80 ? std::string(1, char(*text)) : hex;
    }
    return out;
}

// The tree as text: <name a="v"> ... </name>, <name/> for the empty flag,
// T(..) character data, C(..) CDATA, P(..) processing instruction, M(..)
// comment; checks every owner and parent link on the way.
std::string dump(const QZXML_CONTENT* c) {
    if (!c) return "";
    static const char* const kTags[] = {"", "T(", "", "C(", "P(", "M("};
    if (c->type != XML_CONTENT_ELEMENT) return std::string(kTags[c->type]).append(narrow(c->u.text)).append(")");
    const QZXML_ELEMENT* e = &c->u.element;
    EXPECT_EQ(e->owner, c);
    std::string out = std::string("<").append(narrow(e->name));
    for (LONG i = 0; i < e->attributes->count; ++i) {
        auto* a = static_cast<QZXML_ATTRIBUTE*>(QZLIST_ITEMPTR(e->attributes, i));
        EXPECT_EQ(a->owner, e);
        out.append(" ").append(narrow(a->name)).append("=\"").append(narrow(a->value)).append("\"");
    }
    if (e->empty) return out + "/>";
    out += ">";
    for (LONG i = 0; i < e->contents->count; ++i) {
        auto* child = static_cast<QZXML_CONTENT*>(QZLIST_ITEMPTR(e->contents, i));
        EXPECT_EQ(child->parent, e);
        out += dump(child);
    }
    return out.append("</").append(narrow(e->name)).append(">");
}

struct Parsed {
    CQzXML_Document doc;
    std::string bytes;
    HRESULT parse = E_UNEXPECTED;
    QZXML_CONTENT* root() {
        QZXML_CONTENT* first = nullptr;
        doc.FindContentClose(doc.FindContentFirst(nullptr, &first));
        return first;
    }
};

// Keeps the bytes alive beside the document that reads them.
std::unique_ptr<Parsed> parse(const std::string& bytes) {
    auto p = std::make_unique<Parsed>();
    p->bytes = bytes;
    EXPECT_EQ(p->doc.OpenMemory(p->bytes.data(), p->bytes.size()), S_OK);
    p->parse = p->doc.ParseFile();
    return p;
}

WString wide(LPCWSTR text) { return text ? WString(text) : QZTEXT("<null>"); }

TEST(XmlParse, ConstructsBecomeTheTreeWithTheirKeptRules) {
    const struct { const char* input; const char* tree; HRESULT result; } cases[] = {
        {"<?xml version=\"1.0\"?>\n<a/>", "<a/>", S_OK},
        // White space between tags is dropped, trailing white space kept.
        {"<a>\n  <b>x y  </b>\n</a>", "<a><b>T(x y  )</b></a>", S_OK},
        // Signs that cannot begin character data are dropped there.
        {"<a>!?=hi</a>", "<a>T(hi)</a>", S_OK},
        {"<a x=\"1\" y=\"\">", "<a x=\"1\" y=\"\"></a>", S_OK},
        // One blank after a value is passed over; the next ones join the name.
        {"<a x=\"1\"\n\ty=\"2\"></a>", "<a x=\"1\" \ty=\"2\"></a>", S_OK},
        // Only the attribute-less empty tag sets the flag.
        {"<r><a x=\"1\"/><b/><c /></r>", "<r><a x=\"1\"></a><b/><c/></r>", S_OK},
        // A tab or line break does not end a name.
        {"<a\tb>t</a\tb>", "<a\tb>T(t)</a\tb>", S_OK},
        {"<a><![CDATA[x<y]]></a>", "<a>C([CDATA[x<y]])</a>", S_OK},
        // A '>' inside a CDATA section ends it early.
        {"<a><![CDATA[p>q]]></a>", "<a>C([CDATA[p)T(q]]>)</a>", S_OK},
        {"<a><?t d?>tail</a>", "<a>P(?t d?>tail)</a>", S_OK},
        {"<a><!-- x > y --></a>", "<a>M(-- x > y --)</a>", S_OK},
        {"<!DOCTYPE a SYSTEM \"a.dtd\"><!-- top --><a/>", "<a/>", S_OK},
        // A second top-level element takes the root's place.
        {"<a>1</a><b>2</b>", "<b>T(2)</b>", S_OK},
        // Failures: the parse runs on and reports the last sub-parse.
        {"<y></x>", "<y></y>", E_FAIL},
        {"<y></x><z/>", "<y><z/></y>", S_OK},
        {"<a x='1'>", "<a x=\"\">T(1'>)</a>", S_OK},
        {"<a x=\"1></a>", "<a x=\"1></a>\"></a>", E_FAIL},
        {"<r><a", "<r></r>", E_FAIL},
        {"<r><a :b=\"1\">t</a></r>", "<r>T(b=\"1\">t)</r>", S_OK},
        {"<r><a :b=\"1\">t</a>", "<r>T(b=\"1\">t)</r>", E_FAIL},
        // Text outside every element is not kept.
        {"hello <a/> world", "<a/>", S_OK},
        // An unterminated comment keeps what there is.
        {"<a><!-- open", "<a>M(-- open)</a>", S_OK},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input);
        auto p = parse(c.input);
        EXPECT_EQ(p->parse, c.result);
        EXPECT_EQ(dump(p->root()), c.tree);
    }
}

TEST(XmlParse, SixteenBitTextNeedsTheMarkAndEightBitIsAnsi) {
    const WString text = QZTEXT("<a n=\"\u00e9\u4e2d\">x\u20acy</a>");
    std::string with_mark = "\xFF\xFE";
    for (WCHAR u : text) with_mark += {char(u & 0xFF), char(u >> 8)};
    auto p = parse(with_mark);
    EXPECT_EQ(p->parse, S_OK);
    EXPECT_EQ(dump(p->root()), "<a n=\"\\u00E9\\u4E2D\">T(x\\u20ACy)</a>");

    // The same bytes without the mark: NULs are controls, the rest ANSI.
    auto bare = parse(with_mark.substr(2));
    EXPECT_EQ(dump(bare->root()), "");

    // Bytes 0x80-0xFF are name characters of Windows-1252.
    auto ansi = parse("<\xE9l>\xE9t\xE9 \x80</\xE9l>");
    EXPECT_EQ(dump(ansi->root()), "<\\u00E9l>T(\\u00E9t\\u00E9 \\u20AC)</\\u00E9l>");

    // An odd last byte of UTF-16 is not a character.
    auto odd = parse(std::string("\xFF\xFE<\0a\0/\0>\0<", 11));
    EXPECT_EQ(dump(odd->root()), "<a/>");

    // Bytes no UTF-8 decoder takes, and 0x81, which Windows-1252 leaves
    // unassigned, are characters all the same; so are lone surrogates.
    auto bad8 = parse("<a>\xC0\x80\x81\xFF</a>");
    EXPECT_EQ(dump(bad8->root()), "<a>T(\\u00C0\\u20AC\\u0081\\u00FF)</a>");
    auto bad16 = parse(std::string("\xFF\xFE<\0\x00\xD8>\0\x00\xDC\xFF\xFF<\0/\0\x00\xD8>\0", 20));
    EXPECT_EQ(dump(bad16->root()), "<\\uD800>T(\\uDC00\\uFFFF)</\\uD800>");
}

// Every prefix of a document of each construct, in both encodings: each
// parse ends, reads nothing past the bytes it was given (each prefix is a
// block of its own size), and leaves a tree whose links hold.
TEST(XmlParse, EveryPrefixOfADocumentParses) {
    const std::string text =
        "<?xml version=\"1.0\"?><!DOCTYPE r [<!ENTITY e \"v\">]><!-- c > d --><r a=\"1\" "
        "b=\"x&amp;y\"><e/><f g=\"2\"/>t\xE9<![CDATA[<z>]]><?p q?><n>v</n></r>";
    std::string utf16 = "\xFF\xFE";
    for (char c : text) utf16 += {c, '\0'};
    for (const std::string& whole : {text, utf16}) {
        for (size_t n = 0; n <= whole.size(); ++n) {
            SCOPED_TRACE(n);
            const std::unique_ptr<char[]> bytes(new char[n]);
            whole.copy(bytes.get(), n);
            CQzXML_Document doc;
            if (FAILED(doc.OpenMemory(bytes.get(), n))) continue;
            const HRESULT hr = doc.ParseFile();
            EXPECT_TRUE(hr == S_OK || hr == E_FAIL) << std::hex << hr;
            QZXML_CONTENT* root = nullptr;
            doc.FindContentClose(doc.FindContentFirst(nullptr, &root));
            const std::string tree = dump(root);
            if (n == whole.size()) {
                EXPECT_EQ(tree, "<r a=\"1\" b=\"x&amp;y\"><e/><f g=\"2\"></f>T(t\\u00E9)"
                                "C([CDATA[<z)P(?p q?>)<n>T(v)</n></r>");
            }
        }
    }
}

TEST(XmlQuery, ContentAttributesAndChildren) {
    auto p = parse(
        "<r v=\"a&amp;b\" q=\"&quot;\"><n>x&lt;y</n><e/><s>long text</s>"
        "<t>first</t><!--c--><late>z</late></r>");
    ASSERT_EQ(p->parse, S_OK);
    QZXML_CONTENT* root = p->root();
    ASSERT_NE(root, nullptr);
    QZXML_ELEMENT* r = &root->u.element;
    WCHAR buffer[32];

    EXPECT_EQ(p->doc.GetAttributeString(r, QZTEXT("v"), buffer, 32), S_OK);
    EXPECT_EQ(wide(buffer), QZTEXT("a&b"));
    EXPECT_EQ(p->doc.GetAttributeString(r, QZTEXT("q"), buffer, 32), S_OK);
    EXPECT_EQ(wide(buffer), QZTEXT("&quot;"));
    EXPECT_EQ(p->doc.GetAttributeString(r, QZTEXT("V"), buffer, 32), QZE_NOT_FOUND);
    EXPECT_EQ(wide(buffer), QZTEXT(""));

    const struct { const WCHAR* child; int capacity; HRESULT hr; const WCHAR* text; } rows[] = {
        {QZTEXT("n"), 32, S_OK, QZTEXT("x<y")},
        {QZTEXT("s"), 5, S_OK, QZTEXT("long")},
        {QZTEXT("s"), 1, S_OK, QZTEXT("")},
        {QZTEXT("e"), 32, QZE_NOT_FOUND, QZTEXT("")},  // the empty flag
        {QZTEXT("t"), 32, S_OK, QZTEXT("first")},
        {QZTEXT("late"), 32, QZE_NOT_FOUND, QZTEXT("")},  // behind the comment
    };
    for (const auto& c : rows) {
        SCOPED_TRACE(narrow(c.child));
        std::fill(std::begin(buffer), std::end(buffer), QZTEXT('#'));
        EXPECT_EQ(p->doc.GetChildContentString(root, c.child, buffer, c.capacity), c.hr);
        EXPECT_EQ(wide(buffer), c.text);
    }

    QZXML_CONTENT* n = nullptr;
    ASSERT_EQ(p->doc.FindChild(root, QZTEXT("n"), &n), S_OK);
    DWORD length = 0;
    EXPECT_EQ(p->doc.GetContentStringReqLen(&n->u.element, &length), S_OK);
    EXPECT_EQ(length, 7u);  // "x&lt;y" and the terminator
    EXPECT_EQ(p->doc.GetContentString(&n->u.element, nullptr, 4), E_INVALIDARG);
}

TEST(XmlQuery, FindChildSearchesOnlyTheLeadingElements) {
    const struct { const char* input; const WCHAR* name; HRESULT hr; bool found; } cases[] = {
        {"<a><b/><c/></a>", QZTEXT("c"), S_OK, true},
        {"<a>t<b/></a>", QZTEXT("b"), QZE_NOT_FOUND, false},  // first content is text
        {"<a><b/>t<c/></a>", QZTEXT("c"), S_OK, false},       // the run ends at the text
        {"<a><b/></a>", QZTEXT("x"), QZE_NOT_FOUND, false},
        {"<a></a>", QZTEXT("b"), QZE_NOT_FOUND, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input);
        auto p = parse(c.input);
        QZXML_CONTENT* child = reinterpret_cast<QZXML_CONTENT*>(1);
        EXPECT_EQ(p->doc.FindChild(p->root(), c.name, &child), c.hr);
        EXPECT_EQ(child != nullptr, c.found);
    }
}

TEST(XmlQuery, FindHandlesStepCloseAndRefuseStrangers) {
    auto p = parse("<a>t<b/><!--c--></a>");
    QZXML_CONTENT* content = nullptr;
    HANDLE h = p->doc.FindContentFirst(&p->root()->u.element, &content);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    std::vector<int> types = {content->type};
    while (p->doc.FindContentNext(h, &content) == S_OK) types.push_back(content->type);
    EXPECT_EQ(types, (std::vector<int>{XML_CONTENT_CHARDATA, XML_CONTENT_ELEMENT,
                                       XML_CONTENT_COMMENT}));
    EXPECT_EQ(p->doc.FindContentClose(h), S_OK);
    EXPECT_EQ(p->doc.FindContentClose(h), E_HANDLE);
    EXPECT_EQ(p->doc.FindContentNext(h, &content), E_HANDLE);
    // An element without contents has nothing to iterate.
    auto* b = static_cast<QZXML_CONTENT*>(QZLIST_ITEMPTR(p->root()->u.element.contents, 1));
    EXPECT_EQ(p->doc.FindContentFirst(&b->u.element, &content), INVALID_HANDLE_VALUE);
}

TEST(XmlEscapes, AddRemoveAndTheTwoTests) {
    const struct { const WCHAR* text; BOOL needs, has; const WCHAR* removed; } cases[] = {
        {QZTEXT("plain"), FALSE, FALSE, QZTEXT("plain")},
        {QZTEXT("a<b"), TRUE, FALSE, QZTEXT("a<b")},
        {QZTEXT("a&amp;b"), FALSE, TRUE, QZTEXT("a&b")},
        {QZTEXT("a&lt;b"), TRUE, TRUE, QZTEXT("a<b")},
        {QZTEXT("&gt;&amp;lt;"), TRUE, TRUE, QZTEXT(">&lt;")},
        {QZTEXT("a&b"), TRUE, FALSE, QZTEXT("a&b")},
        {QZTEXT("&quot;&#60;"), TRUE, FALSE, QZTEXT("&quot;&#60;")},
        {QZTEXT("&amp"), TRUE, FALSE, QZTEXT("&amp")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(narrow(c.text));
        EXPECT_EQ(QzXML_DoesStringNeedEscapes(c.text), c.needs);
        EXPECT_EQ(QzXML_DoesStringHaveEscapes(c.text), c.has);
        WString copy = c.text;
        EXPECT_EQ(QzXML_RemoveEscapes(copy.data()), S_OK);
        EXPECT_EQ(wide(copy.c_str()), c.removed);
    }

    const struct { const WCHAR* source; DWORD capacity; const WCHAR* escaped; } adds[] = {
        {QZTEXT(""), 8, QZTEXT("")},
        {QZTEXT("<"), 8, QZTEXT("&lt;")},
        {QZTEXT("a&amp;b"), 40, QZTEXT("a&amp;b")},
        {QZTEXT("a&b"), 40, QZTEXT("a&amp;b")},
        {QZTEXT("x<"), 4, QZTEXT("x&l")},   // the capacity cuts only the first entity,
        {QZTEXT("<>"), 40, QZTEXT("&lt;")}, // after which the later ones are skipped over
    };
    for (const auto& c : adds) {
        SCOPED_TRACE(narrow(c.source));
        WCHAR out[48] = {};
        EXPECT_EQ(QzXML_AddEscapes(out, c.capacity, c.source), S_OK);
        EXPECT_EQ(wide(out), c.escaped);
    }
}

TEST(XmlFile, OpenMapsParsesAndRefusesMissingOrEmptyFiles) {
    qz::testing::TempDir dir;
    qz::testing::native_write(dir.file("doc.xml"), "<?xml version=\"1.0\"?><cfg><k>v</k></cfg>");
    qz::testing::native_write(dir.file("empty.xml"), "");
    {
        CQzXML_Document doc;
        ASSERT_EQ(doc.OpenFile(dir.wide("doc.xml").c_str()), S_OK);
        EXPECT_EQ(doc.ParseFile(), S_OK);
        QZXML_CONTENT* root = nullptr;
        WCHAR value[8];
        ASSERT_EQ(doc.FindChild(nullptr, QZTEXT("cfg"), &root), S_OK);
        EXPECT_EQ(doc.GetChildContentString(root, QZTEXT("k"), value, 8), S_OK);
        EXPECT_EQ(wide(value), QZTEXT("v"));
        doc.CloseFile();
        EXPECT_EQ(doc.FindContentFirst(nullptr, &root), INVALID_HANDLE_VALUE);
    }
    CQzXML_Document missing, empty;
    EXPECT_EQ(missing.OpenFile(dir.wide("none.xml").c_str()), QZE_FILE_EXISTS);
    EXPECT_EQ(empty.OpenFile(dir.wide("empty.xml").c_str()), QZE_CORRUPT_OR_UNKNOWN);
}

#if QZ_TEST_FAULTS  // the fault plan exists on POSIX only
// Every allocation of a small parse fails in turn: the parse reports out
// of memory or runs on past it, and the partial tree stays well formed and
// is freed (the sanitizer build checks for leaks).
TEST(XmlParse, EachFailedAllocationLeavesAWholeTree) {
    const std::string text = "<a x=\"1\" y=\"2\"><b>t</b><![CDATA[c]]><?p?><!--m-->u";
    int out_of_memory = 0;
    for (unsigned n = 1; n < 1000; ++n) {
        SCOPED_TRACE(n);
        qz::testing::FaultPlan plan;
        plan.fail(qz::testing::FaultOp::Alloc, n);
        CQzXML_Document doc;
        if (FAILED(doc.OpenMemory(text.data(), text.size()))) continue;
        const HRESULT hr = doc.ParseFile();
        if (plan.failures(qz::testing::FaultOp::Alloc) == 0) break;  // past the last one
        EXPECT_TRUE(hr == S_OK || hr == E_OUTOFMEMORY) << std::hex << hr;
        out_of_memory += hr == E_OUTOFMEMORY;
        QZXML_CONTENT* root = nullptr;
        doc.FindContentClose(doc.FindContentFirst(nullptr, &root));
        dump(root);  // checks every owner and parent link
    }
    EXPECT_GT(out_of_memory, 2);

    // A lasting shortage: every allocation from the first one in the parse.
    CQzXML_Document doc;
    ASSERT_EQ(doc.OpenMemory(text.data(), text.size()), S_OK);
    qz::testing::FaultPlan plan;
    plan.fail(qz::testing::FaultOp::Alloc, 1, 0);
    EXPECT_EQ(doc.ParseFile(), S_OK);  // the text at the top level is passed over
}
#endif

// Every name of the tree is a moveable global block. Windows gives a
// process 65,536 such handles: there the depth is 60,000, which still needs
// more stack than a recursive parser would find (a thread's is 1 or 2 MiB).
TEST(XmlParse, DeepNestingNeedsNoStack) {
#if defined(_WIN32)
    constexpr int kDepth = 60000;
#else
    constexpr int kDepth = 1000000;
#endif
    std::string text;
    for (int i = 0; i < kDepth; ++i) text += "<a>";
    text += "x";
    for (int i = 0; i < kDepth / 2; ++i) text += "</a>";
    auto p = parse(text);
    EXPECT_EQ(p->parse, S_OK);
    int depth = 0;
    const QZXML_ELEMENT* e = &p->root()->u.element;
    while (e->contents->count == 1) {
        auto* c = static_cast<QZXML_CONTENT*>(QZLIST_ITEMPTR(e->contents, 0));
        ++depth;
        if (c->type != XML_CONTENT_ELEMENT) break;
        e = &c->u.element;
    }
    EXPECT_EQ(depth, kDepth);  // the last content is the text
}

}  // namespace
