// qzk: one subcommand per family of the library, each with --help.
#include <cstdio>
#include <cstring>

#include "tools/qzk/qzk.h"

namespace qzk {

int run_version(const Args& args) {
    Args rest = args;
    const bool json = take_flag(rest, "--json");
    const DWORD version = QzKernel_GetVersion();
    if (json)
        std::printf("{\"version\": %u, \"hex\": \"0x%08X\"}\n", unsigned(version),
                    unsigned(version));
    else
        std::printf("0x%08X\n", unsigned(version));
    return 0;
}

}  // namespace qzk

namespace {

void print_help() {
    std::printf("usage: qzk COMMAND [ARGS...]\n\ncommands:\n");
    for (const qzk::Command* c = qzk::kCommands; c->name; ++c)
        std::printf("  %-10s %s\n", c->name, c->summary);
    std::printf("\n`qzk COMMAND --help` describes one command.\n");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h")) {
        print_help();
        return argc < 2 ? 2 : 0;
    }
    for (const qzk::Command* c = qzk::kCommands; c->name; ++c) {
        if (std::strcmp(argv[1], c->name) != 0) continue;
        qzk::Args args(argv + 2, argv + argc);
        for (const auto& a : args) {
            if (a == "--help" || a == "-h") {
                std::printf("usage: %s\n\n%s\n", c->usage, c->summary);
                return 0;
            }
        }
        return c->run(args);
    }
    std::fprintf(stderr, "qzk: unknown command '%s' (see qzk --help)\n", argv[1]);
    return 2;
}
