// The input of a fuzz target as a file on disk, for the families that read
// files by path or on a handle.
#ifndef QZ_FUZZ_SCRATCH_FILE_H
#define QZ_FUZZ_SCRATCH_FILE_H

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

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

#endif
