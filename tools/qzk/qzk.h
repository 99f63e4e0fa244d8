// qzk - the command-line face of the qzkernel library.
//
// Each family registers its subcommand in the table of commands.cpp and, if
// it has something to show, a section of `qzk demo` in demo.cpp.
#ifndef QZK_QZK_H
#define QZK_QZK_H

#include <string>
#include <vector>

#include "qzkernel.h"

namespace qzk {

using Args = std::vector<std::string>;

struct Command {
    const char* name;
    const char* summary;
    const char* usage;  // printed by `qzk NAME --help`
    int (*run)(const Args& args);
};

// The registered subcommands, ending with a null name.
extern const Command kCommands[];

struct DemoSection {
    const char* title;
    int (*run)();  // 0 on success
};
extern const DemoSection kDemoSections[];

int run_version(const Args& args);
int run_demo(const Args& args);
int run_wavinfo(const Args& args);
int demo_wavinfo();
int run_chunks(const Args& args);
int run_cda(const Args& args);
int demo_riff();
int run_error(const Args& args);
int demo_errors();
int run_tc(const Args& args);
extern const char kTcUsage[];
int run_xml(const Args& args);
extern const char kXmlUsage[];
int run_zip(const Args& args);
extern const char kZipUsage[];
int run_exif(const Args& args);
extern const char kExifUsage[];
int demo_kernel();
int demo_smpte();

// The library's message text of a code without its leading line breaks
// ("" when the code has none).
std::string message_text(HRESULT code);

// ---- helpers shared by the subcommands ----

// UTF-16 text as UTF-8 for the terminal.
std::string utf8(const WCHAR* text);
std::string utf8(const std::basic_string<WCHAR>& text);
std::basic_string<WCHAR> utf16(const std::string& text);
// A string as a JSON string literal, quotes included.
std::string json_quote(const std::string& text);
// "0x8004E00A" style text of a result code.
std::string hex_code(HRESULT code);
// Prints "qzk NAME: " and the library's message for `code` to standard
// error; returns the exit status for a failure (1).
int fail(const char* command, HRESULT code, const std::string& context = "");
// True when `flag` is among the arguments (and removes it).
bool take_flag(Args& args, const std::string& flag);

}  // namespace qzk

#endif
