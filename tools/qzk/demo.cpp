// `qzk demo`: each family shows its writers and readers at work.
#include <cstdio>

#include "tools/qzk/qzk.h"

namespace qzk {

const DemoSection kDemoSections[] = {
    {"kernel", demo_kernel},
    {"wavinfo", demo_wavinfo},
    {"riff", demo_riff},
    {"errors", demo_errors},
    {"smpte", demo_smpte},
    {nullptr, nullptr},
};

int run_demo(const Args&) {
    int failures = 0;
    for (const DemoSection* section = kDemoSections; section->title; ++section) {
        std::printf("== %s\n", section->title);
        if (section->run() != 0) {
            std::printf("!! %s failed\n", section->title);
            ++failures;
        }
        std::printf("\n");
    }
    return failures == 0 ? 0 : 1;
}

}  // namespace qzk
