#include "Logger.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <vector>

#include <windows.h>

#include "Paths.h"
#include "Text.h"
#include "common/CharacterSets.h"
#include "common/Owners.h"

namespace companion {
namespace {

bool IsTraceForced() {
    wchar_t value[2];
    return GetEnvironmentVariableW(L"QUELCRYPT_TRACE", value, 2) == 1 && value[0] == L'1';
}

void WriteWhole(HANDLE file, const std::string& line) {
    DWORD written = 0;
    if (file && file != INVALID_HANDLE_VALUE)
        WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

std::string AsLine(std::wstring text) {
    while (!text.empty() && (text.back() == L'\n' || text.back() == L'\r'))
        text.pop_back();
    // A file name must not be able to forge a line of the log or to control a terminal.
    for (wchar_t& unit : text) {
        if (unit < 0x20 || (unit >= 0x7F && unit < 0xA0))
            unit = L' ';
    }
    return Narrowed(text, CharacterSet::Utf8) + "\r\n";
}

std::wstring Stamped(LogLevel level, const std::wstring& text) {
    static constexpr const wchar_t* names[] = {L"", L"ERROR", L"WARNING", L"INFORMATION", L"TRACE"};
    SYSTEMTIME now;
    GetSystemTime(&now);
    wchar_t stamp[64];
    _snwprintf(stamp, std::size(stamp), L"%04u-%02u-%02u %02u:%02u:%02u.%03u %lx %lx QuelcryptLib ", now.wYear, now.wMonth, now.wDay,
               now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, GetCurrentProcessId(), GetCurrentThreadId());
    return stamp + (names[level] + (L" " + text));
}

class LogFile final : public IFileLogger {
public:
    void Write(std::uint32_t, std::uint32_t level, const wchar_t* text, void*) override {
        if (text && level <= m_level.load(std::memory_order_relaxed))
            Append(text);
    }

    std::uint32_t GetLevel(std::uint32_t) override { return m_level.load(std::memory_order_relaxed); }

    void Configure(const std::wstring& file, std::uint32_t level) {
        const bool forced = IsTraceForced();
        const std::wstring target = forced ? L"-" : file;
        const std::lock_guard guard(m_mutex);
        if (target != m_path) {
            m_file.Reset();
            m_path = target;
            if (!target.empty() && target != L"-")
                Open();
        }
        const bool writes = m_path == L"-" || m_file;
        m_level = !writes ? 0 : forced ? static_cast<std::uint32_t>(LogLevel_Trace) : level;
    }

    void Close() {
        // At the end of a process, another thread may have been stopped while it had the mutex; the system then closes the file.
        const std::unique_lock guard(m_mutex, std::try_to_lock);
        m_level = 0;
        if (guard) {
            m_file.Reset();
            m_path.clear();
        }
    }

    bool WritesToStandardError() const {
        const std::lock_guard guard(m_mutex);
        return m_path == L"-" && m_level > 0;
    }

private:
    void Append(const wchar_t* text) noexcept {
        const DWORD error = GetLastError();
        try {
            const std::string line = AsLine(text);
            const std::lock_guard guard(m_mutex);
            WriteWhole(m_path == L"-" ? GetStdHandle(STD_ERROR_HANDLE) : m_file.Get(), line);
        } catch (...) {
            // To lose a line does the least harm.
        }
        SetLastError(error);
    }

    void Open() {
        m_file =
            OwnHandle(CreateFileW(OpenablePath(m_path).c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!m_file) {
            const std::wstring reason = SystemErrorText(GetLastError());
            WriteWhole(GetStdHandle(STD_ERROR_HANDLE), AsLine(L"The log file " + m_path + L" cannot be written: " + reason));
        }
    }

    mutable std::mutex m_mutex;
    std::wstring m_path;
    UniqueHandle m_file;
    std::atomic<std::uint32_t> m_level{0};
};

LogFile& TheLog() noexcept {
    static LogFile log;
    return log;
}

}  // namespace

IFileLogger* Logger() noexcept { return &TheLog(); }

std::uint32_t ComponentIndex(const char* componentName) {
    static std::mutex mutex;
    static std::vector<std::string> names;
    const std::string name = componentName ? componentName : "";
    const std::lock_guard guard(mutex);
    for (std::size_t index = 0; index < names.size(); ++index) {
        if (names[index] == name)
            return static_cast<std::uint32_t>(index) + 1;
    }
    names.push_back(name);
    return static_cast<std::uint32_t>(names.size());
}

void ConfigureLogger(const std::wstring& file, std::uint32_t level) noexcept {
    try {
        TheLog().Configure(file, level);
    } catch (...) {
        TheLog().Close();
    }
}

void CloseLogger() noexcept { TheLog().Close(); }

void LogLine(LogLevel level, const std::wstring& text) noexcept {
    try {
        if (level <= TheLog().GetLevel(0))
            TheLog().Write(0, level, Stamped(level, text).c_str(), nullptr);
    } catch (...) {
    }
}

void ReportProblem(const std::wstring& text) noexcept {
    try {
        LogLine(LogLevel_Error, text);
        OutputDebugStringW((text + L"\n").c_str());
        if (!TheLog().WritesToStandardError())
            WriteWhole(GetStdHandle(STD_ERROR_HANDLE), AsLine(text));
    } catch (...) {
    }
}

}  // namespace companion
