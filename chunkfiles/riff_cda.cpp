// riff_*: CD-audio track files (".cda"), RIFF files of form type "CDDA".
#include "chunkfiles/riff_io.h"
#include "qz/riff.h"

using namespace qz::riff;

namespace {

constexpr DWORD kCddaRecordBytes = 24;
/* Frames (1/75 second) per second of CD audio. */
constexpr DWORD kFramesPerSecond = 75;

void decode_cdda(const unsigned char* b, QZRIFFCDDA* record) {
    record->wFormatVersion = qz::base::load_le16(b + 0);
    record->wTrackNumber = qz::base::load_le16(b + 2);
    record->dwDiscSerial = qz::base::load_le32(b + 4);
    record->dwStartSector = qz::base::load_le32(b + 8);
    record->dwLengthSectors = qz::base::load_le32(b + 12);
    record->bStartFrame = b[16];
    record->bStartSecond = b[17];
    record->bStartMinute = b[18];
    record->bStartUnused = b[19];
    record->bLengthFrame = b[20];
    record->bLengthSecond = b[21];
    record->bLengthMinute = b[22];
    record->bLengthUnused = b[23];
}

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_ReadRIFFCDDA(HANDLE file, QZRIFFCDDA* record) {
    if (!record) return E_INVALIDARG;
    FileSource source(file);
    DWORD riff_size = 0;
    DWORD form = 0;
    HRESULT hr = read_file_header(source, &riff_size, &form);
    if (FAILED(hr)) return hr;
    if (form != kCddaForm) return QZE_CORRUPT_OR_UNKNOWN;
    DWORD left = riff_size - 4;
    DWORD size = 0;
    hr = qz::chunks::find_chunk<qz::chunks::RiffLayout>(source, kFmtId, &size, &left);
    if (FAILED(hr)) return hr;
    if (size != kCddaRecordBytes) return QZE_UNSUPPORTED_VERSION;
    unsigned char bytes[kCddaRecordBytes];
    if (!source.read(bytes, sizeof bytes)) return QZE_FILE_READ;
    decode_cdda(bytes, record);
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_ReadCDAFile(LPCWSTR path, DWORD* track,
                                                       DWORD* start_sector, DWORD* start_frames,
                                                       DWORD* length_sectors, DWORD* disc_serial) {
    QZRIFFCDDA record{};
    HRESULT hr = QZE_FILE_OPEN;
    const HANDLE file =
        path ? CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr)
             : INVALID_HANDLE_VALUE;
    if (file != INVALID_HANDLE_VALUE) {
        hr = riff_ReadRIFFCDDA(file, &record);
        CloseHandle(file);
    }
    // Filled whatever happened: a failed read leaves the zeroed record, so
    // callers that ignore the result still see zeros rather than garbage.
    if (track) *track = record.wTrackNumber;
    if (start_sector) *start_sector = record.dwStartSector;
    if (start_frames)
        *start_frames = (DWORD(record.bStartMinute) * 60 + record.bStartSecond) * kFramesPerSecond +
                        record.bStartFrame;
    if (length_sectors) *length_sectors = record.dwLengthSectors;
    if (disc_serial) *disc_serial = record.dwDiscSerial;
    return hr;
}
