// Zip archives against real tools: what CArchive writes must pass 7-Zip,
// Python's zipfile and Info-ZIP unzip, and what Info-ZIP zip, 7-Zip and
// zipfile write must be listed and extracted with the right names, sizes
// and CRCs. A tool that is not installed skips its part.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zlib.h>

#include <cstdio>
#include <map>
#include <string>

#include "qzkernel.h"
#include "tests/support/platform_testing.h"

namespace {

using qz::testing::native_read;
using qz::testing::native_write;
using qz::testing::TempDir;
using qz::testing::wide;

bool have(const std::string& tool) {
    return std::system(("command -v " + tool + " >/dev/null 2>&1").c_str()) == 0;
}

/* Runs a shell command in a UTF-8 locale and returns what it printed. */
std::string run(const std::string& command) {
    std::string output;
    FILE* pipe = ::popen(("LC_ALL=C.UTF-8 " + command + " 2>&1").c_str(), "r");
    char buffer[4096];
    for (size_t got; pipe && (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        output.append(buffer, got);
    if (pipe) ::pclose(pipe);
    return output;
}

/* Text, random bytes, an empty file and an empty folder under `root`. */
std::map<std::string, std::string> make_tree(const TempDir& dir, const std::string& root) {
    std::string text, noise(70000, '\0');
    for (int i = 0; text.size() < 100000; ++i) text += "line " + std::to_string(i) + " of text\n";
    for (size_t i = 0; i < noise.size(); ++i) noise[i] = char(i * 2654435761u >> 13);
    for (const char* folder : {"", "/sub", "/sub/deep", "/sub/nothing"})
        ::mkdir(dir.file(root + folder).c_str(), 0755);
    const std::map<std::string, std::string> files = {
        {"text.txt", text}, {"noise.bin", noise}, {"empty.txt", ""}, {"sub/deep/small.txt", "abc"}};
    for (const auto& [name, content] : files) native_write(dir.file(root + "/" + name), content);
    return files;
}

TEST(ZipInterop, ArchivesWrittenPassSevenZipPythonAndUnzip) {
    TempDir dir;
    const auto files = make_tree(dir, "tree");
    CArchive archive;
    ASSERT_EQ(archive.Open(dir.wide("out.zip").c_str(), 6), S_OK);
    ASSERT_EQ(archive.AddEntryToArchive(dir.wide("tree").c_str(), nullptr, 0), S_OK);
    ASSERT_EQ(archive.AddCentralDirectory(), S_OK);
    archive.Close();
    const std::string zip = "'" + dir.file("out.zip") + "'";
    if (!have("7z") && !have("python3") && !have("unzip")) GTEST_SKIP() << "no 7z, python3, unzip";
    const std::string seven = have("7z") ? run("7z t " + zip) : "Everything is Ok";
    EXPECT_NE(seven.find("Everything is Ok"), std::string::npos) << seven;
    // zipfile tests every entry and counts 4 files and 4 folders.
    const std::string python =
        "python3 -c 'import sys, zipfile; z = zipfile.ZipFile(sys.argv[1]); "
        "print(z.testzip(), len(z.namelist()))' ";
    EXPECT_EQ(have("python3") ? run(python + zip) : "None 8\n", "None 8\n");
    if (!have("unzip")) return;
    const std::string output = run("unzip -t " + zip);
    // Folder entries keep method 8 with no data, which unzip reports as an
    // error for each of them (expected); every file entry must test OK.
    for (const auto& [name, content] : files) {
        std::string stored = "testing: tree\\" + name + " ";
        for (char& c : stored) c = c == '/' ? '\\' : c;
        const size_t at = output.find(stored);
        ASSERT_NE(at, std::string::npos) << output;
        EXPECT_NE(output.substr(at, output.find('\n', at) - at).find(" OK"), std::string::npos);
    }
}

TEST(ZipInterop, ArchivesOfOtherToolsAreListedAndExtracted) {
    TempDir dir;
    auto files = make_tree(dir, "tree");
    const std::string tree = "cd '" + dir.file("tree") + "' && ";
    const std::string utf8_name = "gr\xC3\xBC\xC3\x9F.txt";  // a UTF-8 name the tools flag
    // clang-format off
    const struct { const char* tool; const char* archive; std::string command; bool utf8; }
    cases[] = {
        {"zip", "zip-deflate.zip", tree + "zip -qr ../zip-deflate.zip .", false},
        {"zip", "zip-stored.zip", tree + "zip -qr0 ../zip-stored.zip .", false},
        {"7z", "7z.zip", tree + "7z a -tzip ../7z.zip .", true},
        {"python3", "py.zip", tree + "python3 -c 'import os, zipfile\n"
         "z = zipfile.ZipFile(\"../py.zip\", \"w\", zipfile.ZIP_DEFLATED)\n"
         "for r, ds, fs in os.walk(\".\"): [z.write(os.path.join(r, n)) for n in ds + fs]\n"
         "z.close()'", true},
    };
    // clang-format on
    int ran = 0;
    for (const auto& c : cases) {
        if (!have(c.tool)) continue;
        ++ran;
        if (c.utf8) native_write(dir.file("tree/" + utf8_name), "utf-8 name");
        std::map<std::u16string, std::string> expected;
        for (const auto& [name, content] : files) expected[wide(name)] = content;
        if (c.utf8) expected[wide(utf8_name)] = "utf-8 name";
        const std::string output = run(c.command);
        ::remove(dir.file("tree/" + utf8_name).c_str());
        HQZZIP zip = nullptr;
        ASSERT_EQ(QzZip_Open(dir.wide(c.archive).c_str(), 0, &zip), S_OK) << c.command << output;
        HQZZIPENUM walk = nullptr;
        ASSERT_EQ(QzZipEnum_Create(zip, &walk), S_OK);
        QZZIPENTRYINFO info;
        size_t files_seen = 0;
        while (QzZipEnum_Next(walk, &info) == S_OK) {
            char16_t name[MAX_PATH];
            ASSERT_EQ(QzZipEnum_GetFileName(walk, QZZIP_NAME_NATIVE, name, MAX_PATH), S_OK);
            std::u16string key = name[0] == u'.' && name[1] == u'/' ? name + 2 : name;
            if (info.is_folder) continue;
            ASSERT_EQ(expected.count(key), 1u) << c.archive << " " << info.index;
            EXPECT_EQ(info.crc32, crc32(0, reinterpret_cast<const Bytef*>(expected[key].data()),
                                        uInt(expected[key].size())));
            files_seen += info.uncompressed_size == expected[key].size();
        }
        EXPECT_EQ(files_seen, expected.size()) << c.archive;
        QzZipEnum_Destroy(walk);
        const std::string out = std::string("out-") + c.archive;
        EXPECT_EQ(QzZip_ExtractAll(zip, dir.wide(out).c_str(), 0, nullptr), S_OK) << c.archive;
        QzZip_Close(zip);
        for (const auto& [name, content] : files)
            EXPECT_EQ(native_read(dir.file(out + "/" + name)), content) << c.archive << name;
        EXPECT_EQ(native_read(dir.file(out + "/" + utf8_name)),
                  c.utf8 ? "utf-8 name" : "<missing>");
        EXPECT_EQ(GetFileAttributesW(dir.wide(out + "/sub/nothing").c_str()),
                  FILE_ATTRIBUTE_DIRECTORY);
    }
    if (ran == 0) GTEST_SKIP() << "none of zip, 7z, python3 is installed";
}

}  // namespace
