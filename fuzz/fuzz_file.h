// fuzz_file.h - what the targets whose input is a file share: the scratch
// file of this process, and each input written into it.
#ifndef QZ_FUZZ_FUZZ_FILE_H
#define QZ_FUZZ_FUZZ_FILE_H

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

namespace qz::fuzzing {

/* "qz_<target>_<process id><extension>" in the temporary folder, as UTF-16. */
inline std::u16string scratch_file(const std::string& target, const std::string& extension) {
    const std::string name = "qz_" + target + "_" + std::to_string(getpid()) + extension;
    const std::string path = (std::filesystem::temp_directory_path() / name).string();
    return std::u16string(path.begin(), path.end());
}

/* Replaces the file's contents with the input. */
inline void write_input(const std::u16string& path, const uint8_t* data, size_t size) {
    std::ofstream out(std::filesystem::path(path), std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), std::streamsize(size));
}

}  // namespace qz::fuzzing

#endif
