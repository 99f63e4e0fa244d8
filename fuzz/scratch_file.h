// The input of a fuzz target as a file on disk, for the families that read
// files by path or on a handle.
#ifndef QZ_FUZZ_SCRATCH_FILE_H
#define QZ_FUZZ_SCRATCH_FILE_H

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "qzkernel.h"

/*
 * Writes `data` to this process's scratch file `name` (a file name with
 * its extension; the process id is added to the stem) in the temporary
 * folder and returns its path.
 */
inline const std::u16string& write_scratch(const char* name, const uint8_t* data, size_t size) {
    static const std::u16string path = [name] {
        const std::filesystem::path file(name);
        const std::string p =
            (std::filesystem::temp_directory_path() /
             (file.stem().string() + "_" + std::to_string(getpid()) + file.extension().string()))
                .string();
        return std::u16string(p.begin(), p.end());
    }();
    std::ofstream out(std::filesystem::path(path), std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), std::streamsize(size));
    return path;
}

/* The same file opened for reading and writing; INVALID_HANDLE_VALUE when it cannot be. */
inline HANDLE open_scratch(const char* name, const uint8_t* data, size_t size) {
    return CreateFileW(write_scratch(name, data, size).c_str(), GENERIC_READ | GENERIC_WRITE, 0,
                       nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

#endif
