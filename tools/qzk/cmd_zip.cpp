// `qzk zip create|list|extract`: zip archives with CArchive and QzZip_*.
// On a terminal, creating and extracting draw a progress bar, and Ctrl-C
// cancels through the progress interface (a cancelled archive is removed).
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#if defined(_WIN32)
#include <io.h>
#define QZK_ISATTY _isatty
#define QZK_FILENO _fileno
#else
#include <unistd.h>
#define QZK_ISATTY isatty
#define QZK_FILENO fileno
#endif

#include "tools/qzk/qzk.h"

namespace qzk {

namespace {

volatile std::sig_atomic_t g_interrupted = 0;

extern "C" void on_interrupt(int) {
    g_interrupted = 1;
}

/*
 * Cancels once Ctrl-C was pressed and draws the bar. The writer reports
 * each file's bytes from zero and repeats its last position when the file
 * is done, which is where the file's bytes join the total.
 */
class BarProgress : public IQzProgress {
public:
    BarProgress(ULONGLONG total, bool per_file) : total_(total), per_file_(per_file) {
        draw_ = QZK_ISATTY(QZK_FILENO(stderr)) != 0;
    }
    ~BarProgress() {
        if (draw_ && drawn_) std::fprintf(stderr, "\n");
    }
    HRESULT QZ_STDCALL QueryCancel() override { return g_interrupted ? QZE_CANCELLED : S_OK; }
    HRESULT QZ_STDCALL SetPosition(ULONGLONG position) override {
        ULONGLONG done = position;
        if (per_file_) {
            if (position == last_) {
                base_ += position;
                last_ = 0;
            } else {
                last_ = position;
            }
            done = base_ + last_;
        }
        if (!draw_) return S_OK;
        const int percent = total_ ? int(std::min<ULONGLONG>(100, done * 100 / total_)) : 100;
        const int filled = percent / 4;
        std::fprintf(stderr, "\r[%s%s] %3d%%", std::string(size_t(filled), '#').c_str(),
                     std::string(size_t(25 - filled), ' ').c_str(), percent);
        drawn_ = true;
        return S_OK;
    }

private:
    ULONGLONG total_;
    bool per_file_;
    ULONGLONG base_ = 0, last_ = 0;
    bool draw_ = false, drawn_ = false;
};

ULONGLONG bytes_under(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::is_directory(path, error)) {
        const auto size = std::filesystem::file_size(path, error);
        return error ? 0 : size;
    }
    ULONGLONG total = 0;
    for (auto it = std::filesystem::recursive_directory_iterator(path, error);
         it != std::filesystem::recursive_directory_iterator(); it.increment(error))
        if (it->is_regular_file(error)) total += it->file_size(error);
    return total;
}

int create(const Args& args) {
    const std::basic_string<WCHAR> archive_path = utf16(args[0]);
    ULONGLONG total = 0;
    for (size_t i = 1; i < args.size(); ++i) total += bytes_under(args[i]);
    CArchive archive;
    HRESULT hr = archive.Open(archive_path.c_str(), 6);
    if (FAILED(hr)) return fail("zip", hr, args[0]);
    std::signal(SIGINT, on_interrupt);
    {
        BarProgress progress(total, true);
        for (size_t i = 1; i < args.size() && SUCCEEDED(hr); ++i) {
            hr = archive.AddEntryToArchive(utf16(args[i]).c_str(), &progress, 0);
            if (FAILED(hr) && hr != QZE_CANCELLED) {
                archive.Close();
                std::remove(args[0].c_str());
                return fail("zip", hr, args[i]);
            }
        }
    }
    std::signal(SIGINT, SIG_DFL);
    if (SUCCEEDED(hr)) hr = archive.AddCentralDirectory();
    archive.Close();
    if (FAILED(hr)) {
        std::remove(args[0].c_str());
        return fail("zip", hr, args[0]);
    }
    return 0;
}

std::string dos_stamp(WORD date, WORD time) {
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", 1980 + (date >> 9),
                  (date >> 5) & 15, date & 31, time >> 11, (time >> 5) & 63, (time & 31) * 2);
    return text;
}

int list(const Args& args, bool json) {
    HQZZIP zip = nullptr;
    HRESULT hr = QzZip_Open(utf16(args[0]).c_str(), 0, &zip);
    if (FAILED(hr)) return fail("zip", hr, args[0]);
    HQZZIPENUM walk = nullptr;
    hr = QzZipEnum_Create(zip, &walk);
    if (FAILED(hr)) {
        QzZip_Close(zip);
        return fail("zip", hr, args[0]);
    }
    if (json) std::printf("{\"archive\": %s, \"entries\": [", json_quote(args[0]).c_str());
    QZZIPENTRYINFO info;
    bool first = true;
    while ((hr = QzZipEnum_Next(walk, &info)) == S_OK) {
        std::basic_string<WCHAR> name(info.name_length + 1, 0);
        QzZipEnum_GetFileName(walk, 0, name.data(), DWORD(name.size()));
        name.resize(info.name_length);
        const std::string stamp = dos_stamp(info.dos_date, info.dos_time);
        if (json) {
            std::printf(
                "%s\n  {\"name\": %s, \"size\": %llu, \"compressed\": %llu, \"method\": %u, "
                "\"crc32\": \"%08X\", \"modified\": \"%s\", \"folder\": %s}",
                first ? "" : ",", json_quote(utf8(name)).c_str(),
                (unsigned long long)info.uncompressed_size,
                (unsigned long long)info.compressed_size, unsigned(info.method),
                unsigned(info.crc32), stamp.c_str(), info.is_folder ? "true" : "false");
        } else {
            std::printf("%12llu %12llu  %s  %s\n", (unsigned long long)info.uncompressed_size,
                        (unsigned long long)info.compressed_size, stamp.c_str(),
                        utf8(name).c_str());
        }
        first = false;
    }
    if (json) std::printf("\n]}\n");
    QzZipEnum_Destroy(walk);
    QzZip_Close(zip);
    return 0;
}

int extract(const Args& args) {
    HQZZIP zip = nullptr;
    HRESULT hr = QzZip_Open(utf16(args[0]).c_str(), 0, &zip);
    if (FAILED(hr)) return fail("zip", hr, args[0]);
    ULONGLONG total = 0;
    QzZipEnum_GetTotalUncompressedSize(zip, &total);
    std::signal(SIGINT, on_interrupt);
    {
        BarProgress progress(total, false);
        hr = QzZip_ExtractAll(zip, utf16(args[1]).c_str(), 0, &progress);
    }
    std::signal(SIGINT, SIG_DFL);
    QzZip_Close(zip);
    return FAILED(hr) ? fail("zip", hr, args[0]) : 0;
}

}  // namespace

const char kZipUsage[] =
    "qzk zip create ARCHIVE PATH...   (files and folders; Ctrl-C cancels)\n"
    "       qzk zip list ARCHIVE [--json]\n"
    "       qzk zip extract ARCHIVE DIR";

int run_zip(const Args& args) {
    Args rest = args;
    const bool json = take_flag(rest, "--json");
    const std::string action = rest.empty() ? "" : rest[0];
    if (!rest.empty()) rest.erase(rest.begin());
    if (action == "create" && rest.size() >= 2) return create(rest);
    if (action == "list" && rest.size() == 1) return list(rest, json);
    if (action == "extract" && rest.size() == 2) return extract(rest);
    std::fprintf(stderr, "usage: %s\n", kZipUsage);
    return 2;
}

}  // namespace qzk
