#include "diagnostics/QuelcryptLog.h"

#include <algorithm>
#include <atomic>
#include <cwchar>

namespace {

constexpr DWORD kLevelRefreshMilliseconds = 3000;
constexpr std::int64_t kSlowMilliseconds = 16;

// Constant-initialised and never destroyed, because lines may be written at any time from load to unload.
constinit std::atomic<const QuelcryptLogControl*> s_processControl{nullptr};
constinit std::atomic<IFileLogger*> s_logger{nullptr};
constinit std::atomic<std::uint32_t> s_componentIndex{0};

// The level and the tick at which it was read, as one value, so that both change together.
struct LevelReading {
    std::uint32_t level;
    DWORD tick;
};
constinit std::atomic<LevelReading> s_level{LevelReading{0, 0}};
constinit std::atomic<bool> s_levelIsKnown{false};

std::int64_t PerformanceCounter() {
    LARGE_INTEGER counter{};
    QueryPerformanceCounter(&counter);
    return counter.QuadPart;
}

std::int64_t TicksPerMillisecond() {
    static const std::int64_t s_ticks = [] {
        LARGE_INTEGER frequency{};
        QueryPerformanceFrequency(&frequency);
        return frequency.QuadPart / 1000;
    }();
    return s_ticks;
}

// How deep the calling thread is nested. The thread-local slot holds the number itself, so threads need no clean-up.
class NestingDepth {
public:
    static int Get() { return static_cast<int>(reinterpret_cast<INT_PTR>(TlsGetValue(Slot()))); }
    static void Set(int depth) { TlsSetValue(Slot(), reinterpret_cast<void*>(static_cast<INT_PTR>(depth))); }

private:
    // Freed when the module is unloaded: a process has few slots, and may load the module many times.
    struct OwnedSlot {
        OwnedSlot() : index(TlsAlloc()) {}
        ~OwnedSlot() { TlsFree(index); }
        DWORD index;
    };
    static DWORD Slot() {
        static const OwnedSlot s_slot;
        return s_slot.index;
    }
};

// Texts that clients send must not look like lines of the log.
std::wstring OneLineStr(std::wstring text) {
    std::replace_if(
        text.begin(), text.end(), [](wchar_t unit) { return unit < L' '; }, L' ');
    return text;
}

std::wstring FormatLevelStr(std::uint32_t level) {
    switch (level) {
        case LogLevel_Error: return L"ERROR";
        case LogLevel_Warning: return L"WARNING";
        case LogLevel_Information: return L"INFORMATION";
        default: return L"TRACE";
    }
}

}  // namespace

std::wstring FormatExecutionTimeStr(std::int64_t counterTicks, std::int64_t ticksPerMillisecond) {
    if (ticksPerMillisecond == 0)
        return L"<Error>";
    const std::int64_t milliseconds = counterTicks / ticksPerMillisecond;
    return FormatStr(milliseconds > kSlowMilliseconds ? L"!!!SLOW!!! %d" : L"%d", static_cast<int>(milliseconds));
}

std::uint32_t QuelcryptLog::GetLogLevel() noexcept {
    const DWORD now = GetTickCount();
    const LevelReading last = s_level.load(std::memory_order_relaxed);
    if (s_levelIsKnown.load(std::memory_order_relaxed) && now - last.tick <= kLevelRefreshMilliseconds)
        return last.level;
    const LastErrorKeeper keeper;
    std::uint32_t level = 0;
    try {
        if (IFileLogger* const logger = GetLogger())
            level = CallCompanion([&] { return logger->GetLevel(GetComponentIndex()); });
    } catch (...) {  // a logger that fails to say its level gets no lines
    }
    s_level.store({level, now}, std::memory_order_relaxed);
    s_levelIsKnown.store(true, std::memory_order_relaxed);
    return level;
}

const QuelcryptLogControl* QuelcryptLog::Control() const noexcept {
    return m_control ? m_control : s_processControl.load(std::memory_order_acquire);
}

bool QuelcryptLog::IsEnabled(std::uint32_t level) noexcept {
    const QuelcryptLogControl* const control = Control();
    return (control && control->m_alwaysOn) || GetLogLevel() >= level;
}

void QuelcryptLog::Log(std::uint32_t level, const std::wstring& message) noexcept {
    if (!IsEnabled(level))
        return;
    const LastErrorKeeper keeper;
    SYSTEMTIME now{};
    GetSystemTime(&now);
    WriteLine({level, L"MESSAGE", &now, &message});
}

void QuelcryptLog::Trace(bool enter) noexcept {
    if (enter == m_entered || (enter && !IsEnabled(LogLevel_Trace)))
        return;
    const LastErrorKeeper keeper;
    m_entered = enter;
    if (!enter)
        NestingDepth::Set(NestingDepth::Get() - 1);
    UpdateIndent();
    GetSystemTime(enter ? &m_enterTime : &m_leaveTime);
    (enter ? m_enterCounter : m_leaveCounter) = PerformanceCounter();
    if (enter)
        WriteLine({LogLevel_Trace, L"ENTER", &m_enterTime, &m_enterMessage});
    else
        WriteLine({LogLevel_Trace, L"LEAVE", &m_leaveTime, &m_leaveMessage});
    if (enter) {
        NestingDepth::Set(NestingDepth::Get() + 1);
        UpdateIndent();
    }
}

void QuelcryptLog::UpdateIndent() {
    try {
        m_indent.assign(static_cast<std::size_t>(NestingDepth::Get()), L'\t');
    } catch (...) {  // the line is not indented
    }
}

void QuelcryptLog::Record(VirtualVolumeStatus status) noexcept {
    m_resultKind = ResultKind::Int;
    m_intResult = static_cast<std::int32_t>(status);
    ShowResult([&] { return FormatStatusStr(status); });
}

void QuelcryptLog::Record(bool result) noexcept {
    m_resultKind = ResultKind::Bool;
    m_boolResult = result;
    ShowResult([&] { return ReturnResultStr(); });
}

void QuelcryptLog::Record(std::int32_t result) noexcept {
    m_resultKind = ResultKind::Int;
    m_intResult = result;
    ShowResult([&] { return ReturnResultStr(); });
}

void QuelcryptLog::Record(VirtualItemType type) noexcept {
    ShowResult([&] { return FormatItemTypeStr(type); });
}

void QuelcryptLog::Record(const std::wstring& text) noexcept {
    ShowResult([&] { return text; });
}

void QuelcryptLog::Record(const void* handle) noexcept {
    Record(handle != nullptr);
    ShowResult([&] { return handle ? FormatStr(L"0x%p", handle) : std::wstring(L"<NULL>"); });
}

void QuelcryptLog::Record(HRESULT result) noexcept {
    m_resultKind = ResultKind::HResult;
    m_hresult = result;
    ShowResult([&] { return ReturnResultStr(); });
}

void QuelcryptLog::WriteLine(const Line& line) noexcept {
    try {
        const QuelcryptLogControl* const control = Control();
        const LogTemplate* pieces = nullptr;
        if (control)
            pieces = line.message == &m_enterMessage   ? &control->m_enter
                     : line.message == &m_leaveMessage ? &control->m_leave
                                                       : &control->m_message;
        const std::wstring text = pieces ? RenderTemplate(*pieces, line) : RenderFixed(line);
        if (m_control && !m_control->Passes(text))
            return;
        IFileLogger* const logger = GetLogger();
        if (logger && line.level <= GetLogLevel())
            CallCompanion([&] { logger->Write(GetComponentIndex(), line.level, text.c_str(), nullptr); });
        if (control && control->m_alwaysOn)
            OutputDebugStringW(text.c_str());
    } catch (...) {  // a lost line must not make an operation fail
    }
}

std::wstring QuelcryptLog::RenderTemplate(const LogTemplate& pieces, const Line& line) const {
    std::wstring text;
    for (const LogTemplatePiece& piece : pieces)
        text += RenderPiece(piece, line);
    return text;
}

std::wstring QuelcryptLog::RenderPiece(const LogTemplatePiece& piece, const Line& line) const {
    const wchar_t* const format = piece.fragment.c_str();
    switch (piece.value) {
        case LogValue::None: return piece.fragment;
        case LogValue::NestedPadding: return FormatStr(format, m_indent);
        case LogValue::ProcId: return FormatStr(format, GetCurrentProcessId());
        case LogValue::ThreadId: return FormatStr(format, GetCurrentThreadId());
        case LogValue::Date: return FormatStr(format, FormatTimeStr(*line.time, L"%m/%d/%y"));
        case LogValue::Time: return FormatStr(format, FormatTimeStr(*line.time, L"%H:%S"));
        case LogValue::TimeMilliseconds: return FormatStr(format, static_cast<int>(line.time->wMilliseconds));
        case LogValue::NestLevel: return FormatStr(format, NestingDepth::Get());
        case LogValue::ExecTime:
            // Before LEAVE, the time since ENTER.
            return FormatStr(format, FormatExecutionTimeStr((m_entered ? PerformanceCounter() : m_leaveCounter) - m_enterCounter,
                                                            TicksPerMillisecond()));
        case LogValue::This: {
            const auto address = reinterpret_cast<std::uintptr_t>(m_thisPointer);
            return FormatStr(format, m_thisPointer ? FormatStr(L"this[%s]->", FormatHexStr(address, false, false)) : std::wstring());
        }
        case LogValue::File: return FormatStr(format, m_fileName ? m_fileName : L"");
        case LogValue::Line: return FormatStr(format, m_line);
        case LogValue::FuncName: return FormatStr(format, m_functionName ? m_functionName : L"");
        case LogValue::LogMessage: return FormatStr(format, OneLineStr(*line.message));
        case LogValue::ReturnResult: return FormatStr(format, ReturnResultStr());
    }
    return {};
}

std::wstring QuelcryptLog::RenderFixed(const Line& line) const {
    const std::wstring time = FormatSystemTimeStr(*line.time, true, true);
    const std::wstring processId = FormatHexStr(GetCurrentProcessId(), false, false);
    const std::wstring threadId = FormatHexStr(GetCurrentThreadId(), false, false);
    const std::wstring level = FormatLevelStr(line.level);
    const wchar_t* const functionName = m_functionName ? m_functionName : L"";
    const int depth = NestingDepth::Get() + 1;
    if (!m_thisPointer)
        return FormatStr(L"%s[%s.%s]%s %s[%s] %s[%d] %s %s\n", m_indent, processId, threadId, time, level, m_component, line.kind, depth,
                         functionName, OneLineStr(*line.message));
    const std::wstring address = FormatHexStr(reinterpret_cast<std::uintptr_t>(m_thisPointer), false, false);
    return FormatStr(L"%s[%s.%s]%s %s[%s] %s[%d] this[%s]->%s %s\n", m_indent, processId, threadId, time, level, m_component, line.kind,
                     depth, address, functionName, OneLineStr(*line.message));
}

std::wstring QuelcryptLog::ReturnResultStr() const {
    switch (m_resultKind) {
        case ResultKind::HResult: return FormatHResultStr(m_hresult);
        case ResultKind::Bool: return FormatBoolStr(m_boolResult);
        case ResultKind::Int: return m_intResult == 0 ? L"SUCCESS" : FormatStr(L"%d", m_intResult);
    }
    return {};
}

void QuelcryptLog::SetProcessControl(const QuelcryptLogControl* control) noexcept {
    TicksPerMillisecond();
    s_processControl.store(control, std::memory_order_release);
}

IFileLogger* QuelcryptVolLog::GetLogger() noexcept { return s_logger.load(std::memory_order_acquire); }
std::uint32_t QuelcryptVolLog::GetComponentIndex() noexcept { return s_componentIndex.load(std::memory_order_relaxed); }

void QuelcryptVolLog::SetModuleLogger(IFileLogger* logger, std::uint32_t componentIndex) noexcept {
    s_componentIndex.store(componentIndex, std::memory_order_relaxed);
    s_logger.store(logger, std::memory_order_release);
    s_levelIsKnown.store(false, std::memory_order_relaxed);
}
