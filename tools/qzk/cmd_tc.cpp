// `qzk tc`: SMPTE timecodes, frame counts and nano time at a rate code.
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/qzk/qzk.h"

namespace qzk {

namespace {

constexpr const char* kName = "tc";
// Stepping runs one library call per frame; this is more than a day.
constexpr long long kMaxStep = 10000000;

const char* rate_name(DWORD rate) {
    switch (rate) {
        case QZSMPTE_RATE_30:
            return "30 fps";
        case QZSMPTE_RATE_2997_DROP:
            return "29.97 fps drop-frame";
        case QZSMPTE_RATE_25:
            return "25 fps";
        case QZSMPTE_RATE_24:
            return "24 fps";
        case QZSMPTE_RATE_2997:
            return "29.97 fps non-drop";
        case QZSMPTE_RATE_23976:
            return "23.976 fps";
        default:
            return "unknown";
    }
}

std::string label(const _smpteval& t) {
    char text[64];
    std::snprintf(text, sizeof text, "%02u:%02u:%02u%c%02u", unsigned(t.hours), unsigned(t.minutes),
                  unsigned(t.seconds), t.rate == QZSMPTE_RATE_2997_DROP ? ';' : ':',
                  unsigned(t.frames));
    return text;
}

bool parse_integer(const std::string& text, long long low, long long high, long long* value) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    const long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < low || v > high) return false;
    *value = v;
    return true;
}

bool parse_timecode(const std::string& text, DWORD rate, _smpteval* t) {
    *t = {rate, 0, 0, 0, 0, 0};
    return QZSMPTE_TextToSMPTE(utf16(text).c_str(), t) == S_OK;
}

// A time display asked for with --format: the format and its parameters.
struct Display {
    std::string name;  // empty: none asked for
    DWORD format = QZTIMEFMT_HMSMS;
    DWORD sample_rate = 0;
    _qztempo tempo = {0, 0, 0, 0, 0};  // zero fields: the library's neutral tempo
};

struct Request {
    DWORD rate = QZSMPTE_RATE_30;
    bool json = false;
    bool have_start = false;
    _smpteval value = {};
    // The nano time given with --nanos, while no operation has changed it.
    bool have_nanos = false;
    LONGLONG nanos = 0;
    Display display;
};

int bad(const std::string& what) {
    return fail(kName, E_INVALIDARG, what);
}

// The operations run in command-line order on the value the start option
// or the timecode gave.
int apply(Request& r, const std::string& option, const std::string& argument) {
    long long n = 0;
    _smpteval other;
    r.have_nanos = false;
    if (option == "--add" || option == "--sub") {
        if (!parse_timecode(argument, r.rate, &other))
            return bad("no digits in '" + argument + "'");
        if (option == "--add")
            QZSMPTE_AddSMPTE(&r.value, &other);
        else
            QZSMPTE_SubtractSMPTE(&r.value, &other);
    } else if (option == "--step") {
        if (!parse_integer(argument, -kMaxStep, kMaxStep, &n))
            return bad("--step takes a frame count within +-" + std::to_string(kMaxStep));
        for (; n > 0; --n) QZSMPTE_IncrementByFrame(&r.value, 0);
        for (; n < 0; ++n) QZSMPTE_DeccrementByFrame(&r.value, 0);
    }
    return 0;
}

int start(Request& r, const std::string& option, const std::string& argument) {
    if (r.have_start) return bad("give one timecode, --frames or --nanos");
    r.have_start = true;
    r.value = {r.rate, 0, 0, 0, 0, 0};
    long long n = 0;
    if (option == "--frames") {
        if (!parse_integer(argument, 0, 0xFFFFFFFFLL, &n))
            return bad("--frames takes a count from 0 to 4294967295");
        QZSMPTE_FrameCountToSMPTE(&r.value, DWORD(n));
    } else if (option == "--nanos") {
        if (!parse_integer(argument, INT64_MIN, INT64_MAX, &n))
            return bad("--nanos takes a 64-bit count of 100-ns ticks");
        QZSMPTE_NanoToSMPTE(n, &r.value);
        r.have_nanos = true;
        r.nanos = n;
    } else if (!parse_timecode(argument, r.rate, &r.value)) {
        return bad("no digits in '" + argument + "'");
    }
    return 0;
}

void print(const Request& r) {
    const DWORD count = QZSMPTE_SMPTEToFrameCount(&r.value);
    const LONGLONG nanos = QZSMPTE_SMPTEToNanos(&r.value);
    if (r.json) {
        std::printf(
            "{\"rate\": %u, \"rate_name\": %s, \"timecode\": %s, \"hours\": %u, \"minutes\": %u, "
            "\"seconds\": %u, \"frames\": %u, \"frame_count\": %u, \"nanos\": %lld}\n",
            unsigned(r.rate), json_quote(rate_name(r.rate)).c_str(),
            json_quote(label(r.value)).c_str(), unsigned(r.value.hours), unsigned(r.value.minutes),
            unsigned(r.value.seconds), unsigned(r.value.frames), unsigned(count),
            static_cast<long long>(nanos));
        return;
    }
    std::printf("rate      %u (%s)\n", unsigned(r.rate), rate_name(r.rate));
    std::printf("timecode  %s\n", label(r.value).c_str());
    std::printf("frames    %u\n", unsigned(count));
    std::printf("nanos     %lld (%.7f s)\n", static_cast<long long>(nanos), double(nanos) / 1e7);
}

struct DisplayName {
    const char* name;
    DWORD format;
};

constexpr DisplayName kDisplays[] = {
    {"hms", QZTIMEFMT_HMSMS},     {"seconds", QZTIMEFMT_SECONDS}, {"smpte", QZTIMEFMT_SMPTE},
    {"frames", QZTIMEFMT_FRAMES}, {"samples", QZTIMEFMT_SAMPLES}, {"measures", QZTIMEFMT_MEASURES},
};

// Removes `option` and its value from the arguments; "" when it is absent.
int take_option(Args& args, const std::string& option, std::string* value) {
    value->clear();
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] != option) continue;
        if (i + 1 >= args.size() || args[i + 1].empty()) return bad(option + " needs a value");
        *value = args[i + 1];
        args.erase(args.begin() + i, args.begin() + i + 2);
        return 0;
    }
    return 0;
}

// Reads --format and the parameters of its display.
int take_display(Args& args, Display* d) {
    std::string format, sample_rate, tempo, signature, ticks;
    if (int rc = take_option(args, "--format", &format)) return rc;
    if (int rc = take_option(args, "--sample-rate", &sample_rate)) return rc;
    if (int rc = take_option(args, "--tempo", &tempo)) return rc;
    if (int rc = take_option(args, "--signature", &signature)) return rc;
    if (int rc = take_option(args, "--ticks", &ticks)) return rc;
    if (format.empty()) {
        if (!sample_rate.empty() || !tempo.empty() || !signature.empty() || !ticks.empty())
            return bad("--sample-rate, --tempo, --signature and --ticks go with --format");
        return 0;
    }
    bool known = false;
    for (const DisplayName& n : kDisplays) {
        if (format == n.name) {
            d->format = n.format;
            known = true;
        }
    }
    if (!known) return bad("--format takes hms, seconds, smpte, frames, samples or measures");
    d->name = format;
    long long n = 0;
    if (!sample_rate.empty()) {
        if (!parse_integer(sample_rate, 1, QZ_NANOTIME_MAX_SAMPLE_RATE, &n))
            return bad("--sample-rate takes a rate from 1 to 10000000 Hz");
        d->sample_rate = DWORD(n);
    }
    if (!tempo.empty()) {
        char* end = nullptr;
        const double bpm = std::strtod(tempo.c_str(), &end);
        if (*end != '\0' || !(bpm >= 1 && bpm <= 1000))
            return bad("--tempo takes quarter notes per minute from 1 to 1000");
        d->tempo.beats_per_minute = bpm;
    }
    if (!signature.empty()) {
        const size_t slash = signature.find('/');
        long long beats = 0, unit = 0;
        if (slash == std::string::npos ||
            !parse_integer(signature.substr(0, slash), 1, 99, &beats) ||
            !parse_integer(signature.substr(slash + 1), 1, 64, &unit) || (unit & (unit - 1)) != 0)
            return bad("--signature takes BEATS/UNIT, 1 to 99 beats of a unit 1, 2, 4 ... 64");
        d->tempo.beats_per_measure = DWORD(beats);
        d->tempo.beat_unit = DWORD(unit);
    }
    if (!ticks.empty()) {
        if (!parse_integer(ticks, 1, 9999, &n))
            return bad("--ticks takes 1 to 9999 ticks per beat");
        d->tempo.ticks_per_beat = DWORD(n);
    }
    return 0;
}

void print_display(const Request& r) {
    const LONGLONG nanos = r.have_nanos ? r.nanos : QZSMPTE_SMPTEToNanos(&r.value);
    const Display& d = r.display;
    const DWORD rate = d.format == QZTIMEFMT_SAMPLES ? d.sample_rate : r.rate;
    WCHAR text[QZ_NANOTIME_TEXT_MAX];
    QzNanoTimeToTextEx(nanos, d.format, rate, &d.tempo, text);
    if (r.json) {
        std::printf("{\"nanos\": %lld, \"format\": %s, \"text\": %s}\n",
                    static_cast<long long>(nanos), json_quote(d.name).c_str(),
                    json_quote(utf8(text)).c_str());
    } else {
        std::printf("%s\n", utf8(text).c_str());
    }
}

// One line of the demo: `what` and the label it gave, checked against the
// label expected.
bool show(const char* what, const _smpteval& t, const char* expected) {
    const std::string got = label(t);
    std::printf("  %-44s %s%s\n", what, got.c_str(), got == expected ? "" : "  (unexpected)");
    return got == expected;
}

}  // namespace

int demo_smpte() {
    bool ok = true;
    _smpteval t = {QZSMPTE_RATE_2997_DROP, 1, 0, 0, 0, 0};
    const DWORD count = QZSMPTE_SMPTEToFrameCount(&t);
    const LONGLONG nanos = QZSMPTE_SMPTEToNanos(&t);
    std::printf("  29.97 drop-frame 01:00:00;00 is frame %u, %lld ticks (%.4f s)\n",
                unsigned(count), static_cast<long long>(nanos), double(nanos) / 1e7);
    ok = ok && count == 107892;
    QZSMPTE_FrameCountToSMPTE(&t, 17982);
    ok = show("frame 17982 at 29.97 drop-frame", t, "00:10:00;00") && ok;
    t = {QZSMPTE_RATE_2997_DROP, 0, 0, 59, 29, 0};
    QZSMPTE_IncrementByFrame(&t, 0);
    ok = show("00:00:59;29 + 1 frame (;00, ;01 skipped)", t, "00:01:00;02") && ok;
    QZSMPTE_NanoToSMPTE(nanos, &t);
    ok = show("its nano time read back", t, "01:00:00;00") && ok;
    t = {QZSMPTE_RATE_25, 0, 0, 0, 0, 0};
    QZSMPTE_TextToSMPTE(QZTEXT("1:2:"), &t);
    ok = show("typed \"1:2:\" at 25 fps", t, "00:01:02:00") && ok;
    const _smpteval late = {QZSMPTE_RATE_25, 0, 1, 2, 10, 0};
    QZSMPTE_SubtractSMPTE(&t, &late);
    ok = show("00:01:02:00 - 00:01:02:10 at 25 fps", t, "23:59:59:15") && ok;
    return ok ? 0 : 1;
}

const char kTcUsage[] =
    "qzk tc [--rate CODE] [--json] (TIMECODE | --frames N | --nanos T)\n"
    "              [--add TIMECODE] [--sub TIMECODE] [--step N] ...\n"
    "\n"
    "Reads a timecode (1:2:3:4, 01020304, 00:10:00;00 ...), a frame count or a\n"
    "nano time (100-ns ticks), applies the additions, subtractions and frame\n"
    "steps in the order given, and prints the timecode, its frame count and\n"
    "its nano time.\n"
    "\n"
    "rate codes: 1 30 fps (default), 2 29.97 drop-frame, 3 25 fps, 4 24 fps,\n"
    "            5 29.97 non-drop, 6 23.976 fps\n"
    "\n"
    "qzk tc [--json] --nanos T --format NAME [--rate CODE] [--sample-rate HZ]\n"
    "              [--tempo BPM] [--signature BEATS/UNIT] [--ticks N]\n"
    "\n"
    "Prints the time as a time ruler shows it instead (after any --add, --sub\n"
    "or --step, the time of the resulting timecode):\n"
    "  hms       01:02:03.456, to the nearest millisecond (the default display)\n"
    "  seconds   3723.456\n"
    "  smpte     the timecode at --rate, 00:10:00;00 (wraps at 24 hours)\n"
    "  frames    the frame count at --rate, 17982\n"
    "  samples   the sample count at --sample-rate (default 48000), 44100\n"
    "  measures  measure:beat:tick from 1:1:000 at --tempo (quarter notes per\n"
    "            minute, default 120), --signature (default 4/4) and --ticks\n"
    "            per beat (default 960)\n"
    "Times before zero show a leading '-'; measures count on through 0 and -1.";

int run_tc(const Args& args) {
    Args rest = args;
    Request r;
    r.json = take_flag(rest, "--json");
    if (int rc = take_display(rest, &r.display)) return rc;
    // The rate comes first so that every value is read at it.
    for (size_t i = 0; i + 1 < rest.size(); ++i) {
        if (rest[i] != "--rate") continue;
        long long code = 0;
        if (!parse_integer(rest[i + 1], 1, 6, &code)) return bad("--rate takes a code from 1 to 6");
        r.rate = DWORD(code);
        rest.erase(rest.begin() + i, rest.begin() + i + 2);
        break;
    }
    for (size_t i = 0; i < rest.size(); ++i) {
        const std::string& a = rest[i];
        const bool takes_value = a == "--frames" || a == "--nanos" || a == "--add" ||
                                 a == "--sub" || a == "--step" || a == "--rate";
        if (takes_value && i + 1 >= rest.size()) return bad(a + " needs a value");
        if (a == "--rate") return bad("give --rate once");
        if (a == "--frames" || a == "--nanos") {
            if (int rc = start(r, a, rest[++i])) return rc;
        } else if (takes_value) {
            if (!r.have_start) return bad(a + " needs a timecode, --frames or --nanos first");
            if (int rc = apply(r, a, rest[++i])) return rc;
        } else if (a.size() > 1 && a[0] == '-' && a[1] == '-') {
            return bad("unknown option " + a);
        } else if (int rc = start(r, "", a)) {
            return rc;
        }
    }
    if (!r.have_start) return bad("give a timecode, --frames or --nanos (see qzk tc --help)");
    if (!r.display.name.empty())
        print_display(r);
    else
        print(r);
    return 0;
}

}  // namespace qzk
