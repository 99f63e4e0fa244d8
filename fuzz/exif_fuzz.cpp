// CQzExifMetaDataHelper on arbitrary bytes: the file read as a JPEG and as a
// TIFF, then, when tags were read, written back into the file and read
// again, which must give as many tags as were written.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/scratch_file.h"
#include "qzkernel.h"

namespace {

struct List {
    tQZLIST* list = nullptr;
    List() { QzList_CreateExZ(&list, 0, 0, 0, QZLIST_HEAPITEMS, 0, 0, 0); }
    ~List() { QzList_Destroy(list); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::u16string& path = write_scratch("qz_exif_fuzz.jpg", data, size);
    CQzExifMetaDataHelper helper;
    List tiff;
    helper.AddExifTagsToSummaryListFromTiff(path.c_str(), tiff.list);
    List jpeg;
    helper.AddExifTagsToSummaryListFromJpeg(path.c_str(), jpeg.list);
    if (jpeg.list->count == 0) return 0;
    // Flash is read as a BOOL; the writer takes the SHORT it came from.
    for (LONG i = 0; i < jpeg.list->count; ++i) {
        auto* item = static_cast<QZMETA_SUM_TAG*>(QZLIST_ITEMPTR(jpeg.list, i));
        if (QZEXIF_ID_TYPE(item->id) == QZEXIF_TYPE_SHORT) item->data_size = 2;
    }
    const LONG written = jpeg.list->count;
    if (FAILED(helper.UpdateExifTagsFromSummaryList(path.c_str(), jpeg.list))) return 0;
    List again;
    const HRESULT hr = helper.AddExifTagsToSummaryListFromJpeg(path.c_str(), again.list);
    if (FAILED(hr) || again.list->count != written) std::abort();
    return 0;
}
