// Wave64 files in `qzk chunks` and `qzk wavinfo`: the chunk tree and the
// format, read with the riff64_ functions on a file handle, so that files
// past 4 GiB are read as well as small ones.
#include "tools/qzk/chunks_w64.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <vector>

#include "tools/qzk/qzk.h"

namespace qzk {

namespace {

constexpr GUID kRiffLabel = QZ_RIFF64_RIFF_LABEL;
constexpr GUID kListLabel = QZ_RIFF64_LIST_LABEL;
constexpr DWORD kHeaderBytes = 24;
constexpr DWORD kTypeBytes = 16;

// Wave64 names its chunks {NAME-ACF3-11D3-8CD1-00C04F8EDB8A}, NAME being
// four characters in the first field.
GUID wave64_label(DWORD name) {
    return {name, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
}
constexpr DWORD kWaveName = 0x65766177;  // "wave"
constexpr DWORD kFmtName = 0x20746D66;   // "fmt "
constexpr DWORD kDataName = 0x61746164;  // "data"

// A label for the terminal: the four characters of a Wave64 name or of the
// "riff" and "list" labels, else the GUID in its registry form.
std::string label_text(const GUID& g) {
    std::string name;
    for (int i = 0; i < 4; ++i) name += char((g.Data1 >> (8 * i)) & 0xFF);
    bool printable = true;
    for (char c : name) printable = printable && c >= 0x20 && c < 0x7F;
    if (printable && (g == wave64_label(g.Data1) || g == kRiffLabel || g == kListLabel))
        return name;
    char text[40];
    std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  unsigned(g.Data1), unsigned(g.Data2), unsigned(g.Data3), g.Data4[0], g.Data4[1],
                  g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
    return text;
}

unsigned long long ull(ULONGLONG value) {
    return value;
}

bool starts_wave64(const BYTE* bytes, DWORD size) {
    BYTE label[16];
    const GUID& l = kRiffLabel;
    for (int i = 0; i < 4; ++i) label[i] = BYTE(l.Data1 >> (8 * i));
    label[4] = BYTE(l.Data2), label[5] = BYTE(l.Data2 >> 8);
    label[6] = BYTE(l.Data3), label[7] = BYTE(l.Data3 >> 8);
    for (int i = 0; i < 8; ++i) label[8 + i] = l.Data4[i];
    return size >= 16 && std::equal(label, label + 16, bytes);
}

/*
 * The Wave64 file named on the command line, open on a handle that can
 * seek: the file itself, or a scratch copy of what a pipe held. Not open
 * when the file is not Wave64.
 */
class Wave64File {
public:
    Wave64File(const std::string& path, const InputImage& input) {
        // A file too large for an image has only its status; look at its
        // first bytes on the handle.
        const bool large = input.status() == QZE_UNSUPPORTED_FORMAT;
        if (!large && (FAILED(input.status()) || !starts_wave64(input.data(), input.size())))
            return;
        open(path);
        LARGE_INTEGER zero{};
        if (file_ != INVALID_HANDLE_VALUE && !SetFilePointerEx(file_, zero, nullptr, FILE_CURRENT))
            close();
        if (file_ == INVALID_HANDLE_VALUE && !large) copy_stream(input);
        BYTE head[16] = {};
        DWORD got = 0;
        if (file_ != INVALID_HANDLE_VALUE &&
            !(ReadFile(file_, head, 16, &got, nullptr) && starts_wave64(head, got)))
            close();
    }
    ~Wave64File() {
        close();
        if (!scratch_.empty()) std::filesystem::remove(scratch_);
    }
    Wave64File(const Wave64File&) = delete;
    Wave64File& operator=(const Wave64File&) = delete;

    HANDLE handle() const { return file_; }
    bool found() const { return file_ != INVALID_HANDLE_VALUE; }
    ULONGLONG size() const {
        LARGE_INTEGER bytes{};
        return GetFileSizeEx(file_, &bytes) ? ULONGLONG(bytes.QuadPart) : 0;
    }

private:
    void open(const std::string& path) {
        file_ = CreateFileW(utf16(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                            nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    }
    void close() {
        if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
        file_ = INVALID_HANDLE_VALUE;
    }
    // A pipe cannot seek: its bytes, already in the image, go to a file.
    void copy_stream(const InputImage& input) {
        using clock = std::chrono::steady_clock;
        scratch_ = (std::filesystem::temp_directory_path() /
                    ("qzk-w64-" + std::to_string(clock::now().time_since_epoch().count()) + ".w64"))
                       .string();
        std::ofstream(scratch_, std::ios::binary)
            .write(reinterpret_cast<const char*>(input.data()), std::streamsize(input.size()));
        open(scratch_);
    }

    HANDLE file_ = INVALID_HANDLE_VALUE;
    std::string scratch_;
};

struct Node {
    GUID label{};
    ULONGLONG offset = 0;  // of the header
    ULONGLONG size = 0;    // the data bytes after the header
    GUID list_type{};
    bool is_list = false;
    const char* trouble = nullptr;  // why the walk ends at this chunk
    std::vector<Node> children;
};

struct Tree {
    GUID form{};
    ULONGLONG size = 0;  // the file header's data bytes
    std::vector<Node> chunks;
    ULONGLONG damage_at = 0;
    std::string damage;  // empty when the file reads whole
};

void note(Tree* tree, ULONGLONG offset, const std::string& reason) {
    if (!tree->damage.empty()) return;  // the first break is the one that matters
    tree->damage_at = offset;
    tree->damage = reason;
}

/*
 * Walks `budget` bytes of sibling chunks from the position, descending
 * into lists. A chunk that runs past its parent or past the end of the
 * file is kept and ends the walk there; so does a header cut short.
 */
void walk(HANDLE h, LONGLONG budget, ULONGLONG file_size, std::vector<Node>* out, int depth,
          Tree* tree) {
    while (budget >= LONGLONG(kHeaderBytes)) {
        Node node;
        riff64_SaveLocation(h, &node.offset);
        if (FAILED(riff64_ReadChunkHeader(h, &node.label, &node.size))) {
            note(tree, node.offset, "a chunk header is cut short by the end of the file");
            return;
        }
        budget -= kHeaderBytes;
        const ULONGLONG body_at = node.offset + kHeaderBytes;
        if (node.size > file_size - std::min(file_size, body_at)) {
            node.trouble = "runs past the end of the file";
            note(tree, node.offset, "a chunk runs past the end of the file");
        } else if (node.size > ULONGLONG(budget)) {
            node.trouble = "runs past its parent";
        }
        if (node.label == kListLabel && node.size >= kTypeBytes && depth < 16) {
            riff64_RestoreLocation(h, node.offset);
            ULONGLONG inner = 0;
            node.is_list = SUCCEEDED(riff64_ReadListHeader(h, &node.list_type, &inner));
            const LONGLONG inner_budget = std::min<LONGLONG>(
                LONGLONG(std::min<ULONGLONG>(inner, INT64_MAX)), budget - LONGLONG(kTypeBytes));
            if (node.is_list) walk(h, inner_budget, file_size, &node.children, depth + 1, tree);
        }
        riff64_RestoreLocation(h, body_at);
        const ULONGLONG body = riff64_SkipChunk(h, node.size);
        const bool last = node.trouble != nullptr;
        out->push_back(std::move(node));
        // A last chunk may lack only its padding; the walk then ends.
        if (last || body >= ULONGLONG(budget)) return;
        budget -= LONGLONG(body);
    }
    if (budget > 0) {
        ULONGLONG at = 0;
        riff64_SaveLocation(h, &at);
        note(tree, at, std::to_string(budget) + " bytes are too few for a chunk header");
    }
}

void print_text(const std::vector<Node>& nodes, int depth) {
    for (const Node& n : nodes) {
        std::printf("%*s'%s'", 2 * depth + 2, "", label_text(n.label).c_str());
        if (n.is_list) std::printf(" '%s'", label_text(n.list_type).c_str());
        std::printf("  offset %llu  size %llu%s%s%s\n", ull(n.offset), ull(n.size),
                    n.trouble ? "  (" : "", n.trouble ? n.trouble : "", n.trouble ? ")" : "");
        print_text(n.children, depth + 1);
    }
}

void print_json(const std::vector<Node>& nodes) {
    std::printf("[");
    for (size_t i = 0; i < nodes.size(); ++i) {
        const Node& n = nodes[i];
        std::printf("%s{\"id\": %s, \"offset\": %llu, \"size\": %llu", i ? ", " : "",
                    json_quote(label_text(n.label)).c_str(), ull(n.offset), ull(n.size));
        if (n.trouble) std::printf(", \"trouble\": %s", json_quote(n.trouble).c_str());
        if (n.is_list) {
            std::printf(", \"type\": %s, \"chunks\": ",
                        json_quote(label_text(n.list_type)).c_str());
            print_json(n.children);
        }
        std::printf("}");
    }
    std::printf("]");
}

}  // namespace

HRESULT show_wave64_chunks(const std::string& path, const InputImage& input, bool json) {
    const Wave64File file(path, input);
    if (!file.found()) return S_FALSE;
    const HANDLE h = file.handle();
    Tree tree;
    LONGLONG remaining = 0;
    riff64_RestoreLocation(h, 0);
    const HRESULT hr = riff64_ReadFileID(h, &remaining, &tree.form);
    if (FAILED(hr)) return hr;
    tree.size = ULONGLONG(remaining) + kTypeBytes;
    // A size the writer never came back to fix: walk what the file holds.
    const ULONGLONG in_file = file.size() - std::min<ULONGLONG>(file.size(), 40);
    walk(h, LONGLONG(std::min<ULONGLONG>(remaining, in_file)), file.size(), &tree.chunks, 0, &tree);
    if (ULONGLONG(remaining) > in_file)
        note(&tree, 0,
             "the file's size runs past its end (" + std::to_string(file.size()) + " bytes)");
    if (json) {
        std::printf(
            "{\"file\": %s, \"format\": \"Wave64\", \"form\": %s, \"size\": %llu, "
            "\"chunks\": ",
            json_quote(path).c_str(), json_quote(label_text(tree.form)).c_str(), ull(tree.size));
        print_json(tree.chunks);
        if (!tree.damage.empty())
            std::printf(", \"damage\": {\"offset\": %llu, \"reason\": %s}", ull(tree.damage_at),
                        json_quote(tree.damage).c_str());
        std::printf("}\n");
    } else {
        std::printf("%s\nriff '%s'  offset 0  size %llu  (Wave64)\n", path.c_str(),
                    label_text(tree.form).c_str(), ull(tree.size));
        print_text(tree.chunks, 0);
        if (!tree.damage.empty())
            std::printf("damaged from offset %llu: %s\n", ull(tree.damage_at), tree.damage.c_str());
    }
    return tree.damage.empty() ? S_OK : QZE_CORRUPT_OR_UNKNOWN;
}

HRESULT read_wave64_format(const std::string& path, const InputImage& input, _qzwaveformat* format,
                           ULONGLONG* data_size) {
    const Wave64File file(path, input);
    if (!file.found()) return S_FALSE;
    const HANDLE h = file.handle();
    LONGLONG remaining = 0;
    GUID form{};
    riff64_RestoreLocation(h, 0);
    HRESULT hr = riff64_ReadFileID(h, &remaining, &form);
    if (SUCCEEDED(hr) && !(form == wave64_label(kWaveName))) hr = QZE_UNSUPPORTED_FORMAT;
    // The "fmt " body is a wave file's: it goes behind a RIFF "WAVE" header
    // in memory, and the library's wave reader decodes it from there.
    ULONGLONG size = 0;
    if (SUCCEEDED(hr)) hr = riff64_FindChunkHeaderInRIFF(h, wave64_label(kFmtName), &size, nullptr);
    constexpr DWORD kRoom = 1024;
    const DWORD body = DWORD(std::min<ULONGLONG>(size, kRoom));
    std::vector<BYTE> image = {'R', 'I', 'F', 'F', 0,   0,   0,   0,          'W',
                               'A', 'V', 'E', 'f', 'm', 't', ' ', BYTE(body), BYTE(body >> 8),
                               0,   0};
    image.resize(image.size() + body + (body & 1));
    if (SUCCEEDED(hr)) hr = riff64_ReadData(h, image.data() + 20, body);
    const std::vector<BYTE> data_header = {'d', 'a', 't', 'a', 0, 0, 0, 0};
    image.insert(image.end(), data_header.begin(), data_header.end());
    const DWORD riff_size = DWORD(image.size() - 8);
    for (int i = 0; i < 4; ++i) image[4 + i] = BYTE(riff_size >> (8 * i));
    if (SUCCEEDED(hr)) hr = mriff_GetWfx(format, image.data(), DWORD(image.size()), nullptr);
    if (SUCCEEDED(hr))
        hr = riff64_FindChunkHeaderInRIFF(h, wave64_label(kDataName), data_size, nullptr);
    return hr;
}

}  // namespace qzk
