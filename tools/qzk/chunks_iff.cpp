// `qzk chunks` and `qzk wavinfo` on IFF files: the "FORM" tree and the
// AIFF format, read with the iff_ functions on a file handle.
#include "tools/qzk/chunks_iff.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <random>

#include "base/byteorder.h"
#include "tools/qzk/qzk.h"

namespace qzk {

namespace {

using qz::base::fourcc_be;

constexpr DWORD kHeaderBytes = 8;
constexpr DWORD kTypeBytes = 4;
constexpr int kDeepest = 16;

bool is_group(DWORD id) {
    return id == fourcc_be("FORM") || id == fourcc_be("LIST") || id == fourcc_be("CAT ");
}

// An IFF id for the terminal, first character in the top byte; unprintable bytes become '?'.
std::string id_text(DWORD id) {
    std::string out;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const char c = char((id >> shift) & 0xFF);
        out += c >= 0x20 && c < 0x7F ? c : '?';
    }
    return out;
}

/*
 * The iff_ functions read a file handle: the file itself when it can seek,
 * and for a pipe a temporary copy of the bytes already read from it.
 */
class IffHandle {
public:
    IffHandle(const std::string& path, const InputImage& image) {
        handle_ = CreateFileW(utf16(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        LARGE_INTEGER zero{}, size{};
        if (handle_ != INVALID_HANDLE_VALUE &&
            SetFilePointerEx(handle_, zero, nullptr, FILE_BEGIN) && GetFileSizeEx(handle_, &size)) {
            size_ = ULONGLONG(size.QuadPart);
            return;
        }
        if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
        const auto name = "qzk-" + std::to_string(std::random_device{}()) + ".iff";
        copy_ = utf16((std::filesystem::temp_directory_path() / name).string());
        handle_ = CreateFileW(copy_.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
        DWORD put = 0;
        if (handle_ == INVALID_HANDLE_VALUE ||
            !WriteFile(handle_, image.data(), image.size(), &put, nullptr))
            status_ = QZE_FILE_CREATE;
        size_ = image.size();
        seek(0);
    }
    ~IffHandle() {
        if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
        if (!copy_.empty()) DeleteFileW(copy_.c_str());
    }
    IffHandle(const IffHandle&) = delete;
    IffHandle& operator=(const IffHandle&) = delete;

    HRESULT status() const { return status_; }
    HANDLE get() const { return handle_; }
    ULONGLONG size() const { return size_; }
    DWORD position() const {
        LARGE_INTEGER zero{}, at{};
        SetFilePointerEx(handle_, zero, &at, FILE_CURRENT);
        return DWORD(at.QuadPart);
    }
    void seek(DWORD position) const {
        SetFilePointer(handle_, LONG(position), nullptr, FILE_BEGIN);
    }

private:
    HANDLE handle_ = INVALID_HANDLE_VALUE;
    std::basic_string<WCHAR> copy_;
    ULONGLONG size_ = 0;
    HRESULT status_ = S_OK;
};

/*
 * Prints the chunks of one body as it walks them, text lines or a JSON
 * array, and keeps the first place where the file stops making sense.
 */
struct TreePrinter {
    const IffHandle& file;
    bool json;
    std::string damage;  // empty while the file is whole
    DWORD damage_at = 0;

    void note(DWORD offset, const std::string& reason) {
        if (!damage.empty()) return;
        damage = reason;
        damage_at = offset;
    }

    void line(const QZIFFCHUNK& c, DWORD offset, const DWORD* type, bool truncated, bool overruns,
              int depth, bool first) {
        const char* flag =
            truncated  ? (json ? ", \"truncated\": true" : "  (runs past the end of the file)")
            : overruns ? (json ? ", \"overruns\": true" : "  (runs past its parent)")
                       : "";
        if (!json) {
            std::printf("%*s'%s'", 2 * depth + 2, "", id_text(c.ckID).c_str());
            if (type) std::printf(" '%s'", id_text(*type).c_str());
            std::printf("  offset %u  size %u%s\n", unsigned(offset), unsigned(c.ckSize), flag);
            return;
        }
        std::printf("%s{\"id\": %s, \"offset\": %u, \"size\": %u%s", first ? "" : ", ",
                    json_quote(id_text(c.ckID)).c_str(), unsigned(offset), unsigned(c.ckSize),
                    flag);
        if (type) std::printf(", \"type\": %s, \"chunks\": ", json_quote(id_text(*type)).c_str());
    }

    // The chunks of `budget` bytes from the position, groups descended into.
    void body(DWORD budget, int depth) {
        if (json) std::printf("[");
        bool stopped = false;
        for (bool first = true; !stopped && budget >= kHeaderBytes; first = false) {
            const DWORD offset = file.position();
            QZIFFCHUNK c{};
            if (FAILED(iff_ReadChunkHdr(file.get(), &c))) {
                note(offset, "a chunk header is cut short by the end of the file");
                stopped = true;
                break;
            }
            budget -= kHeaderBytes;
            const ULONGLONG padded = ULONGLONG(c.ckSize) + (c.ckSize & 1);
            const bool overruns = padded > budget && c.ckSize > budget;
            const bool truncated = offset + kHeaderBytes + ULONGLONG(c.ckSize) > file.size();
            if (truncated) note(offset, "a chunk runs past the end of the file");
            DWORD type = 0;
            const bool group = is_group(c.ckID) && c.ckSize >= kTypeBytes && depth < kDeepest &&
                               SUCCEEDED(iff_ReadDWORD(file.get(), &type));
            line(c, offset, group ? &type : nullptr, truncated, overruns, depth, first);
            if (group)
                body(overruns ? budget - std::min(budget, kTypeBytes) : c.ckSize - kTypeBytes,
                     depth + 1);
            if (json) std::printf("}");
            file.seek(offset + kHeaderBytes);
            iff_SkipChunk(file.get(), c.ckSize);
            // A last chunk may lack only its pad byte; the walk then ends.
            stopped = overruns || truncated;
            budget -= DWORD(std::min<ULONGLONG>(padded, budget));
        }
        if (!stopped && budget > 0)
            note(file.position(), std::to_string(budget) + " bytes are too few for a chunk header");
        if (json) std::printf("]");
    }
};

}  // namespace

bool is_iff(const InputImage& image) {
    return SUCCEEDED(image.status()) && image.size() >= kHeaderBytes &&
           qz::base::load_be32(image.data()) == fourcc_be("FORM");
}

HRESULT show_iff_tree(const std::string& path, const InputImage& image, bool json) {
    const IffHandle file(path, image);
    if (FAILED(file.status())) return file.status();
    QZIFFCHUNK form{};
    DWORD type = 0;
    const HRESULT hr = iff_ReadFormType(file.get(), &form, &type);
    if (FAILED(hr)) return hr;
    if (json) {
        std::printf(
            "{\"file\": %s, \"container\": \"FORM\", \"form\": %s, \"size\": %u, \"chunks\": ",
            json_quote(path).c_str(), json_quote(id_text(type)).c_str(), unsigned(form.ckSize));
    } else {
        std::printf("%s\nFORM '%s'  offset 0  size %u\n", path.c_str(), id_text(type).c_str(),
                    unsigned(form.ckSize));
    }
    // A size the writer never came back to fix: walk what the file holds, then say so.
    TreePrinter printer{file, json, {}, 0};
    const ULONGLONG in_file = file.size() - std::min<ULONGLONG>(file.size(), 12);
    const DWORD budget = form.ckSize - std::min<DWORD>(form.ckSize, kTypeBytes);
    printer.body(DWORD(std::min<ULONGLONG>(budget, in_file)), 0);
    if (budget > in_file)
        printer.note(0, "the FORM size runs past the end of the file (" +
                            std::to_string(file.size()) + " bytes)");
    if (json) {
        if (!printer.damage.empty())
            std::printf(", \"damage\": {\"offset\": %u, \"reason\": %s}",
                        unsigned(printer.damage_at), json_quote(printer.damage).c_str());
        std::printf("}\n");
    } else if (!printer.damage.empty()) {
        std::printf("damaged from offset %u: %s\n", unsigned(printer.damage_at),
                    printer.damage.c_str());
    }
    return printer.damage.empty() ? S_OK : QZE_CORRUPT_OR_UNKNOWN;
}

HRESULT read_aiff_format(const std::string& path, const InputImage& image, _qzwaveformat* format,
                         ULONGLONG* data_size) {
    const IffHandle file(path, image);
    if (FAILED(file.status())) return file.status();
    WAVEFORMATEX wfx{};
    DWORD frames = 0;
    const HRESULT hr = iff_GetAIFFWfx(file.get(), &wfx, &frames, nullptr);
    if (FAILED(hr)) return hr;
    format->Init(QZWAVEFORMAT_TEMP_SIZE, wfx);
    *data_size = ULONGLONG(frames) * wfx.nBlockAlign;
    return S_OK;
}

}  // namespace qzk
