// `qzk wavinfo FILE` loads a wave file as an image and prints its format as the library
// reads it; the "wavinfo" demo section writes a wave image in memory with
// the mriff_ writers and reads it back.
#include <cstdio>
#include <string>
#include <vector>

#include "tools/qzk/chunks_iff.h"
#include "tools/qzk/chunks_w64.h"
#include "tools/qzk/input.h"
#include "tools/qzk/qzk.h"

namespace qzk {

namespace {

struct WaveInfo {
    _qzwaveformat format;
    ULONGLONG data_size = 0;  // Wave64 data may pass 4 GiB
};

std::string sample_type_text(const _qzwaveformat& f) {
    WCHAR buf[64];
    return utf8(QzAudio_GetSampleTypeText(&f, buf, 64));
}

std::string bit_depth_text(const _qzwaveformat& f) {
    WCHAR buf[64];
    return utf8(QzAudio_GetBitDepthText(&f, buf, 64, TRUE));
}

double duration_seconds(const WaveInfo& w) {
    const DWORD rate = w.format.avgBytesPerSec;
    return rate ? double(w.data_size) / rate : 0.0;
}

void print_text(const std::string& path, const WaveInfo& w) {
    const _qzwaveformat& f = w.format;
    std::printf("file:          %s\n", path.c_str());
    std::printf("sample rate:   %u Hz\n", unsigned(f.samplesPerSec));
    std::printf("channels:      %u\n", unsigned(f.channels));
    std::printf("sample type:   %u (%s)\n", unsigned(f.sampleType), sample_type_text(f).c_str());
    std::printf("bit depth:     %s\n", bit_depth_text(f).c_str());
    std::printf("format tag:    0x%04X%s\n", unsigned(f.FormatTag()),
                f.IsCompressed() ? " (foreign)" : "");
    std::printf("extensible:    %s\n", (f.flags & QZWF_EXTENSIBLE) ? "yes" : "no");
    std::printf("block align:   %u\n", unsigned(f.blockAlign));
    std::printf("byte rate:     %u\n", unsigned(f.avgBytesPerSec));
    std::printf("channel mask:  0x%X\n", unsigned(f.channelMask));
    std::printf("data size:     %llu bytes\n", static_cast<unsigned long long>(w.data_size));
    std::printf("duration:      %.3f s\n", duration_seconds(w));
}

void print_json(const std::string& path, const WaveInfo& w) {
    const _qzwaveformat& f = w.format;
    std::printf("{\"file\": %s, \"sample_rate\": %u, \"channels\": %u, ", json_quote(path).c_str(),
                unsigned(f.samplesPerSec), unsigned(f.channels));
    std::printf("\"sample_type\": %u, \"sample_type_text\": %s, \"bit_depth_text\": %s, ",
                unsigned(f.sampleType), json_quote(sample_type_text(f)).c_str(),
                json_quote(bit_depth_text(f)).c_str());
    std::printf("\"format_tag\": %u, \"foreign\": %s, \"extensible\": %s, ",
                unsigned(f.FormatTag()), f.IsCompressed() ? "true" : "false",
                (f.flags & QZWF_EXTENSIBLE) ? "true" : "false");
    std::printf("\"block_align\": %u, \"byte_rate\": %u, \"channel_mask\": %u, ",
                unsigned(f.blockAlign), unsigned(f.avgBytesPerSec), unsigned(f.channelMask));
    std::printf("\"data_size\": %llu, \"duration\": %.6f}\n",
                static_cast<unsigned long long>(w.data_size), duration_seconds(w));
}

// Most wave files have their format and the data header in the first few
// hundred bytes; reading that much is far cheaper than mapping the file.
constexpr DWORD kHeadBytes = 4096;

HRESULT read_image(const BYTE* data, DWORD size, WaveInfo* info) {
    DWORD data_size = 0;
    const HRESULT hr = mriff_GetWfx(&info->format, data, size, &data_size);
    info->data_size = data_size;
    return hr;
}

HRESULT read_from(const InputImage& input, WaveInfo* info) {
    if (FAILED(input.status())) return input.status();
    return read_image(input.data(), input.size(), info);
}

// Reads the head first; only when the headers may lie past it (the search
// ran out of bytes) is the whole file loaded.
HRESULT read_wave_info(const std::string& path, WaveInfo* info) {
    {
        const InputImage head(path, kHeadBytes);
        if (is_iff(head)) return read_aiff_format(path, head, &info->format, &info->data_size);
        const HRESULT w64 = read_wave64_format(path, head, &info->format, &info->data_size);
        if (w64 != S_FALSE) return w64;
        const HRESULT hr = read_from(head, info);
        if (!head.is_head() || (hr != QZE_FILE_READ && hr != QZE_NOT_FOUND)) return hr;
    }
    return read_from(InputImage(path), info);
}

}  // namespace

int run_wavinfo(const Args& args) {
    Args rest = args;
    const bool json = take_flag(rest, "--json");
    if (rest.size() != 1) {
        std::fprintf(stderr, "usage: qzk wavinfo FILE [--json]\n");
        return 2;
    }
    const std::string& path = rest[0];
    WaveInfo info;
    const HRESULT hr = read_wave_info(path, &info);
    if (FAILED(hr)) return fail("wavinfo", hr, path);
    if (json)
        print_json(path, info);
    else
        print_text(path, info);
    return 0;
}

int demo_wavinfo() {
    // Half a second of 5.1 float at 48 kHz: the header goes into the front
    // of a buffer, the samples after it, and the image is read back.
    _qzwaveformat written;
    written.Init(48000, QZST_FLOAT32, 6, 0x3F, QZWAVEFORMAT_TEMP_SIZE);
    const DWORD data_size = 24000 * written.blockAlign;
    std::vector<BYTE> image(64 + data_size);
    _tMRIFF m;
    HRESULT hr = mriff_Init(&m, image.data(), 0, DWORD(image.size()));
    if (SUCCEEDED(hr)) hr = mriff_WriteWaveHeader(&m, written, data_size, 0);
    if (FAILED(hr)) return fail("demo", hr, "mriff_WriteWaveHeader");
    mriff_UpdateDataSize(&m, data_size);  // the samples: silence
    const DWORD image_size = DWORD(m.pDataEnd - m.pBase);
    std::printf("wrote a %u-byte wave image: %s, %u channels, %u Hz\n", unsigned(image_size),
                sample_type_text(written).c_str(), unsigned(written.channels),
                unsigned(written.samplesPerSec));

    WaveInfo back;
    hr = read_image(image.data(), image_size, &back);
    if (FAILED(hr)) return fail("demo", hr, "mriff_GetWfx");
    print_text("(memory)", back);
    // The header is a plain WAVEFORMATEX, so the mask stays behind; 0x3F is
    // the default for six channels, so the formats still compare equal.
    const bool same = back.format == written;
    std::printf("read back as written: %s\n", same ? "yes" : "no");
    return same ? 0 : 1;
}

}  // namespace qzk
