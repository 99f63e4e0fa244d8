// The kernel's message box. Every box the library shows goes through
// QzMessageBox, so a host can route them into its own interface (or a test
// can record them) with one handler.
#include <mutex>
#include <new>
#include <string>

#include "base/guard.h"
#include "base/spin_lock.h"
#include "platform/platform.h"
#include "qz/qzkernel.h"
#include "qz/qzlang.h"

namespace {

struct Handler {
    QZMESSAGEBOXHANDLER show = nullptr;
    void* context = nullptr;
};

// Constant-initialised, so a box may be shown from any constructor.
constinit qz::base::SpinLock g_handler_lock;
constinit Handler g_handler;

qz::base::SpinLock& handler_lock() {
    return g_handler_lock;
}

Handler current_handler() {
    std::lock_guard<qz::base::SpinLock> lock(handler_lock());
    return g_handler;
}

// A text with "$(AppName)" expanded; the raw text when memory is short.
class ShownText {
public:
    explicit ShownText(LPCWSTR text) : text_(text ? text : QZTEXT("")) {
        try {
            expanded_.assign(size_t(QzLang_ExpandText(text_, nullptr, 0)), WCHAR(0));
            QzLang_ExpandText(text_, expanded_.data(), int(expanded_.size() + 1));
            text_ = expanded_.c_str();
        } catch (const std::bad_alloc&) {
        }
    }
    LPCWSTR get() const { return text_; }

private:
    LPCWSTR text_;
    std::basic_string<WCHAR> expanded_;
};

}  // namespace

QZ_EXTERN_C QZ_API void QZ_STDCALL QzKernel_SetMessageBoxHandler(QZMESSAGEBOXHANDLER handler,
                                                                 void* context) {
    std::lock_guard<qz::base::SpinLock> lock(handler_lock());
    g_handler.show = handler;
    g_handler.context = handler ? context : nullptr;
}

QZ_EXTERN_C QZ_API int QZ_STDCALL QzMessageBox(HWND owner, LPCWSTR text, LPCWSTR caption,
                                               UINT style) {
    const Handler handler = current_handler();
    const ShownText shown_text(text);
    const ShownText shown_caption(caption);
    if (handler.show)
        return handler.show(handler.context, owner, shown_text.get(), shown_caption.get(), style);
    // A box that cannot be shown answers 0, as MessageBox does when it fails.
    return qz::base::guarded<int>(0, 0, [&] {
        return qz::platform::show_default_message_box(owner, shown_text.get(),
                                                      shown_caption.get(), style);
    });
}
