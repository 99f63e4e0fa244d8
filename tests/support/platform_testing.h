// Helpers every suite may use: a scratch folder, UTF-16 paths and small
// file utilities that go straight to the operating system, so that what
// the library did can be checked independently of it.
#ifndef QZ_TESTS_SUPPORT_PLATFORM_TESTING_H
#define QZ_TESTS_SUPPORT_PLATFORM_TESTING_H

#include <string>

#include "qz/qzdefs.h"

namespace qz::testing {

using WString = std::basic_string<WCHAR>;

/* UTF-8 to UTF-16 without the library's own conversion (the tests use
   ASCII and a few literal characters, all in the Basic Multilingual Plane). */
WString wide(const std::string& utf8);

/* A fresh folder under the test temporary folder, removed with everything
   in it (read-only entries included) when the object goes. */
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    /* The UTF-8 path of `name` inside the folder. */
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    /* The same path as UTF-16, for the Win32 functions. */
    WString wide(const std::string& name) const { return testing::wide(file(name)); }

private:
    std::string path_;
};

/* Sets an environment variable (TZ takes effect at once) while the object
   lives, then puts the old value back. */
class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string& value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* name_;
    bool had_;
    std::string old_;
};

bool native_exists(const std::string& path);
/* The file's bytes, or "<missing>" when it cannot be read. */
std::string native_read(const std::string& path);
void native_write(const std::string& path, const std::string& bytes);

}  // namespace qz::testing

#endif
