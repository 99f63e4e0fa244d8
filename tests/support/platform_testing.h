// Helpers every suite may use: a scratch folder, UTF-16 paths and small
// file utilities that go straight to the operating system, so that what
// the library did can be checked independently of it.
#ifndef QZ_TESTS_SUPPORT_PLATFORM_TESTING_H
#define QZ_TESTS_SUPPORT_PLATFORM_TESTING_H

#include <string>

#include "qz/qzdefs.h"

namespace qz::testing {

using WString = std::basic_string<WCHAR>;

/* The separator of the paths the helpers build: the native one, a
   backslash on Windows and a slash on POSIX. */
#if defined(_WIN32)
inline constexpr char kSeparator = '\\';
#else
inline constexpr char kSeparator = '/';
#endif

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
    /* The UTF-8 path of `name` inside the folder; the slashes of `name`
       become the native separator. */
    std::string file(std::string name) const {
        for (char& c : name)
            if (c == '/') c = kSeparator;
        return path_ + kSeparator + name;
    }
    /* The same path as UTF-16, for the Win32 functions. */
    WString wide(const std::string& name) const { return testing::wide(file(name)); }

private:
    std::string path_;
};

/* Paths are UTF-8. */
bool native_exists(const std::string& path);
/* The file's bytes, or "<missing>" when it cannot be read. */
std::string native_read(const std::string& path);
void native_write(const std::string& path, const std::string& bytes);
void native_make_folder(const std::string& path);
void native_remove(const std::string& path);
/* Sets the file's length: a longer file gets a hole (sparse where the file
   system can). */
void native_resize(const std::string& path, unsigned long long size);

/* True when the ANSI code page is Windows-1252, the rows of the tests that
   spell characters outside ASCII in it need it. The POSIX layer's ANSI code
   page is always 1252; on Windows it is the machine's. */
bool ansi_code_page_is_1252();

/* True when the Windows build runs under Wine, whose emulation of a few
   system calls differs from Windows in what the tests observe. */
bool running_under_wine();

/* Sets (value null: removes) an environment variable of the process; a
   change of TZ takes effect at once. */
void set_environment(const char* name, const char* value);

/* An environment variable set for a scope and then put back. */
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name_;
    bool had_ = false;
    std::string old_;
};

}  // namespace qz::testing

#endif
