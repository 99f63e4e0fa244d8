# Linux in the 32-bit data model (-m32): pointers, long and size_t are 32
# bits, as in the 32-bit Windows DLL the applications load, so that record
# sizes, dump widths and size sums are checked in that model. Needs
# g++-multilib and lib32z1-dev; CMake then looks in the lib32 folders.
set(CMAKE_C_FLAGS_INIT "-m32")
set(CMAKE_CXX_FLAGS_INIT "-m32")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-m32")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-m32")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-m32")
# The 64-bit pkg-config files (libavutil's among them) do not fit.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib32/pkgconfig:/usr/lib/i386-linux-gnu/pkgconfig")
# The 32-bit libraries of the multilib packages (lib32z1-dev: zlib).
list(APPEND CMAKE_LIBRARY_PATH /usr/lib32)
