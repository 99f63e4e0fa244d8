// The table of qzk subcommands: one line per family.
#include "tools/qzk/qzk.h"

namespace qzk {

const Command kCommands[] = {
    {"version", "print the kernel version word", "qzk version [--json]", run_version},
    {"error", "print the message text of a result code or Win32 error",
     "qzk error [--win32] [--json] CODE   (CODE: 0x8004E00B, -2147164149 or, with --win32, 2)",
     run_error},
    {"demo", "write sample files with the library and read them back", "qzk demo", run_demo},
    {"wavinfo", "print the format of a wave file", "qzk wavinfo FILE [--json]", run_wavinfo},
    {"chunks", "print the chunk tree of a RIFF file", "qzk chunks FILE [--json]", run_chunks},
    {"cda", "print the fields of a CD-audio track file (.cda)", "qzk cda FILE [--json]", run_cda},
    {"tc", "convert SMPTE timecodes, frame counts and nano time", kTcUsage, run_tc},
    {"xml", "print the tree of an XML document, or the text at a path", kXmlUsage, run_xml},
    {"zip", "create, list and extract zip archives", kZipUsage, run_zip},
    {"exif", "print or write the EXIF tags of a JPEG or TIFF file", kExifUsage, run_exif},
    {nullptr, nullptr, nullptr, nullptr},
};

}  // namespace qzk
