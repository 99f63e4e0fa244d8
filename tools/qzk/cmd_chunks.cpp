// `qzk chunks FILE` prints the chunk tree of a RIFF file; `qzk cda FILE` the
// fields of a CD-audio track file; the "riff" demo section writes a WAV file
// with the riff_ writers and prints its tree.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "qzk.h"

namespace qzk {

namespace {

constexpr DWORD kListId = 0x5453494C;  // "LIST"
constexpr DWORD kHeaderBytes = 8;

DWORD code(const char (&text)[5]) {
    return DWORD(uint8_t(text[0])) | (DWORD(uint8_t(text[1])) << 8) |
           (DWORD(uint8_t(text[2])) << 16) | (DWORD(uint8_t(text[3])) << 24);
}

// A four-character code for the terminal: unprintable bytes become '?'.
std::string code_text(DWORD id) {
    std::string out;
    for (int i = 0; i < 4; ++i) {
        const char c = char((id >> (8 * i)) & 0xFF);
        out += c >= 0x20 && c < 0x7F ? c : '?';
    }
    return out;
}

struct Node {
    DWORD id = 0;
    DWORD offset = 0;  // of the header
    DWORD size = 0;    // the size field
    DWORD list_type = 0;
    bool is_list = false;
    bool overruns = false;  // claims more bytes than its parent has left
    std::vector<Node> children;
};

struct Tree {
    DWORD form = 0;
    DWORD riff_size = 0;
    std::vector<Node> chunks;
};

/*
 * Walks `budget` bytes of sibling chunks from the position, descending into
 * lists. A chunk that runs past its parent is kept and ends the walk there;
 * a header that cannot be read ends it with the library's code.
 */
HRESULT walk(HANDLE file, DWORD budget, std::vector<Node>* out, int depth) {
    while (budget >= kHeaderBytes) {
        Node node;
        riff_SaveLocation(file, &node.offset);
        HRESULT hr = riff_ReadChunkHeader(file, &node.id, &node.size);
        if (FAILED(hr)) return hr;
        budget -= kHeaderBytes;
        const ULONGLONG body = ULONGLONG(node.size) + (node.size & 1);
        node.overruns = body > budget && node.size > budget;
        if (node.id == kListId && node.size >= 4 && depth < 16) {
            node.is_list = true;
            BYTE type[4];
            hr = riff_ReadData(file, type, sizeof type);
            if (FAILED(hr)) return hr;
            node.list_type = DWORD(type[0]) | (DWORD(type[1]) << 8) | (DWORD(type[2]) << 16) |
                             (DWORD(type[3]) << 24);
            const DWORD inner = node.overruns ? budget - (budget < 4 ? budget : 4) : node.size - 4;
            hr = walk(file, inner, &node.children, depth + 1);
            if (FAILED(hr) && !node.overruns) return hr;
        }
        riff_RestoreLocation(file, node.offset + kHeaderBytes);
        riff_SkipChunk(file, node.size);
        const bool last = node.overruns;
        out->push_back(std::move(node));
        if (last) break;
        // A last chunk may lack only its pad byte; the walk then ends.
        budget -= body < budget ? DWORD(body) : budget;
    }
    return S_OK;
}

HRESULT read_tree(HANDLE file, Tree* tree) {
    DWORD remaining = 0;
    riff_RestoreLocation(file, 0);
    const HRESULT hr = riff_ReadFileID(file, &remaining, &tree->form);
    if (FAILED(hr)) return hr;
    tree->riff_size = remaining + 4;
    return walk(file, remaining, &tree->chunks, 0);
}

void print_text(const std::vector<Node>& nodes, int depth) {
    for (const Node& n : nodes) {
        std::printf("%*s'%s'", 2 * depth + 2, "", code_text(n.id).c_str());
        if (n.is_list) std::printf(" '%s'", code_text(n.list_type).c_str());
        std::printf("  offset %u  size %u%s\n", unsigned(n.offset), unsigned(n.size),
                    n.overruns ? "  (runs past its parent)" : "");
        print_text(n.children, depth + 1);
    }
}

void print_json(const std::vector<Node>& nodes) {
    std::printf("[");
    for (size_t i = 0; i < nodes.size(); ++i) {
        const Node& n = nodes[i];
        std::printf("%s{\"id\": %s, \"offset\": %u, \"size\": %u", i ? ", " : "",
                    json_quote(code_text(n.id)).c_str(), unsigned(n.offset), unsigned(n.size));
        if (n.overruns) std::printf(", \"overruns\": true");
        if (n.is_list) {
            std::printf(", \"type\": %s, \"chunks\": ", json_quote(code_text(n.list_type)).c_str());
            print_json(n.children);
        }
        std::printf("}");
    }
    std::printf("]");
}

void print_tree(const Tree& tree, const std::string& path, bool json) {
    if (json) {
        std::printf(
            "{\"file\": %s, \"form\": %s, \"size\": %u, \"chunks\": ", json_quote(path).c_str(),
            json_quote(code_text(tree.form)).c_str(), unsigned(tree.riff_size));
        print_json(tree.chunks);
        std::printf("}\n");
        return;
    }
    std::printf("%s\nRIFF '%s'  offset 0  size %u\n", path.c_str(), code_text(tree.form).c_str(),
                unsigned(tree.riff_size));
    print_text(tree.chunks, 0);
}

HANDLE open_for_reading(const std::string& path) {
    return CreateFileW(utf16(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

HRESULT show_file(const std::string& path, bool json) {
    const HANDLE file = open_for_reading(path);
    if (file == INVALID_HANDLE_VALUE) return QZE_FILE_OPEN;
    Tree tree;
    const HRESULT hr = read_tree(file, &tree);
    CloseHandle(file);
    if (SUCCEEDED(hr)) print_tree(tree, path, json);
    return hr;
}

}  // namespace

int run_chunks(const Args& args) {
    Args rest = args;
    const bool json = take_flag(rest, "--json");
    if (rest.size() != 1) {
        std::fprintf(stderr, "usage: qzk chunks FILE [--json]\n");
        return 2;
    }
    const HRESULT hr = show_file(rest[0], json);
    return FAILED(hr) ? fail("chunks", hr, rest[0]) : 0;
}

int run_cda(const Args& args) {
    Args rest = args;
    const bool json = take_flag(rest, "--json");
    if (rest.size() != 1) {
        std::fprintf(stderr, "usage: qzk cda FILE [--json]\n");
        return 2;
    }
    DWORD track = 0, start = 0, frames = 0, length = 0, serial = 0;
    const HRESULT hr =
        riff_ReadCDAFile(utf16(rest[0]).c_str(), &track, &start, &frames, &length, &serial);
    if (FAILED(hr)) return fail("cda", hr, rest[0]);
    const unsigned minute = frames / (75 * 60), second = frames / 75 % 60, frame = frames % 75;
    if (json) {
        std::printf(
            "{\"file\": %s, \"track\": %u, \"start_sector\": %u, \"start_frames\": %u, "
            "\"length_sectors\": %u, \"disc_serial\": \"%08X\"}\n",
            json_quote(rest[0]).c_str(), unsigned(track), unsigned(start), unsigned(frames),
            unsigned(length), unsigned(serial));
    } else {
        std::printf(
            "track          %u\nstart sector   %u\nstart          %02u:%02u:%02u (%u frames)\n"
            "length         %u sectors\ndisc serial    %08X\n",
            unsigned(track), unsigned(start), minute, second, frame, unsigned(frames),
            unsigned(length), unsigned(serial));
    }
    return 0;
}

namespace {

// 0.05 s of a 16-bit mono square wave at 8 kHz, an "INFO" list of two
// strings, the size fixed at the end.
HRESULT write_demo_wave(HANDLE file) {
    const BYTE fmt[16] = {1, 0, 1, 0, 0x40, 0x1F, 0, 0, 0x80, 0x3E, 0, 0, 2, 0, 16, 0};
    std::vector<BYTE> samples(800);
    for (size_t i = 0; i < samples.size(); i += 2) samples[i + 1] = (i / 40) % 2 ? 0x20 : 0xE0;
    const WCHAR* name = QZTEXT("qzk demo tone");  // 14 bytes
    const WCHAR* software = QZTEXT("qzkernel");   // 9 bytes, padded
    const DWORD list_size = 4 + (8 + 14) + (8 + 10);
    HRESULT hr = riff_WriteFileID(file, code("WAVE"), 0);
    if (SUCCEEDED(hr)) hr = riff_WriteChunk(file, code("fmt "), fmt, sizeof fmt, nullptr);
    if (SUCCEEDED(hr))
        hr = riff_WriteChunk(file, code("data"), samples.data(), DWORD(samples.size()), nullptr);
    if (SUCCEEDED(hr)) hr = riff_WriteListHeader(file, code("INFO"), list_size);
    if (SUCCEEDED(hr)) hr = riff_WriteChunkHeader(file, code("INAM"), 14);
    if (SUCCEEDED(hr)) hr = riff_WriteANSIString(file, name, nullptr);
    if (SUCCEEDED(hr)) hr = riff_WriteChunkHeader(file, code("ISFT"), 9);
    if (SUCCEEDED(hr)) hr = riff_WriteANSIString(file, software, nullptr);
    DWORD end = 0;
    riff_SaveLocation(file, &end);
    if (SUCCEEDED(hr)) hr = riff_SetRIFFSize(file, end - 8);
    return hr;
}

}  // namespace

int demo_riff() {
    const std::string path = (std::filesystem::temp_directory_path() / "qzk-demo.wav").string();
    HANDLE file = CreateFileW(utf16(path).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                              CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return fail("demo", QZE_FILE_CREATE, path);
    HRESULT hr = write_demo_wave(file);
    Tree tree;
    if (SUCCEEDED(hr)) hr = read_tree(file, &tree);
    if (SUCCEEDED(hr)) {
        std::printf("written with the riff_ writers, read back with riff_ReadChunkHeader:\n");
        print_tree(tree, path, false);
    }
    DWORD removed = 0;
    if (SUCCEEDED(hr)) hr = riff_DeleteChunk(file, code("INFO"), &removed, TRUE);
    if (SUCCEEDED(hr)) {
        tree = Tree();
        hr = read_tree(file, &tree);
    }
    if (SUCCEEDED(hr)) {
        std::printf("\nafter riff_DeleteChunk of the LIST 'INFO' (%u bytes removed):\n",
                    unsigned(removed));
        print_tree(tree, path, false);
    }
    CloseHandle(file);
    DeleteFileW(utf16(path).c_str());
    return FAILED(hr) ? fail("demo", hr, "riff") : 0;
}

}  // namespace qzk
