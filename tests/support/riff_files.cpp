#include "tests/support/riff_files.h"

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

namespace qz::testing {

uint32_t cc(const char* code) {
    return uint32_t(uint8_t(code[0])) | (uint32_t(uint8_t(code[1])) << 8) |
           (uint32_t(uint8_t(code[2])) << 16) | (uint32_t(uint8_t(code[3])) << 24);
}

Bytes le32(uint32_t value) {
    return {uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16), uint8_t(value >> 24)};
}

Bytes be16(uint16_t value) {
    return {uint8_t(value >> 8), uint8_t(value)};
}

Bytes be32(uint32_t value) {
    return {uint8_t(value >> 24), uint8_t(value >> 16), uint8_t(value >> 8), uint8_t(value)};
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes text(const std::string& characters) {
    return Bytes(characters.begin(), characters.end());
}

Bytes prefix(const Bytes& bytes, size_t count) {
    return Bytes(bytes.begin(), bytes.begin() + std::min(count, bytes.size()));
}

Bytes pattern(size_t count, uint8_t seed) {
    Bytes out(count);
    for (size_t i = 0; i < count; ++i) out[i] = uint8_t((seed + i) % 251 + 1);
    return out;
}

Bytes hex(const std::string& digits) {
    Bytes out;
    for (size_t i = 0; i + 1 < digits.size(); i += digits[i] == ' ' ? 1 : 2)
        if (digits[i] != ' ') out.push_back(uint8_t(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return out;
}

Bytes header(const char (&id)[5], uint32_t size) {
    return le32(cc(id)) + le32(size);
}

Bytes chunk(const char (&id)[5], const Bytes& body) {
    Bytes out = header(id, uint32_t(body.size())) + body;
    if (body.size() & 1) out.push_back(0);
    return out;
}

Bytes list(const char (&type)[5], const Bytes& body) {
    Bytes out = header("LIST", uint32_t(body.size() + 4)) + le32(cc(type)) + body;
    if (body.size() & 1) out.push_back(0);
    return out;
}

Bytes riff(const char (&form)[5], const Bytes& body) {
    return header("RIFF", uint32_t(body.size() + 4)) + le32(cc(form)) + body;
}

Bytes le64(uint64_t value) {
    return le32(uint32_t(value)) + le32(uint32_t(value >> 32));
}

GUID w64(const char (&name)[5]) {
    if (std::string(name) == "riff") return QZ_RIFF64_RIFF_LABEL;
    if (std::string(name) == "list") return QZ_RIFF64_LIST_LABEL;
    return {cc(name), 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
}

Bytes guid(const GUID& label) {
    return le32(label.Data1) +
           Bytes{uint8_t(label.Data2), uint8_t(label.Data2 >> 8), uint8_t(label.Data3),
                 uint8_t(label.Data3 >> 8)} +
           Bytes(label.Data4, label.Data4 + 8);
}

Bytes header64(const GUID& label, uint64_t stored) {
    return guid(label) + le64(stored);
}

Bytes chunk64(const GUID& label, const Bytes& body) {
    return header64(label, 24 + body.size()) + body + Bytes((8 - body.size() % 8) % 8, 0);
}

Bytes list64(const GUID& type, const Bytes& body) {
    return chunk64(w64("list"), guid(type) + body);
}

Bytes riff64(const GUID& form, const Bytes& body) {
    return header64(w64("riff"), 40 + body.size()) + guid(form) + body;
}

Bytes read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_file(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

TempFile::TempFile(const Bytes& bytes, const std::string& name) : path_(dir_.file(name)) {
    write_file(path_, bytes);
    handle_ = CreateFileW(wide(path_).c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle_ == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot open " + path_);
}

TempFile::~TempFile() {
    if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
}

uint64_t TempFile::position() const {
    LARGE_INTEGER zero{};
    LARGE_INTEGER at{};
    SetFilePointerEx(handle_, zero, &at, FILE_CURRENT);
    return uint64_t(at.QuadPart);
}

void TempFile::seek(uint64_t position) const {
    LARGE_INTEGER to{};
    to.QuadPart = LONGLONG(position);
    SetFilePointerEx(handle_, to, nullptr, FILE_BEGIN);
}

std::string run_tool(const std::string& command, int* status) {
    FILE* pipe =
        popen((command.find("2>") != std::string::npos ? command : command + " 2>&1").c_str(), "r");
    std::string out;
    if (!pipe) return out;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
    const int rc = pclose(pipe);
    if (status) *status = rc;
    return out;
}

std::string quoted(const std::string& path) {
    return "'" + path + "'";
}

std::string sox_info(const char* flag, const std::string& path) {
    std::string out =
        run_tool(std::string("sox --i ") + flag + " " + quoted(path) + " 2>/dev/null");
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r' || out.back() == ' '))
        out.pop_back();
    return out;
}

bool have_tools(const std::string& names) {
    std::istringstream in(names);
    std::string command;
    for (std::string name; in >> name;) command += "command -v " + name + " && ";
    return system(("{ " + command + "true; } >/dev/null 2>&1").c_str()) == 0;
}

HANDLE open_path(const std::string& path, DWORD access, DWORD disposition) {
    return CreateFileW(wide(path).c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                       disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

Bytes tone_samples() {
    Bytes out;
    for (int i = 0; i < 4410; ++i) {
        const auto v = uint16_t(std::lround(12000 * std::sin(2 * 3.14159265 * 440 * i / 44100)));
        out = out + Bytes{uint8_t(v), uint8_t(v >> 8), uint8_t(v), uint8_t(v >> 8)};
    }
    return out;
}

Bytes sox_raw(const std::string& path) {
    const std::string raw = path + ".raw";
    EXPECT_EQ(system(("sox " + quoted(path) + " -t raw " + quoted(raw)).c_str()), 0) << path;
    return read_file(raw);
}

}  // namespace qz::testing
