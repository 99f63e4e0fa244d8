# Cross-build for 64-bit Windows. The test suite is built this way to run
# the Windows code under Wine: the 32-bit Wine cannot be had on the build
# machines, so the 64-bit build stands in for the Windows code paths (the
# DLL the applications load is the 32-bit one of mingw-i686.cmake).
set(QZ_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
