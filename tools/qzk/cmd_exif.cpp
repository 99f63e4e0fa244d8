// `qzk exif FILE` prints the EXIF tags the library reads from a JPEG or TIFF
// file; with `--set NAME=VALUE` it writes them into a JPEG instead.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "tools/qzk/qzk.h"

namespace qzk {

namespace {

struct TagName {
    const char* name;
    WORD ifd;
    WORD tag;
};

// The tags the reader takes, under the names exiftool gives them.
constexpr TagName kTags[] = {
    {"Make", 0, 271},
    {"Model", 0, 272},
    {"DateTime", 0, 306},
    {"Artist", 0, 315},
    {"Copyright", 1, 33432},
    {"DateTimeOriginal", 1, 36867},
    {"DateTimeDigitized", 1, 36868},
    {"Flash", 1, 37385},
};

const TagName* find_name(const std::string& name) {
    for (const TagName& t : kTags)
        if (name == t.name) return &t;
    return nullptr;
}

std::string name_of(const QZMETA_SUM_TAG& item) {
    for (const TagName& t : kTags)
        if (t.tag == QZEXIF_ID_TAG(item.id)) return t.name;
    return "tag " + std::to_string(QZEXIF_ID_TAG(item.id));
}

// The value as text; the boolean the reader makes of Flash as true/false.
std::string value_of(const QZMETA_SUM_TAG& item, bool json) {
    const WORD type = QZEXIF_ID_TYPE(item.id);
    if (type == QZEXIF_TYPE_ASCII) {
        const std::string text = utf8(reinterpret_cast<const WCHAR*>(item.data));
        return json ? json_quote(text) : text;
    }
    DWORD word = 0;
    if (item.data_size == 4) std::memcpy(&word, item.data, 4);
    if (QZEXIF_ID_TAG(item.id) == 37385 && item.data_size == 4) return word ? "true" : "false";
    if (type == QZEXIF_TYPE_SHORT && item.data_size == 2) {
        WORD value = 0;
        std::memcpy(&value, item.data, 2);
        return std::to_string(value);
    }
    if (item.data_size == 4 && type == QZEXIF_TYPE_LONG) return std::to_string(word);
    std::string hex;
    for (DWORD i = 0; i < item.data_size; ++i) {
        char b[4];
        std::snprintf(b, sizeof b, "%02X", item.data[i]);
        hex += b;
    }
    return json ? json_quote(hex) : hex;
}

class SummaryList {
public:
    SummaryList() { QzList_CreateExZ(&list_, 0, 0, 0, QZLIST_HEAPITEMS, 0, 0, 0); }
    ~SummaryList() { QzList_Destroy(list_); }
    SummaryList(const SummaryList&) = delete;
    SummaryList& operator=(const SummaryList&) = delete;
    tQZLIST* get() const { return list_; }
    const QZMETA_SUM_TAG& at(LONG i) const {
        return *static_cast<const QZMETA_SUM_TAG*>(QZLIST_ITEMPTR(list_, i));
    }

private:
    tQZLIST* list_ = nullptr;
};

bool is_tiff(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    char mark[2] = {};
    const bool tiff =
        std::fread(mark, 1, 2, f) == 2 && mark[0] == mark[1] && (mark[0] == 'I' || mark[0] == 'M');
    std::fclose(f);
    return tiff;
}

HRESULT read_tags(CQzExifMetaDataHelper& helper, const std::string& path, tQZLIST* list) {
    const std::basic_string<WCHAR> wide = utf16(path);
    return is_tiff(path) ? helper.AddExifTagsToSummaryListFromTiff(wide.c_str(), list)
                         : helper.AddExifTagsToSummaryListFromJpeg(wide.c_str(), list);
}

void print(const std::string& path, const SummaryList& list, bool json) {
    if (json) std::printf("{\"file\": %s, \"tags\": [", json_quote(path).c_str());
    for (LONG i = 0; i < list.get()->count; ++i) {
        const QZMETA_SUM_TAG& item = list.at(i);
        const unsigned ifd = QZEXIF_ID_IFD(item.id), tag = QZEXIF_ID_TAG(item.id),
                       type = QZEXIF_ID_TYPE(item.id);
        if (json) {
            std::printf("%s{\"name\": %s, \"ifd\": %u, \"tag\": %u, \"type\": %u, \"value\": %s}",
                        i ? ", " : "", json_quote(name_of(item)).c_str(), ifd, tag, type,
                        value_of(item, true).c_str());
        } else {
            std::printf("%-18s IFD %u  tag %5u  type %u  %s\n", name_of(item).c_str(), ifd, tag,
                        type, value_of(item, false).c_str());
        }
    }
    if (json) std::printf("]}\n");
}

// Replaces the item of tag `t` (if any) by `value`.
HRESULT set_tag(CQzExifMetaDataHelper& helper, tQZLIST* list, const TagName& t,
                const std::string& value) {
    for (LONG i = list->count - 1; i >= 0; --i) {
        const auto* item = static_cast<const QZMETA_SUM_TAG*>(QZLIST_ITEMPTR(list, i));
        if (QZEXIF_ID_TAG(item->id) == t.tag) QzList_DeleteList(list, i, 1, FALSE);
    }
    if (t.tag == 37385)
        return helper.AddShortExifTagToSummaryList(list, t.tag, t.ifd,
                                                   WORD(std::stoul(value, nullptr, 0)));
    return helper.AddStringExifTagToSummaryList(list, t.tag, t.ifd, utf16(value).c_str());
}

}  // namespace

const char kExifUsage[] =
    "qzk exif FILE [--json]\n"
    "qzk exif FILE.jpg --set NAME=VALUE [--set ...] [--thumbnail-defaults]\n"
    "  NAME: Make, Model, DateTime, Artist, Copyright, DateTimeOriginal,\n"
    "        DateTimeDigitized, Flash (a number; 1 = fired). The tags already read\n"
    "        from the file are kept; APP0, APP1 and APP2 segments are replaced by\n"
    "        one new EXIF segment.";

int run_exif(const Args& args) {
    Args rest = args;
    const bool json = take_flag(rest, "--json");
    const bool defaults = take_flag(rest, "--thumbnail-defaults");
    std::vector<std::pair<const TagName*, std::string>> sets;
    for (auto it = rest.begin(); it != rest.end();) {
        if (*it != "--set" || it + 1 == rest.end()) {
            ++it;
            continue;
        }
        const std::string assignment = *(it + 1);
        const size_t equals = assignment.find('=');
        const TagName* t = find_name(assignment.substr(0, equals));
        if (equals == std::string::npos || !t) {
            std::fprintf(stderr, "qzk exif: cannot set '%s'\n%s\n", assignment.c_str(), kExifUsage);
            return 2;
        }
        sets.emplace_back(t, assignment.substr(equals + 1));
        it = rest.erase(it, it + 2);
    }
    if (rest.size() != 1) {
        std::fprintf(stderr, "usage: %s\n", kExifUsage);
        return 2;
    }
    const std::string& path = rest[0];
    CQzExifMetaDataHelper helper;
    SummaryList list;
    const HRESULT read = read_tags(helper, path, list.get());
    if (sets.empty() && !defaults) {
        if (FAILED(read)) return fail("exif", read, path);
        print(path, list, json);
        return 0;
    }
    // Flash comes back as a BOOL; the writer takes it as the SHORT it was.
    for (LONG i = 0; i < list.get()->count; ++i) {
        const QZMETA_SUM_TAG& item = list.at(i);
        if (QZEXIF_ID_TAG(item.id) == 37385 && item.data_size == 4) {
            const WORD fired = item.data[0] ? 1 : 0;
            QzList_DeleteList(list.get(), i, 1, FALSE);
            helper.AddShortExifTagToSummaryList(list.get(), 37385, 1, fired);
            break;
        }
    }
    HRESULT hr = S_OK;
    try {
        for (const auto& [t, value] : sets)
            if (SUCCEEDED(hr)) hr = set_tag(helper, list.get(), *t, value);
    } catch (const std::exception&) {
        std::fprintf(stderr, "qzk exif: Flash takes a number\n");
        return 2;
    }
    if (SUCCEEDED(hr) && defaults) hr = helper.AddDefaultThumbnailExifTagsToSummaryList(list.get());
    if (SUCCEEDED(hr)) hr = helper.UpdateExifTagsFromSummaryList(utf16(path).c_str(), list.get());
    if (FAILED(hr)) return fail("exif", hr, path);
    if (json) {
        print(path, list, true);
    } else {
        std::printf("wrote %d tags to %s\n", int(list.get()->count), path.c_str());
    }
    return 0;
}

}  // namespace qzk
