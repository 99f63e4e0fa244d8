// Helpers shared by the error-handler and log tests.
#ifndef QZ_TESTS_SUPPORT_ERROR_SUPPORT_H
#define QZ_TESTS_SUPPORT_ERROR_SUPPORT_H

#include <string>
#include <vector>

#include "qzkernel.h"
#include "tests/support/platform_testing.h"

namespace qz::testing {

// UTF-16 text as UTF-8, for messages of failed expectations.
std::string narrow(const WCHAR* text);
inline std::string narrow(const WString& text) {
    return narrow(text.c_str());
}

// The kernel's text after "$(AppName)" is replaced, as the composer does.
WString expanded(const WString& text);

// Records every kernel message box while alive and answers with `answer`.
class MessageBoxCapture {
public:
    struct Box {
        WString text;  // "<null>" for a null text, and the same for the caption
        WString caption;
        UINT style;
        HWND owner;
    };
    explicit MessageBoxCapture(int answer = 1);
    ~MessageBoxCapture();
    MessageBoxCapture(const MessageBoxCapture&) = delete;
    MessageBoxCapture& operator=(const MessageBoxCapture&) = delete;

    const std::vector<Box>& boxes() const { return boxes_; }

private:
    static int QZ_STDCALL handler(void* context, HWND owner, LPCWSTR text, LPCWSTR caption,
                                  UINT style);
    int answer_;
    std::vector<Box> boxes_;
};

// "%0*llX" of an address: what the dumps print for %p.
std::string hex_address(const void* address);

}  // namespace qz::testing

#endif
