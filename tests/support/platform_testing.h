// Helpers for the platform layer's tests: a scratch folder and small file
// utilities that go straight to the operating system, so that what the
// layer did can be checked independently of it.
#ifndef QZ_TESTS_SUPPORT_PLATFORM_TESTING_H
#define QZ_TESTS_SUPPORT_PLATFORM_TESTING_H

#include <string>

#include "platform/win32api.h"

namespace qz::testing {

/* A fresh folder under the system's temporary folder, removed with its contents. */
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    /* The UTF-8 path of `name` inside the folder. */
    std::string native(const std::string& name) const;
    /* The same path as UTF-16, for the Win32 functions. */
    std::u16string wide(const std::string& name) const;

private:
    std::string root_;
};

/* UTF-8 to UTF-16 without the layer under test (the tests use ASCII and
   a few literal characters, all in the Basic Multilingual Plane). */
std::u16string widen(const std::string& utf8);

bool native_exists(const std::string& path);
/* The file's bytes, or "<missing>" when it cannot be read. */
std::string native_read(const std::string& path);
void native_write(const std::string& path, const std::string& bytes);

}  // namespace qz::testing

#endif
