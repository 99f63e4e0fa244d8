// SMPTE timecode: reading a typed timecode.
//
// A typed timecode is read as a list of numbers: every run of digits splits
// into pairs counted from its right end, anything else separates, and each
// non-space character after the last digit stands for one more number, 0
// (so "1:2:" ends in a zero frames field while "1:2 " does not). The first
// four numbers fill the label from the right: each new number moves the
// fields read so far one place towards the hours.
#include "audioformat/smpte_internal.h"

namespace qz {

namespace {

using namespace qz::smpte;

constexpr int kLabelFields = 4;
constexpr WCHAR kSpace = QZTEXT(' ');

bool is_digit(WCHAR c) {
    return c >= QZTEXT('0') && c <= QZTEXT('9');
}

size_t text_length(LPCWSTR text) {
    size_t n = 0;
    if (text)
        while (text[n]) ++n;
    return n;
}

class FieldFiller {
public:
    explicit FieldFiller(_smpteval* smpte) : smpte_(smpte) {}
    bool full() const { return read_ == kLabelFields; }
    void push(DWORD number) {
        if (full()) return;
        smpte_->hours = smpte_->minutes;
        smpte_->minutes = smpte_->seconds;
        smpte_->seconds = smpte_->frames;
        smpte_->frames = number;
        ++read_;
    }

private:
    _smpteval* smpte_;
    int read_ = 0;
};

// Pushes the numbers of the digit run text[begin, end): an odd-length run
// starts with a single digit, the rest go in pairs.
void push_run(FieldFiller& filler, LPCWSTR text, size_t begin, size_t end) {
    size_t chunk = (end - begin) % 2 ? 1 : 2;
    for (size_t i = begin; i < end && !filler.full(); i += chunk, chunk = 2) {
        DWORD number = 0;
        for (size_t j = i; j < i + chunk; ++j) number = number * 10 + DWORD(text[j] - QZTEXT('0'));
        filler.push(number);
    }
}

void normalise(_smpteval* smpte) {
    const DWORD fps = smpte_label_fps(smpte->rate);
    smpte->seconds += smpte->frames / fps;
    smpte->frames %= fps;
    smpte->minutes += smpte->seconds / 60;
    smpte->seconds %= 60;
    smpte->hours += smpte->minutes / 60;
    smpte->minutes %= 60;
    smpte->hours %= 24;
}

}  // namespace

}  // namespace qz

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QZSMPTE_TextToSMPTE(LPCWSTR text, _smpteval* smpte) {
    if (!smpte) return E_POINTER;
    smpte->hours = smpte->minutes = smpte->seconds = smpte->frames = smpte->reserved = 0;
    const size_t length = qz::text_length(text);
    size_t body_end = length;
    while (body_end > 0 && !qz::is_digit(text[body_end - 1])) --body_end;

    qz::FieldFiller filler(smpte);
    for (size_t i = 0; i < body_end && !filler.full();) {
        if (!qz::is_digit(text[i])) {
            ++i;
            continue;
        }
        size_t run_end = i;
        while (run_end < body_end && qz::is_digit(text[run_end])) ++run_end;
        qz::push_run(filler, text, i, run_end);
        i = run_end;
    }
    for (size_t i = body_end; i < length && !filler.full(); ++i)
        if (text[i] != qz::kSpace) filler.push(0);

    if (qz::smpte::smpte_known_rate(smpte->rate)) qz::normalise(smpte);
    return body_end > 0 ? S_OK : S_FALSE;
}
