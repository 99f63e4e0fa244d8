// `qzk chunks FILE` prints the chunk tree of a RIFF file; `qzk cda FILE` the
// fields of a CD-audio track file; the "riff" demo section writes a WAV file
// with the riff_ writers and prints its tree.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "base/byteorder.h"
#include "tools/qzk/chunks_iff.h"
#include "tools/qzk/chunks_w64.h"
#include "tools/qzk/input.h"
#include "tools/qzk/qzk.h"

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
    bool overruns = false;   // claims more bytes than its parent has left
    bool truncated = false;  // claims more bytes than the file has left
    std::vector<Node> children;
};

// Where a damaged file stops making sense, and why.
struct Damage {
    bool found = false;
    DWORD offset = 0;
    std::string reason;
};

struct Tree {
    DWORD form = 0;
    DWORD riff_size = 0;
    std::vector<Node> chunks;
    Damage damage;
};

void note_damage(Damage* damage, DWORD offset, const std::string& reason) {
    if (damage->found) return;  // the first break is the one that matters
    damage->found = true;
    damage->offset = offset;
    damage->reason = reason;
}

DWORD position(_tMRIFF* m) { return DWORD(m->pCurrent - m->pBase); }
DWORD bytes_left(_tMRIFF* m) { return DWORD(m->pDataEnd - m->pCurrent); }

/*
 * Walks `budget` bytes of sibling chunks from the position, descending into
 * lists. A chunk that runs past its parent or past the end of the image is
 * kept and ends the walk there; so does a header cut short, which is noted
 * as the damage.
 */
void walk(_tMRIFF* m, DWORD budget, std::vector<Node>* out, int depth, Damage* damage) {
    while (budget >= kHeaderBytes) {
        Node node;
        node.offset = position(m);
        if (FAILED(mriff_ReadChunkHeader(m, &node.id, &node.size))) {
            note_damage(damage, node.offset, "a chunk header is cut short by the end of the file");
            return;
        }
        budget -= kHeaderBytes;
        const ULONGLONG body = ULONGLONG(node.size) + (node.size & 1);
        node.overruns = body > budget && node.size > budget;
        node.truncated = node.size > bytes_left(m);
        if (node.truncated) {
            note_damage(damage, node.offset, "a chunk runs past the end of the file");
        }
        if (node.id == kListId && node.size >= 4 && depth < 16) {
            node.is_list = true;
            BYTE type[4];
            if (SUCCEEDED(mriff_ReadData(m, type, sizeof type))) {
                node.list_type = qz::base::load_le32(type);
                const DWORD inner = node.overruns ? budget - (budget < 4 ? budget : 4) : node.size - 4;
                walk(m, inner, &node.children, depth + 1, damage);
            }
        }
        mriff_RestoreLocation(m, node.offset + kHeaderBytes);
        mriff_SkipChunk(m, node.size);
        const bool last = node.overruns || node.truncated;
        out->push_back(std::move(node));
        if (last) return;
        // A last chunk may lack only its pad byte; the walk then ends.
        budget -= body < budget ? DWORD(body) : budget;
    }
    if (budget > 0) {
        note_damage(damage, position(m),
                    std::to_string(budget) + " bytes are too few for a chunk header");
    }
}

/*
 * Reads the tree of a RIFF image. Fails only when there is no RIFF header;
 * damage past it is recorded in the tree, which holds what could be read.
 */
HRESULT read_tree(const BYTE* data, DWORD size, Tree* tree) {
    _tMRIFF m;
    HRESULT hr = mriff_Init(&m, const_cast<BYTE*>(data), size, size);
    DWORD remaining = 0;
    if (SUCCEEDED(hr)) hr = mriff_ReadFileID(&m, &remaining, &tree->form);
    if (FAILED(hr)) return hr;
    tree->riff_size = remaining + 4;
    // A size of 0xFFFFFFFF is what a recorder leaves when it never came
    // back to fix it: walk what the file holds, then say so.
    const DWORD body_in_file = bytes_left(&m);
    walk(&m, remaining < body_in_file ? remaining : body_in_file, &tree->chunks, 0, &tree->damage);
    if (remaining > body_in_file) {
        note_damage(&tree->damage, 0, "the RIFF size runs past the end of the file (" +
                                          std::to_string(size) + " bytes)");
    }
    return S_OK;
}

void print_text(const std::vector<Node>& nodes, int depth) {
    for (const Node& n : nodes) {
        std::printf("%*s'%s'", 2 * depth + 2, "", code_text(n.id).c_str());
        if (n.is_list) std::printf(" '%s'", code_text(n.list_type).c_str());
        std::printf("  offset %u  size %u%s\n", unsigned(n.offset), unsigned(n.size),
                    n.truncated  ? "  (runs past the end of the file)"
                    : n.overruns ? "  (runs past its parent)"
                                 : "");
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
        if (n.truncated) std::printf(", \"truncated\": true");
        if (n.is_list) {
            std::printf(", \"type\": %s, \"chunks\": ", json_quote(code_text(n.list_type)).c_str());
            print_json(n.children);
        }
        std::printf("}");
    }
    std::printf("]");
}

void print_tree(const Tree& tree, const std::string& path, bool json) {
    const Damage& damage = tree.damage;
    if (json) {
        std::printf(
            "{\"file\": %s, \"form\": %s, \"size\": %u, \"chunks\": ", json_quote(path).c_str(),
            json_quote(code_text(tree.form)).c_str(), unsigned(tree.riff_size));
        print_json(tree.chunks);
        if (damage.found) {
            std::printf(", \"damage\": {\"offset\": %u, \"reason\": %s}", unsigned(damage.offset),
                        json_quote(damage.reason).c_str());
        }
        std::printf("}\n");
        return;
    }
    std::printf("%s\nRIFF '%s'  offset 0  size %u\n", path.c_str(), code_text(tree.form).c_str(),
                unsigned(tree.riff_size));
    print_text(tree.chunks, 0);
    if (damage.found) {
        std::printf("damaged from offset %u: %s\n", unsigned(damage.offset), damage.reason.c_str());
    }
}

// Prints the tree of the file; a damaged file prints what could be read and
// fails with QZE_CORRUPT_OR_UNKNOWN.
HRESULT show_file(const std::string& path, bool json) {
    const InputImage input(path);
    if (const HRESULT w64 = show_wave64_chunks(path, input, json); w64 != S_FALSE) return w64;
    if (FAILED(input.status())) return input.status();
    if (is_iff(input)) return show_iff_tree(path, input, json);
    Tree tree;
    const HRESULT hr = read_tree(input.data(), input.size(), &tree);
    if (FAILED(hr)) return hr;
    print_tree(tree, path, json);
    return tree.damage.found ? QZE_CORRUPT_OR_UNKNOWN : S_OK;
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
    const auto open = [&](DWORD disposition) {
        return CreateFileW(utf16(path).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                           disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    };
    HANDLE file = open(CREATE_ALWAYS);
    if (file == INVALID_HANDLE_VALUE) return fail("demo", QZE_FILE_CREATE, path);
    HRESULT hr = write_demo_wave(file);
    CloseHandle(file);
    if (SUCCEEDED(hr)) {
        std::printf("written with the riff_ writers, read back with mriff_ReadChunkHeader:\n");
        hr = show_file(path, false);
    }
    DWORD removed = 0;
    if (SUCCEEDED(hr)) {
        file = open(OPEN_EXISTING);
        hr = file == INVALID_HANDLE_VALUE ? QZE_FILE_OPEN
                                          : riff_DeleteChunk(file, code("INFO"), &removed, TRUE);
        if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
    }
    if (SUCCEEDED(hr)) {
        std::printf("\nafter riff_DeleteChunk of the LIST 'INFO' (%u bytes removed):\n",
                    unsigned(removed));
        hr = show_file(path, false);
    }
    DeleteFileW(utf16(path).c_str());
    return FAILED(hr) ? fail("demo", hr, "riff") : 0;
}

}  // namespace qzk
