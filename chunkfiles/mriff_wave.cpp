// mriff_*: wave headers written into and format chunks read from an image.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "audioformat/wave_chunk.h"
#include "chunkfiles/mriff_io.h"
#include "qz/qzwaveformat.h"

using namespace qz::mriff;

namespace {

using qz::chunks::RiffLayout;
using qz::wave::kFormatChunkRoom;
using qz::wave::kWfxBytes;
using qz::wave::kWfxeBytes;

// "WAVE", the "fmt " header and the "data" header around the format body.
constexpr DWORD kWaveOverhead = 4 + 8 + 8;

// The RIFF size of a wave header: format body, samples, the caller's room
// and the headers, raised to even. A recorder that streams writes data
// size 0xFFFFFFFF while the length is not known yet, so a sum that does
// not fit 32 bits (or whose pad would not) is held at 0xFFFFFFFF, which
// readers of streamed files take as "to the end of the file".
DWORD riff_size_for(DWORD body_size, DWORD data_size, DWORD extra_size) {
    uint64_t size = uint64_t(body_size) + data_size + extra_size + kWaveOverhead;
    size += size & 1;
    return size > 0xFFFFFFFFu ? 0xFFFFFFFFu : DWORD(size);
}

struct WaveImage {
    DWORD format_bytes = 0;  // bytes of the format body copied
    DWORD data_size = 0;     // the data chunk's size field
};

/*
 * Finds "fmt " and "data" in a wave image and copies up to `room` bytes of
 * the format body into `format`. One walk from the first chunk serves
 * both: each is the first of its id that a search from the start with the
 * image size as the budget would find, and a missing one fails as that
 * search would.
 */
HRESULT read_wave_image(LPCVOID base, DWORD size, BYTE* format, DWORD room, WaveImage* out) {
    if (!base && size) return E_POINTER;
    _tMRIFF m = read_cursor(base, size);
    MemorySource image(m);
    DWORD riff_size = 0;
    DWORD form = 0;
    HRESULT hr = read_file_header(image, &riff_size, &form);
    if (FAILED(hr)) return hr;
    if (form != kWaveForm) return E_FAIL;

    DWORD left = size - kFileHeaderBytes;
    bool have_format = false;
    bool have_data = false;
    while (!have_format || !have_data) {
        const auto wanted = [&](DWORD id) {
            return (id == kFmtId && !have_format) || (id == kDataId && !have_data);
        };
        DWORD id = 0;
        DWORD chunk_size = 0;
        hr = qz::chunks::find_chunk_where<RiffLayout>(image, wanted, &id, &chunk_size, &left);
        if (FAILED(hr)) return hr;
        DWORD copied = 0;
        if (id == kFmtId) {
            // The body may run past the image; the copy stops at its end.
            copied = image.read_some(format, std::min(chunk_size, room));
            out->format_bytes = copied;
            have_format = true;
        } else {
            out->data_size = chunk_size;
            have_data = true;
        }
        image.skip(-int64_t(copied));
        qz::chunks::pass_found_body<RiffLayout>(image, chunk_size, &left);
    }
    return S_OK;
}

}  // namespace

QZ_API HRESULT QZ_STDCALL mriff_WriteWaveHeader(_tMRIFF* m, const WAVEFORMATEX* wfx, DWORD dataSize,
                                                DWORD extraSize) {
    if (!m || !wfx) return E_POINTER;
    BYTE body[kWfxBytes] = {};
    const DWORD body_size = qz::wave::encode_format_body(*wfx, body);
    const DWORD riff_size = riff_size_for(body_size, dataSize, extraSize);

    HRESULT hr = mriff_WriteChunkHeader(m, kRiffId, riff_size);
    MemorySource image(*m);
    if (SUCCEEDED(hr) && !write_word(image, kWaveForm)) hr = QZE_FILE_WRITE;
    const HRESULT fmt = mriff_WriteChunkHeader(m, kFmtId, body_size);
    if (SUCCEEDED(hr)) hr = fmt;
    if (!image.write(body, body_size) && SUCCEEDED(hr)) hr = QZE_FILE_WRITE;
    // The caller writes the samples after this header and knows how far
    // its buffer reaches; the data header's own fit is not reported.
    mriff_WriteChunkHeader(m, kDataId, dataSize);
    return hr;
}

QZ_API HRESULT QZ_STDCALL mriff_WriteWaveHeader(_tMRIFF* m, const _qzwaveformat& rec,
                                                DWORD dataSize, DWORD extraSize) {
    const _qzwaveformat_wfxcopyhelper wfx(rec);
    return mriff_WriteWaveHeader(m, wfx.wfx(), dataSize, extraSize);
}

QZ_API HRESULT QZ_STDCALL mriff_GetWfx(WAVEFORMATEX* wfx, LPCVOID base, DWORD size,
                                       DWORD* dataSize) {
    if (!wfx) return E_POINTER;
    BYTE body[kWfxBytes] = {};
    WaveImage found;
    const HRESULT hr = read_wave_image(base, size, body, kWfxBytes, &found);
    if (FAILED(hr)) return hr;
    qz::wave::decode_wfx(body, wfx);
    if (dataSize) *dataSize = found.data_size;
    return S_OK;
}

QZ_API HRESULT QZ_STDCALL mriff_GetWfx(_qzwaveformat* rec, LPCVOID base, DWORD size,
                                       DWORD* dataSize) {
    if (!rec) return E_POINTER;
    // Only the bytes the format holds are touched: the body as far as it
    // was copied, zeros up to the extensible fields, and what the decoder
    // writes.
    BYTE body[kFormatChunkRoom];
    WaveImage found;
    const HRESULT hr = read_wave_image(base, size, body, kFormatChunkRoom, &found);
    if (FAILED(hr)) return hr;
    if (found.format_bytes < kWfxeBytes)
        std::memset(body + found.format_bytes, 0, kWfxeBytes - found.format_bytes);
    alignas(8) BYTE wfx[kFormatChunkRoom];
    std::memset(wfx, 0, kWfxeBytes);
    qz::wave::decode_format_body(body, found.format_bytes, wfx);
    rec->Init(QZWAVEFORMAT_TEMP_SIZE, *reinterpret_cast<const WAVEFORMATEX*>(wfx));
    if (dataSize) *dataSize = found.data_size;
    return S_OK;
}
