// Zip archives against real tools: what CArchive writes must pass 7-Zip,
// Python's zipfile and Info-ZIP unzip, and what those tools write must be
// listed and extracted by the reader with the right names, sizes and CRCs.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zlib.h>

#include <cstdio>
#include <map>
#include <random>
#include <sstream>
#include <string>

#include "qzkernel.h"
#include "support/platform_testing.h"

namespace {

using qz::testing::native_read;
using qz::testing::native_write;
using qz::testing::ScratchDir;

bool have(const char* tool) {
    return std::system((std::string("command -v ") + tool + " >/dev/null 2>&1").c_str()) == 0;
}

/* Runs a shell command; its exit status and its output. */
int run(const std::string& command, std::string* output = nullptr) {
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (!pipe) return -1;
    char buffer[4096];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        if (output) output->append(buffer, got);
    return ::pclose(pipe);
}

/* A tree of text, random bytes, an empty file and folders; paths relative to `root`. */
std::map<std::string, std::string> make_tree(const ScratchDir& dir, const std::string& root) {
    std::mt19937 random(7);
    std::string text, noise(70000, '\0');
    for (int i = 0; text.size() < 100000; ++i) text += "line " + std::to_string(i) + " of the text\n";
    for (char& c : noise) c = char(random());
    const std::map<std::string, std::string> files = {
        {"text.txt", text}, {"noise.bin", noise}, {"empty.txt", ""}, {"sub/deep/small.txt", "abc"}};
    for (const char* folder : {"", "/sub", "/sub/deep", "/sub/nothing"})
        ::mkdir(dir.native(root + folder).c_str(), 0755);
    for (const auto& [name, content] : files) native_write(dir.native(root + "/" + name), content);
    return files;
}

uint32_t crc_of(const std::string& data) {
    return uint32_t(crc32(0, reinterpret_cast<const Bytef*>(data.data()), uInt(data.size())));
}

std::string shell_quote(const std::string& path) {
    return "'" + path + "'";
}

TEST(ZipInterop, ArchivesWrittenPassSevenZipPythonAndUnzip) {
    ScratchDir dir;
    const auto files = make_tree(dir, "tree");
    tQZLIST* list = nullptr;
    ASSERT_EQ(QzList_CreateExZ(&list, sizeof(void*), 0, 0, 0, 0, 0, 0), S_OK);
    const std::u16string tree = dir.wide("tree");
    const char16_t* path = tree.c_str();
    QzList_InsertList(list, -1, &path, 1);
    CArchive archive;
    ASSERT_EQ(archive.DoArchive(dir.wide("out.zip").c_str(), list, 6), S_OK);
    QzList_Destroy(list);
    const std::string zip = shell_quote(dir.native("out.zip"));
    bool any = false;
    if (have("7z")) {
        any = true;
        std::string output;
        EXPECT_EQ(run("7z t " + zip, &output), 0) << output;
        EXPECT_NE(output.find("Everything is Ok"), std::string::npos) << output;
    }
    if (have("python3")) {
        any = true;
        std::string output;
        EXPECT_EQ(run("python3 -c 'import sys, zipfile; z = zipfile.ZipFile(sys.argv[1]); "
                      "print(z.testzip()); print(len(z.namelist()))' " + zip, &output), 0);
        EXPECT_EQ(output, "None\n8\n");  // 4 files and 4 folders
    }
    if (have("unzip")) {
        any = true;
        std::string output;
        run("unzip -t " + zip, &output);
        // Folder entries keep method 8 with no data, which unzip reports as
        // an error for each of them; every file entry must test OK.
        for (const auto& [name, content] : files) {
            std::string stored = "tree\\" + name;
            for (char& c : stored) c = c == '/' ? '\\' : c;
            const size_t at = output.find("testing: " + stored + " ");
            ASSERT_NE(at, std::string::npos) << output;
            const std::string line = output.substr(at, output.find('\n', at) - at);
            EXPECT_NE(line.find(" OK"), std::string::npos) << line;
        }
    }
    if (!any) GTEST_SKIP() << "none of 7z, python3, unzip is installed";
}

TEST(ZipInterop, ArchivesOfOtherToolsAreListedAndExtracted) {
    ScratchDir dir;
    auto files = make_tree(dir, "tree");
    ::mkdir(dir.native("utf").c_str(), 0755);
    native_write(dir.native("utf/gr\xC3\xBC\xC3\x9F.txt"), "utf-8 name");
    const std::string tree = shell_quote(dir.native("tree"));
    const struct {
        const char* tool;
        std::string archive_name;
        std::string command;
        bool utf8_name;
    } cases[] = {
        {"zip", "zip-deflate.zip", "cd " + tree + " && zip -qr ../zip-deflate.zip .", false},
        {"zip", "zip-stored.zip", "cd " + tree + " && zip -qr0 ../zip-stored.zip .", false},
        {"7z", "7z.zip", "cd " + tree + " && cp ../utf/* . && 7z a -tzip ../7z.zip . >/dev/null", true},
        {"python3", "py.zip",
         "cd " + tree + " && cp ../utf/* . && python3 -c 'import os, zipfile\n"
         "with zipfile.ZipFile(\"../py.zip\", \"w\", zipfile.ZIP_DEFLATED) as z:\n"
         "  for root, folders, names in os.walk(\".\"):\n"
         "    for n in folders + names: z.write(os.path.join(root, n))'",
         true},
    };
    int ran = 0;
    for (const auto& c : cases) {
        if (!have(c.tool)) continue;
        ++ran;
        std::string output;
        ASSERT_EQ(run("LC_ALL=C.UTF-8 " + c.command, &output), 0) << c.command << output;
        const std::string& archive_name = c.archive_name;
        auto expected = files;
        if (c.utf8_name) expected["gr\xC3\xBC\xC3\x9F.txt"] = "utf-8 name";
        HQZZIP zip = nullptr;
        ASSERT_EQ(QzZip_Open(dir.wide(archive_name).c_str(), 0, &zip), S_OK) << archive_name;
        HQZZIPENUM walk = nullptr;
        ASSERT_EQ(QzZipEnum_Create(zip, &walk), S_OK);
        QZZIPENTRYINFO info;
        size_t matched = 0;
        while (QzZipEnum_Next(walk, &info) == S_OK) {
            char16_t wide[MAX_PATH];
            ASSERT_EQ(QzZipEnum_GetFileName(walk, QZZIP_NAME_NATIVE, wide, MAX_PATH), S_OK);
            std::string name;  // back to UTF-8 for the comparison
            for (const char16_t* p = wide; *p; ++p) {
                if (*p < 0x80) name += char(*p);
                else if (*p < 0x800) name += char(0xC0 | (*p >> 6)), name += char(0x80 | (*p & 0x3F));
            }
            if (name.rfind("./", 0) == 0) name = name.substr(2);
            if (info.is_folder) continue;
            ASSERT_EQ(expected.count(name), 1u) << archive_name << ": " << name;
            const std::string& content = expected[name];
            EXPECT_EQ(info.uncompressed_size, content.size()) << name;
            EXPECT_EQ(info.crc32, crc_of(content)) << name;
            std::string extracted(content.size(), '\0');
            EXPECT_EQ(QzZipEnum_ExtractToMemory(walk, extracted.data(), DWORD(extracted.size())), S_OK);
            EXPECT_EQ(extracted, content) << archive_name << ": " << name;
            ++matched;
        }
        EXPECT_EQ(matched, expected.size()) << archive_name;
        QzZipEnum_Destroy(walk);
        const std::string out = "out-" + archive_name;
        EXPECT_EQ(QzZip_ExtractAll(zip, dir.wide(out).c_str(), 0, nullptr), S_OK) << archive_name;
        for (const auto& [name, content] : expected)
            EXPECT_EQ(native_read(dir.native(out + "/" + name)), content) << archive_name << ": " << name;
        QzZip_Close(zip);
        run("rm -f " + tree + "/gr*");
    }
    if (ran == 0) GTEST_SKIP() << "none of zip, 7z, python3 is installed";
}

}  // namespace
