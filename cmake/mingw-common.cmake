# What both MinGW toolchains share: the -posix compilers, whose C++ library
# has threads, and a search root of the target's own libraries. The
# toolchain file names the compiler prefix (QZ_MINGW_TRIPLE) first.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER ${QZ_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${QZ_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${QZ_MINGW_TRIPLE}-windres)
set(CMAKE_OBJDUMP ${QZ_MINGW_TRIPLE}-objdump)
set(CMAKE_FIND_ROOT_PATH /usr/${QZ_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
