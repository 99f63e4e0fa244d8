// Summary items: the class frame and the calls that append one tag.
#include <cstring>
#include <vector>

#include "base/guard.h"
#include "documents/exif_internal.h"

namespace qz::exif {

HRESULT append_item(tQZLIST* list, DWORD id, const void* data, DWORD size) {
    if (size > UINT32_MAX - kItemHeaderSize) return E_OUTOFMEMORY;
    std::vector<BYTE> block(size_t(kItemHeaderSize) + size);
    QZMETA_SUM_TAG header{};
    header.header_size = kItemHeaderSize;
    header.id = id;
    header.data_size = size;
    std::memcpy(block.data(), &header, kItemHeaderSize);
    if (data && size) std::memcpy(block.data() + kItemHeaderSize, data, size);
    return QzList_AllocAndInsertItem(list, block.data(), UINT(block.size()), -1, nullptr);
}

const QZMETA_SUM_TAG* find_item(const tQZLIST* list, DWORD id) {
    for (LONG i = 0; i < list->count; ++i) {
        const QZMETA_SUM_TAG* item = item_at(list, i);
        if (item && item->id == id) return item;
    }
    return nullptr;
}

}  // namespace qz::exif

using namespace qz::exif;

CQzExifMetaDataHelper::CQzExifMetaDataHelper() : m_byte_order(0) {}

CQzExifMetaDataHelper::~CQzExifMetaDataHelper() = default;

HRESULT CQzExifMetaDataHelper::AddExifTagToSummaryList(tQZLIST* list, WORD tag, WORD ifd, WORD type,
                                                       DWORD size, LPCVOID data) {
    if (!list || !is_valid_type(type) || ifd > kMaxIfdInId) return E_INVALIDARG;
    return qz::base::guarded(
        [&] { return append_item(list, make_id(ifd, tag, type), data, size); });
}

HRESULT CQzExifMetaDataHelper::AddStringExifTagToSummaryList(tQZLIST* list, WORD tag, WORD ifd,
                                                             LPCWSTR text) {
    if (!text) return E_INVALIDARG;
    size_t length = 0;
    while (text[length]) ++length;
    if (length >= (UINT32_MAX - kItemHeaderSize) / sizeof(WCHAR)) return E_OUTOFMEMORY;
    return AddExifTagToSummaryList(list, tag, ifd, QZEXIF_TYPE_ASCII,
                                   DWORD((length + 1) * sizeof(WCHAR)), text);
}

HRESULT CQzExifMetaDataHelper::AddRationalExifTagToSummaryList(tQZLIST* list, WORD tag, WORD ifd,
                                                               DWORD numerator, DWORD denominator) {
    const DWORD value[2] = {numerator, denominator};
    return AddExifTagToSummaryList(list, tag, ifd, QZEXIF_TYPE_RATIONAL, sizeof value, value);
}

HRESULT CQzExifMetaDataHelper::AddShortExifTagToSummaryList(tQZLIST* list, WORD tag, WORD ifd,
                                                            WORD value) {
    return AddExifTagToSummaryList(list, tag, ifd, QZEXIF_TYPE_SHORT, sizeof value, &value);
}

HRESULT CQzExifMetaDataHelper::AddLongExifTagToSummaryList(tQZLIST* list, WORD tag, WORD ifd,
                                                           DWORD value) {
    return AddExifTagToSummaryList(list, tag, ifd, QZEXIF_TYPE_LONG, sizeof value, &value);
}

// A thumbnail of 160 x 120 pixels at 72 dots per inch, as cameras write
// beside the main image.
HRESULT CQzExifMetaDataHelper::AddDefaultThumbnailExifTagsToSummaryList(tQZLIST* list) {
    static constexpr BYTE kExifVersion[4] = {'0', '2', '2', '1'};
    static constexpr BYTE kComponentsYCbCr[4] = {1, 2, 3, 0};
    static constexpr BYTE kVersion0100[4] = {'0', '1', '0', '0'};
    constexpr WORD kIfd0 = QZEXIF_IFD_0TH, kExif = QZEXIF_IFD_EXIF,
                   kInterop = QZEXIF_IFD_INTEROPERABILITY;
    HRESULT hr = AddRationalExifTagToSummaryList(list, 282, kIfd0, 7200000, 100000);  // XResolution
    if (SUCCEEDED(hr)) hr = AddRationalExifTagToSummaryList(list, 283, kIfd0, 7200000, 100000);
    if (SUCCEEDED(hr)) hr = AddShortExifTagToSummaryList(list, 296, kIfd0, 2);  // inches
    if (SUCCEEDED(hr)) hr = AddShortExifTagToSummaryList(list, 531, kIfd0, 2);  // co-sited
    if (SUCCEEDED(hr))
        hr = AddExifTagToSummaryList(list, 36864, kExif, QZEXIF_TYPE_UNDEFINED, 4, kExifVersion);
    if (SUCCEEDED(hr))
        hr =
            AddExifTagToSummaryList(list, 37121, kExif, QZEXIF_TYPE_UNDEFINED, 4, kComponentsYCbCr);
    if (SUCCEEDED(hr))
        hr = AddExifTagToSummaryList(list, 40960, kExif, QZEXIF_TYPE_UNDEFINED, 4, kVersion0100);
    if (SUCCEEDED(hr)) hr = AddShortExifTagToSummaryList(list, 40961, kExif, 1);  // sRGB
    if (SUCCEEDED(hr)) hr = AddLongExifTagToSummaryList(list, 40962, kExif, 160);
    if (SUCCEEDED(hr)) hr = AddLongExifTagToSummaryList(list, 40963, kExif, 120);
    if (SUCCEEDED(hr)) hr = AddStringExifTagToSummaryList(list, 1, kInterop, QZTEXT("THM"));
    if (SUCCEEDED(hr))
        hr = AddExifTagToSummaryList(list, 2, kInterop, QZEXIF_TYPE_UNDEFINED, 4, kVersion0100);
    return hr;
}

BOOL CQzExifMetaDataHelper::IsOthIFDEntry(DWORD id) const {
    return QZEXIF_ID_IFD(id) == QZEXIF_IFD_0TH;
}

BOOL CQzExifMetaDataHelper::IsExifIFDEntry(DWORD id) const {
    return QZEXIF_ID_IFD(id) == QZEXIF_IFD_EXIF;
}

BOOL CQzExifMetaDataHelper::IsInteroperabilityIFDEntry(DWORD id) const {
    return QZEXIF_ID_IFD(id) == QZEXIF_IFD_INTEROPERABILITY;
}
