// Links against the installed library and checks the version word.
#include <qzkernel.h>

#include <cstdio>

int main() {
    const DWORD version = QzKernel_GetVersion();
    std::printf("0x%08X\n", unsigned(version));
    return version == QZKERNEL_VERSION ? 0 : 1;
}
