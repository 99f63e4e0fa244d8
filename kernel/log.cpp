// CLog: the diagnostic log file.
#include "qz/qzlog.h"

#include <cstdarg>
#include <mutex>
#include <string>

#include "base/format.h"
#include "platform/platform.h"
#include "platform/win32api.h"

namespace qz::log {

namespace {

// A message is cut to this many characters, the terminating zero included.
constexpr size_t kMessageChars = 1024;
// One line in 8-bit text: tag, time stamp, source name, the message in a
// code page of up to two bytes a character, the line end.
constexpr size_t kLineBytes = 4096;
constexpr WCHAR kPreviousSuffix[] = QZTEXT(".previous");
constexpr size_t kSuffixChars = sizeof kPreviousSuffix / sizeof kPreviousSuffix[0] - 1;
constexpr size_t kLongestName = MAX_PATH - 1 - kSuffixChars;
// Only the low word of a level selects; the high word holds decorations.
constexpr LOGFLAGS kLevelBits = 0xFFFF;

DWORD share_flags(int share_mode) {
    switch (share_mode) {
        case QZLOG_SH_DENYWR:
            return FILE_SHARE_READ;
        case QZLOG_SH_DENYRD:
            return FILE_SHARE_WRITE;
        case QZLOG_SH_DENYNO:
            // Sharing deletion lets any of several logs on the file rename
            // it away when it rotates.
            return FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
        default:
            return 0;
    }
}

const char* tag_of(LOGFLAGS level) {
    switch (level) {
        case QZLOG_ERROR:
            return "ERR ";
        case QZLOG_WARNING:
            return "WARN";
        case QZLOG_INFO:
            return "INFO";
        case QZLOG_DEBUG:
            return "DBG ";
        case QZLOG_PLAIN:
            return "";
        default:
            return "????";
    }
}

const WCHAR* file_name_part(const WCHAR* path) {
    if (!path) return QZTEXT("");
    const WCHAR* name = path;
    for (const WCHAR* p = path; *p; ++p)
        if (*p == WCHAR('\\') || *p == WCHAR('/')) name = p + 1;
    return name;
}

// Rotations of every log in the process take turns, so that of several
// logs on one file only the first to find it full moves it away.
std::mutex& rotation_lock() {
    static std::mutex lock;
    return lock;
}

// The size of the open file, or -1 when it cannot be told.
LONGLONG file_size(HANDLE file) {
    LARGE_INTEGER size;
    return GetFileSizeEx(file, &size) ? size.QuadPart : -1;
}

class Locked {
public:
    explicit Locked(CRITICAL_SECTION& section) : section_(section) {
        EnterCriticalSection(&section_);
    }
    ~Locked() { LeaveCriticalSection(&section_); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

private:
    CRITICAL_SECTION& section_;
};

size_t append(char* line, size_t used, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const size_t n = qz::base::vformat(line + used, kLineBytes - used, format, args).length;
    va_end(args);
    return used + n;
}

}  // namespace

}  // namespace qz::log

using qz::log::Locked;

CLog::CLog()
    : m_enabled(FALSE),
      m_file(nullptr),
      m_mask(0),
      m_size_limit(-1),
      m_file_name{},
      m_previous_name{},
      m_share_mode(QZLOG_EXCLUSIVE) {
    InitializeCriticalSection(&m_lock);
}

CLog::CLog(const CLog& other) : CLog() {
    *this = other;
}

CLog& CLog::operator=(const CLog& other) {
    if (this == &other) return *this;
    // The other log's settings are taken under its lock and applied under
    // ours, never holding both, so two threads copying in opposite
    // directions cannot deadlock.
    BOOL other_enabled;
    LOGFLAGS mask;
    int size_limit;
    int share_mode;
    WCHAR name[MAX_PATH];
    {
        Locked guard(other.m_lock);
        other_enabled = other.m_enabled;
        mask = other.m_mask;
        size_limit = other.m_size_limit;
        share_mode = other.m_share_mode;
        std::char_traits<WCHAR>::copy(name, other.m_file_name, MAX_PATH);
    }
    Locked guard(m_lock);
    close_file();
    m_enabled = FALSE;
    m_mask = mask;
    m_size_limit = size_limit;
    m_share_mode = share_mode;
    set_names(name);
    // Two handles on one file need a sharing open; an exclusive log's copy
    // stays disabled until it is given a file of its own.
    if (other_enabled && SUCCEEDED(open_file())) m_enabled = TRUE;
    return *this;
}

CLog::~CLog() {
    Shutdown();
    DeleteCriticalSection(&m_lock);
}

HRESULT CLog::Init(LPCWSTR file_name, LOGFLAGS mask, int size_limit, int share_mode) {
    Locked guard(m_lock);
    if (!file_name || !file_name[0] || mask == 0) return E_INVALIDARG;
    if (std::char_traits<WCHAR>::length(file_name) > qz::log::kLongestName) return E_INVALIDARG;
    close_file();
    m_enabled = FALSE;
    set_names(file_name);
    m_mask = mask;
    m_size_limit = size_limit;
    m_share_mode = share_mode;
    const HRESULT hr = open_file();
    if (SUCCEEDED(hr)) m_enabled = TRUE;
    return hr;
}

HRESULT QZ_CDECL CLog::Write(LOGFLAGS level, LPCWSTR source, int line, LPCWSTR format, ...) {
    using namespace qz::log;
    Locked guard(m_lock);
    if (!m_enabled) return QZE_INIT_FAILED;
    if ((m_mask & level & kLevelBits) == 0) return S_OK;
    if (!format) return E_POINTER;

    // The file is open for appending, so its size is where the line goes.
    if (m_size_limit > 0 && file_size(m_file) >= m_size_limit) {
        const HRESULT hr = rotate();
        if (FAILED(hr)) {
            m_enabled = FALSE;
            return hr;
        }
    }

    WCHAR message[kMessageChars];
    va_list args;
    va_start(args, format);
    qz::base::vformat(message, kMessageChars, format, args);
    va_end(args);

    char text[kLineBytes];
    size_t n = append(text, 0, "%s", tag_of(level));
    if (m_mask & QZLOG_TIME) {
        SYSTEMTIME t;
        GetLocalTime(&t);
        n = append(text, n, " %02d-%02d-%02d %02d:%02d:%02d ", int(t.wYear), int(t.wMonth),
                   int(t.wDay), int(t.wHour), int(t.wMinute), int(t.wSecond));
    }
    if (m_mask & QZLOG_SOURCE) n = append(text, n, "%15S(%4d): ", file_name_part(source), line);
    n = append(text, n, "%S%s", message, qz::platform::kTextLineEnd);

    // One write a line: the line reaches the file whole, at once.
    DWORD written = 0;
    if (!WriteFile(m_file, text, DWORD(n), &written, nullptr) || written != n)
        return QZE_FILE_WRITE;
    return S_OK;
}

LPCWSTR CLog::GetLogFileName() const {
    return m_file_name;
}

void CLog::Shutdown() {
    Locked guard(m_lock);
    m_enabled = FALSE;
    close_file();
}

void CLog::set_names(LPCWSTR file_name) {
    const size_t n = std::char_traits<WCHAR>::length(file_name);
    std::char_traits<WCHAR>::copy(m_file_name, file_name, n + 1);
    std::char_traits<WCHAR>::copy(m_previous_name, file_name, n);
    std::char_traits<WCHAR>::copy(m_previous_name + n, qz::log::kPreviousSuffix,
                                  qz::log::kSuffixChars + 1);
}

// The file is opened for appending only: every line then goes to the end
// of the file in one write, even when other handles write to it as well.
HRESULT CLog::open_file() {
    const HANDLE file = CreateFileW(m_file_name, GENERIC_READ | FILE_APPEND_DATA,
                                    qz::log::share_flags(m_share_mode), nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return QZE_FILE_OPEN;
    m_file = file;
    return S_OK;
}

void CLog::close_file() {
    if (!m_file) return;
    CloseHandle(m_file);
    m_file = nullptr;
}

// The current file becomes the previous one, replacing it. Whether the
// deletion and the renaming worked shows in the reopening: if the file
// could not be moved away, the log goes on in it.
//
// Another log on the same file may have rotated it already, and this log
// then holds the old file under its new name. So the name is opened again
// first, and the file found there is moved away only if it is full too.
HRESULT CLog::rotate() {
    std::lock_guard<std::mutex> rotating(qz::log::rotation_lock());
    close_file();
    HRESULT hr = open_file();
    if (FAILED(hr) || qz::log::file_size(m_file) < m_size_limit) return hr;
    close_file();
    DeleteFileW(m_previous_name);
    MoveFileW(m_file_name, m_previous_name);
    return open_file();
}
