// libFuzzer target: QzZip_Open over bytes in memory, then every entry
// listed, named and extracted to memory both ways.
#include <cstdint>
#include <vector>

#include "qzkernel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    QZZIP_MEMORY memory{data, DWORD(size)};
    HQZZIP zip = nullptr;
    if (FAILED(QzZip_Open(reinterpret_cast<LPCWSTR>(&memory), QZZIP_OPEN_MEMORY, &zip))) return 0;
    ULONGLONG total = 0;
    QzZipEnum_GetTotalUncompressedSize(zip, &total);
    HQZZIPENUM walk = nullptr;
    if (SUCCEEDED(QzZipEnum_Create(zip, &walk))) {
        std::vector<uint8_t> buffer(65536);
        QZZIPENTRYINFO info;
        WCHAR name[MAX_PATH];
        while (QzZipEnum_Next(walk, &info) == S_OK) {
            QzZipEnum_GetFileName(walk, 0, name, MAX_PATH);
            QzZipEnum_ExtractToMemory(walk, buffer.data(), DWORD(buffer.size()));
            ULONGLONG size = 0;
            QzZipEnum_GetUncompressedSizeFromIndex(zip, info.index, &size);
            void* block = nullptr;
            DWORD bytes = 0;
            if (SUCCEEDED(QzZip_ExtractToMemory(zip, name, &block, &bytes)) && block)
                GlobalFree(GlobalHandle(block));
        }
        QzZipEnum_Destroy(walk);
    }
    QzZip_Close(zip);
    return 0;
}
