// The nested trace log. Every traced function makes one log object on its stack: it writes an ENTER line, message lines
// while the function runs, and on every way out a LEAVE line with the time it took, all indented by the thread's depth.
// Lines go to the companion library's logger. Logging never throws, and it leaves the thread's last error as it was.
// A log object belongs to one thread; the module's logger is set once, at load.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>

#include <windows.h>

#include "diagnostics/Formatters.h"
#include "diagnostics/QuelcryptLogControl.h"
#include "library/Owners.h"
#include "library/Win32Error.h"
#include "quelcrypt/QuelcryptLib.h"

template <class Value>
concept Enumeration = std::is_enum_v<Value>;

class QuelcryptLog {
public:
    // functionName and fileName must outlive the object; thisPointer is null for a free function. Writes nothing.
    QuelcryptLog(const void* thisPointer, const wchar_t* functionName, const wchar_t* fileName, int line) noexcept
        : m_thisPointer(thisPointer), m_functionName(functionName), m_fileName(fileName), m_line(line) {}
    QuelcryptLog(const QuelcryptLog&) = delete;
    QuelcryptLog& operator=(const QuelcryptLog&) = delete;
    // A derived class ends its own nesting with Trace(false); its logger can no longer be reached here.
    virtual ~QuelcryptLog() = default;

    // The logger's level for this component, which is read again after 3000 ms at the earliest.
    virtual std::uint32_t GetLogLevel() noexcept;
    virtual bool IsEnabled(std::uint32_t level) noexcept;
    virtual IFileLogger* GetLogger() noexcept = 0;
    virtual std::uint32_t GetComponentIndex() noexcept = 0;
    // Writes a message line when the level is enabled.
    virtual void Log(std::uint32_t level, const std::wstring& message) noexcept;
    // true: writes the ENTER line and goes one level deeper; false: writes the LEAVE line and returns to the level before. Only the first
    // call of each has an effect.
    virtual void Trace(bool enter) noexcept;
    virtual void SetEnterMessage(std::wstring message) noexcept { m_enterMessage = std::move(message); }
    virtual void SetLeaveMessage(std::wstring message) noexcept { m_leaveMessage = std::move(message); }
    // A control for this object, used instead of the process-wide one. Not owned.
    virtual void SetControl(const QuelcryptLogControl* control) noexcept { m_control = control; }

    // ENTER with a message. Without memory for the message only the message is left out.
    template <class MakeMessage>
    void Enter(MakeMessage makeMessage) noexcept {
        const LastErrorKeeper keeper;
        try {
            SetEnterMessage(makeMessage());
        } catch (...) {  // the line has no message
        }
        Trace(true);
    }

    // A message line whose message is formed only when the level is enabled.
    template <class MakeMessage>
    void LogWith(std::uint32_t level, MakeMessage makeMessage) noexcept {
        if (!IsEnabled(level))
            return;
        const LastErrorKeeper keeper;
        try {
            Log(level, makeMessage());
        } catch (...) {  // no memory for the line
        }
    }

    // A failed check: text is the check's, and its placeholders are filled with the results of the two functions.
    template <class MakeFirst, class MakeDetail>
    void LogFailedCheck(const wchar_t* text, MakeFirst makeFirst, MakeDetail makeDetail) noexcept {
        LogWith(LogLevel_Error, [&] { return FormatStr(text, makeFirst(), makeDetail()); });
    }

    // Records what the function returns, for the LEAVE line, and returns it.
    template <class Result>
    Result Leave(Result result) noexcept {
        if (m_entered)
            Record(result);
        return result;
    }

    // The control of every object without its own; null until it was parsed at load. Not owned.
    static void SetProcessControl(const QuelcryptLogControl* control) noexcept;

private:
    enum class ResultKind : std::uint32_t { HResult, Bool, Int };
    struct Line {
        std::uint32_t level;
        const wchar_t* kind;  // "ENTER", "LEAVE" or "MESSAGE"
        const SYSTEMTIME* time;
        const std::wstring* message;
    };

    void Record(VirtualVolumeStatus status) noexcept;
    void Record(VirtualItemType type) noexcept;
    void Record(bool result) noexcept;
    void Record(HRESULT result) noexcept;
    void Record(const std::wstring& text) noexcept;
    void Record(const void* handle) noexcept;
    void Record(std::int32_t result) noexcept;
    // Other enumerations that functions return, as errors: their numbers.
    template <Enumeration Number>
    void Record(Number number) noexcept {
        Record(static_cast<std::int32_t>(number));
    }
    template <class Object>
    void Record(const std::unique_ptr<Object>& handle) noexcept {
        Record(static_cast<const void*>(handle.get()));
    }
    void Record(std::nullptr_t) noexcept { Record(static_cast<const void*>(nullptr)); }
    // The result becomes the LEAVE line's message.
    template <class MakeText>
    void ShowResult(MakeText makeText) noexcept {
        try {
            SetLeaveMessage(makeText());
        } catch (...) {  // the line has no message
        }
    }

    void UpdateIndent();
    void WriteLine(const Line& line) noexcept;
    std::wstring RenderTemplate(const LogTemplate& pieces, const Line& line) const;
    std::wstring RenderPiece(const LogTemplatePiece& piece, const Line& line) const;
    std::wstring RenderFixed(const Line& line) const;
    std::wstring ReturnResultStr() const;
    const QuelcryptLogControl* Control() const noexcept;

    HRESULT m_hresult = S_OK;
    bool m_boolResult = true;
    std::int32_t m_intResult = 0;
    ResultKind m_resultKind = ResultKind::HResult;
    std::wstring m_indent;
    std::wstring m_enterMessage;
    std::wstring m_leaveMessage;
    SYSTEMTIME m_enterTime;  // UTC; valid from ENTER on
    SYSTEMTIME m_leaveTime;  // UTC; valid from LEAVE on
    std::int64_t m_enterCounter = 0;
    std::int64_t m_leaveCounter = 0;
    const wchar_t* m_component = L"QuelcryptVol";
    const void* m_thisPointer;
    const wchar_t* m_functionName;
    const wchar_t* m_fileName;
    int m_line;
    bool m_entered = false;
    const QuelcryptLogControl* m_control = nullptr;
};

// The text of "%EXECTIME%" for two performance-counter readings; ticksPerMillisecond 0 shows as "<Error>".
std::wstring FormatExecutionTimeStr(std::int64_t counterTicks, std::int64_t ticksPerMillisecond);

// A log object that writes through the module's logger.
class QuelcryptVolLog final : public QuelcryptLog {
public:
    using QuelcryptLog::QuelcryptLog;
    ~QuelcryptVolLog() override { Trace(false); }
    IFileLogger* GetLogger() noexcept override;
    std::uint32_t GetComponentIndex() noexcept override;

    // The logger of all objects, owned by the companion library; null, as before the first call, logs nothing.
    static void SetModuleLogger(IFileLogger* logger, std::uint32_t componentIndex) noexcept;
};
