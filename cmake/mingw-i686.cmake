# Cross-build for 32-bit Windows: the DLL the applications load.
set(QZ_MINGW_TRIPLE i686-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR x86)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
