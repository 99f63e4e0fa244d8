// iff_*: AIFF and AIFF-C files: the classification, the sample format and
// the markers.
#include <algorithm>

#include "chunkfiles/iff_io.h"
#include "qz/iff.h"

using namespace qz::iff;
using qz::base::load_be16;
using qz::base::load_be32;

namespace {

/* The fields of "COMM" this family reads, in file order. */
constexpr DWORD kCommBytes = 18;      // channels, frames, bits, rate
constexpr DWORD kCommAifcBytes = 22;  // and, in AIFF-C, the compression type

struct Comm {
    WORD channels = 0;
    DWORD frames = 0;
    WORD bits = 0;
    WORD exponent = 0;      // the 80-bit rate: sign and exponent,
    WORD mantissa[4] = {};  // then the mantissa, most significant word first
    DWORD compression = 0;
};

Comm decode_comm(const unsigned char* b) {
    Comm c;
    c.channels = load_be16(b);
    c.frames = load_be32(b + 2);
    c.bits = load_be16(b + 6);
    c.exponent = load_be16(b + 8);
    for (int i = 0; i < 4; ++i) c.mantissa[i] = load_be16(b + 10 + 2 * i);
    c.compression = load_be32(b + 18);
    return c;
}

/* The AIFF-C compressions read as plain PCM; "sowt" has its samples byte-swapped. */
bool readable_compression(DWORD type, bool* little_endian) {
    if (type == kSwappedCompression) *little_endian = true;
    return type == kNoCompression || type == kSwappedCompression;
}

bool is_sound_form(const qz::chunks::FileHeader<IffLayout>& form) {
    return form.arrived >= kFileHeaderBytes && form.id == kFormId &&
           (form.form == kAiffForm || form.form == kAifcForm);
}

/* A chunk a walk found: where its body starts, and its size. */
struct Found {
    bool found = false;
    uint64_t at = 0;
    DWORD size = 0;
};

/*
 * Walks the top level once for "COMM" and "SSND", in whichever order they
 * stand, and finds the same chunks as two searches from the same place
 * with the same budget would: the walk passes every other chunk (and a
 * second "COMM" or "SSND") exactly as a search passes it. What it returns
 * is how the walk ended, which is how the search for a chunk it did not
 * find would have ended.
 */
HRESULT find_comm_and_ssnd(qz::chunks::ReadAheadSource& file, DWORD budget, Found* comm,
                           Found* ssnd) {
    DWORD left = budget;
    const auto wanted = [&](DWORD id) {
        return (id == kCommId && !comm->found) || (id == kSsndId && !ssnd->found);
    };
    for (;;) {
        DWORD id = 0;
        DWORD size = 0;
        const HRESULT hr = qz::chunks::find_chunk_where<IffLayout>(file, wanted, &id, &size, &left);
        if (FAILED(hr)) return hr;
        Found& found = id == kCommId ? *comm : *ssnd;
        found.found = true;
        found.size = size;
        if (!file.tell(&found.at)) return QZE_FILE_READ;
        if (comm->found && ssnd->found) return S_OK;
        if (!qz::chunks::pass_found_body<IffLayout>(file, size, &left)) return QZE_FILE_READ;
    }
}

/*
 * The wave format of "COMM". The byte rate takes the block align before a
 * block align of 0 is raised to 1, so a format without whole bytes per
 * frame reports no byte rate rather than a made-up one.
 */
void fill_format(const Comm& c, bool little_endian, WAVEFORMATEX* wfx) {
    const DWORD rate = aiff_ConvertRate(c.exponent, c.mantissa);
    const auto block = WORD(c.bits / 8 * c.channels);
    wfx->wFormatTag = c.bits == 8     ? QZWAVE_FORMAT_PCM_SIGNED
                      : little_endian ? WORD(WAVE_FORMAT_PCM)
                                      : QZWAVE_FORMAT_PCM_BIGENDIAN;
    wfx->nChannels = c.channels;
    wfx->nSamplesPerSec = rate;
    wfx->nAvgBytesPerSec = DWORD(block) * rate;
    wfx->nBlockAlign = block ? block : 1;
    wfx->wBitsPerSample = c.bits;
    wfx->cbSize = 0;
}

/* The bytes of sample data "SSND" holds after its two fields and the offset. */
uint64_t sample_bytes(DWORD ssnd_size, DWORD offset) {
    constexpr DWORD kFieldBytes = 8;  // offset, block size
    const uint64_t after_fields = ssnd_size > kFieldBytes ? ssnd_size - kFieldBytes : 0;
    return after_fields > offset ? after_fields - offset : 0;
}

}  // namespace

namespace qz::iff {

bool classify(FileSource& file, AiffKind* kind) {
    *kind = AiffKind{};
    const auto form = rewind_to_form(file);
    if (form.arrived < kFileHeaderBytes || form.id != kFormId) return false;
    kind->form_size = form.size;
    if (form.form == kAiffForm) return true;
    if (form.form != kAifcForm) return false;
    kind->compressed = true;
    DWORD left = form.size;
    DWORD size = 0;
    unsigned char comm[kCommAifcBytes];
    const bool read = SUCCEEDED(chunks::find_chunk<IffLayout>(file, kCommId, &size, &left)) &&
                      size >= kCommAifcBytes && file.read(comm, sizeof comm);
    const bool readable =
        read && readable_compression(decode_comm(comm).compression, &kind->little_endian);
    return file.seek_to(uint64_t(kFileHeaderBytes)) && readable;
}

}  // namespace qz::iff

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL iff_IsAIFFFileEx(HANDLE file, DWORD* form_size, BOOL* compressed,
                                                    BOOL* little_endian) {
    FileSource source(file);
    AiffKind kind;
    const bool aiff = classify(source, &kind);
    if (form_size) *form_size = kind.form_size;
    if (compressed) *compressed = kind.compressed;
    if (little_endian) *little_endian = kind.little_endian;
    return aiff ? TRUE : FALSE;
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL iff_IsAIFFFile(HANDLE file, DWORD* form_size) {
    return iff_IsAIFFFileEx(file, form_size, nullptr, nullptr);
}

namespace {

/*
 * iff_GetAIFFWfx. The classification of iff_IsAIFFFileEx, the "COMM" and
 * the "SSND" searches share one walk of the top level: for an AIFF-C file
 * the classification's "COMM" is the one the format comes from.
 */
HRESULT read_format(qz::chunks::ReadAheadSource& source, WAVEFORMATEX* wfx, DWORD* frames,
                    DWORD* data_position) {
    const auto form = rewind_to_form(source);
    if (!is_sound_form(form)) return QZE_CORRUPT_OR_UNKNOWN;
    const bool aifc = form.form == kAifcForm;
    Found comm;
    Found ssnd;
    const HRESULT walk = find_comm_and_ssnd(source, form.size, &comm, &ssnd);
    unsigned char bytes[kCommAifcBytes] = {};
    const bool comm_read = comm.found && source.seek_to(comm.at) &&
                           source.read(bytes, aifc ? kCommAifcBytes : kCommBytes);
    const Comm c = decode_comm(bytes);
    bool little_endian = false;
    if (aifc) {
        if (!comm_read || comm.size < kCommAifcBytes ||
            !readable_compression(c.compression, &little_endian))
            return QZE_CORRUPT_OR_UNKNOWN;
    } else if (!comm.found) {
        return walk;
    } else if (!comm_read) {
        return QZE_FILE_READ;
    }
    WAVEFORMATEX scratch{};
    WAVEFORMATEX* format = wfx ? wfx : &scratch;
    fill_format(c, little_endian, format);

    if (!ssnd.found) return walk;
    unsigned char fields[8];
    if (!source.seek_to(ssnd.at) || !source.read(fields, sizeof fields)) return QZE_FILE_READ;
    const DWORD offset = load_be32(fields);  // the block size after it is not used
    if (frames)
        *frames = DWORD(
            std::min<uint64_t>(sample_bytes(ssnd.size, offset) / format->nBlockAlign, c.frames));
    if (data_position) *data_position = DWORD(ssnd.at + sizeof fields + offset);
    return S_OK;
}

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL iff_GetAIFFWfx(HANDLE file, WAVEFORMATEX* wfx, DWORD* frames,
                                                     DWORD* data_position) {
    // A sound file's headers lie close together at its front: one read of
    // a look-ahead block usually holds them all. The handle's pointer is
    // then put where the last field read ended.
    qz::chunks::ReadAheadSource source(file, 0);
    const HRESULT hr = read_format(source, wfx, frames, data_position);
    return source.sync() || FAILED(hr) ? hr : QZE_FILE_READ;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL iff_FindMarker(HANDLE file, WORD id, QZAIFFMARKER* marker) {
    if (!marker) return E_INVALIDARG;
    DWORD size = 0;
    const HRESULT hr = iff_FindChunkFromStart(file, kMarkId, &size);
    if (FAILED(hr)) return hr;
    FileSource source(file);
    unsigned char count_field[2];
    if (!source.read(count_field, sizeof count_field)) return QZE_FILE_READ;
    DWORD count = load_be16(count_field);
    if (count == 0 || size == 0) return QZE_NOT_FOUND;
    // Each entry: id (2), position (4), the name's length byte and the name,
    // padded so that length byte and name end on an even offset. Entries are
    // read only while they fit in the chunk, whatever the count claims.
    constexpr DWORD kEntryBytes = 7;
    int64_t left = int64_t(size) - int64_t(sizeof count_field);
    for (; count > 0; --count) {
        if (left < kEntryBytes) return QZE_NOT_FOUND;
        unsigned char entry[kEntryBytes];
        if (!source.read(entry, sizeof entry)) return QZE_NO_RIFF_HEADER;
        marker->wId = load_be16(entry);
        marker->dwPosition = load_be32(entry + 2);
        marker->cbName = entry[6];
        if (marker->wId == id) return S_OK;
        const DWORD name = marker->cbName + ((marker->cbName & 1) ? 0 : 1);
        if (!source.skip(name)) return QZE_FILE_READ;
        left -= kEntryBytes + name;
    }
    return QZE_NOT_FOUND;
}
