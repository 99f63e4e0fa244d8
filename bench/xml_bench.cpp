// xml_bench - parsing a generated 20 MB document (nested elements,
// attributes, character data) from memory into a full tree and walking it,
// against pugixml and tinyxml2 on the same bytes when they are installed.
// Each run counts elements and attributes and sums the text lengths, so no
// library can skip work. Besides MB/s, each benchmark reports the peak
// memory one parse holds (the C allocator's bytes in use once the tree is
// built, above what was in use before) and that as a multiple of the input. On a shared machine compare CPU
// times: the MB/s figures are taken from them.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <malloc.h>

#include "qzkernel.h"

#ifdef QZ_HAVE_PUGIXML
#include <pugixml.hpp>
#endif
#ifdef QZ_HAVE_TINYXML2
#include <tinyxml2.h>
#endif

namespace {

const std::string& document() {
    static const std::string text = [] {
        std::string out = "<?xml version=\"1.0\"?>\n<library>\n";
        char line[256];
        for (int album = 0; out.size() < 20u * 1000 * 1000; ++album) {
            std::snprintf(line, sizeof line,
                          "  <album id=\"%d\" year=\"%d\" genre=\"ambient\">\n"
                          "    <title>Album number %d of the generated library</title>\n",
                          album, 1960 + album % 60, album);
            out += line;
            for (int track = 1; track <= 8; ++track) {
                std::snprintf(line, sizeof line,
                              "    <track n=\"%d\" length=\"%d\" rate=\"44100\" channels=\"2\">\n"
                              "      <name>Track %d: a name of moderate length</name>\n"
                              "      <file>/srv/media/albums/%06d/track%02d.wav</file>\n",
                              track, 120 + (album * 7 + track) % 400, track, album, track);
                out += line;
                std::snprintf(line, sizeof line,
                              "      <note>Recorded &amp; mixed in session %d; levels "
                              "checked.</note>\n    </track>\n",
                              album * 8 + track);
                out += line;
            }
            out += "  </album>\n";
        }
        out += "</library>\n";
        return out;
    }();
    return text;
}

struct Tally {
    long elements = 0;
    long attributes = 0;
    long text = 0;
};

// ---- peak memory --------------------------------------------------------------

// Bytes the C allocator has handed out (small blocks and mapped large ones).
long long heap_in_use() {
    const struct mallinfo2 info = mallinfo2();
    return (long long)(info.uordblks + info.hblkhd);
}

// Each parse calls at_peak() once its tree is complete and walked, before
// freeing it: for all three libraries that is when they hold the most.
long long g_baseline = 0;
long long g_peak = 0;
void at_peak() { g_peak = heap_in_use() - g_baseline; }

template <class Parse>
void report(benchmark::State& state, Parse parse) {
    const std::string& text = document();
    Tally tally;
    for (auto _ : state) {
        tally = parse(text);
        benchmark::DoNotOptimize(tally);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
    g_baseline = heap_in_use();
    parse(text);
    state.counters["peak_MB"] = double(g_peak) / 1e6;
    state.counters["peak_x_input"] = double(g_peak) / double(text.size());
    state.counters["elements"] = double(tally.elements);
    state.counters["attributes"] = double(tally.attributes);
}

// ---- qzkernel -----------------------------------------------------------------

Tally walk_qz(const QZXML_CONTENT* root) {
    Tally t;
    std::vector<const QZXML_ELEMENT*> pending;
    if (root) pending.push_back(&root->u.element);
    while (!pending.empty()) {
        const QZXML_ELEMENT* e = pending.back();
        pending.pop_back();
        ++t.elements;
        t.attributes += e->attributes->count;
        for (LONG i = 0; i < e->contents->count; ++i) {
            auto* c = static_cast<const QZXML_CONTENT*>(QZLIST_ITEMPTR(e->contents, i));
            if (c->type == XML_CONTENT_ELEMENT) {
                pending.push_back(&c->u.element);
            } else {
                t.text += long(std::char_traits<WCHAR>::length(c->u.text));
            }
        }
    }
    return t;
}

void BM_Qzkernel(benchmark::State& state) {
    report(state, [](const std::string& text) {
        CQzXML_Document doc;
        doc.OpenMemory(text.data(), text.size());
        doc.ParseFile();
        QZXML_CONTENT* root = nullptr;
        HANDLE find = doc.FindContentFirst(nullptr, &root);
        if (find != INVALID_HANDLE_VALUE) doc.FindContentClose(find);
        const Tally t = walk_qz(root);
        at_peak();
        doc.CloseMemory();
        return t;
    });
}
BENCHMARK(BM_Qzkernel)->Unit(benchmark::kMillisecond);

#ifdef QZ_HAVE_PUGIXML
void BM_Pugixml(benchmark::State& state) {
    report(state, [](const std::string& text) {
        pugi::xml_document doc;
        doc.load_buffer(text.data(), text.size());
        Tally t;
        std::vector<pugi::xml_node> pending = {doc.document_element()};
        while (!pending.empty()) {
            const pugi::xml_node e = pending.back();
            pending.pop_back();
            ++t.elements;
            for (pugi::xml_attribute a = e.first_attribute(); a; a = a.next_attribute())
                ++t.attributes;
            for (pugi::xml_node c = e.first_child(); c; c = c.next_sibling()) {
                if (c.type() == pugi::node_element) {
                    pending.push_back(c);
                } else {
                    t.text += long(std::strlen(c.value()));
                }
            }
        }
        at_peak();
        return t;
    });
}
BENCHMARK(BM_Pugixml)->Unit(benchmark::kMillisecond);
#endif

#ifdef QZ_HAVE_TINYXML2
void BM_Tinyxml2(benchmark::State& state) {
    report(state, [](const std::string& text) {
        tinyxml2::XMLDocument doc;
        doc.Parse(text.data(), text.size());
        Tally t;
        std::vector<const tinyxml2::XMLElement*> pending = {doc.RootElement()};
        while (!pending.empty() && pending.back()) {
            const tinyxml2::XMLElement* e = pending.back();
            pending.pop_back();
            ++t.elements;
            for (auto* a = e->FirstAttribute(); a; a = a->Next()) ++t.attributes;
            for (auto* c = e->FirstChild(); c; c = c->NextSibling()) {
                if (auto* child = c->ToElement()) {
                    pending.push_back(child);
                } else {
                    t.text += long(std::strlen(c->Value()));
                }
            }
        }
        at_peak();
        return t;
    });
}
BENCHMARK(BM_Tinyxml2)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
