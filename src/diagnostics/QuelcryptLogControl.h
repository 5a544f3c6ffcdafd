// The line layouts of the trace log: three templates, parsed once into pieces, each a literal with at most one value.
// A control is set up before it is shared and only read afterwards, so it needs no lock.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// What a placeholder of a template stands for; the numbers identify pieces.
enum class LogValue : std::uint32_t {
    None = 0x1,  // the literal text after the last placeholder
    NestedPadding = 0x2,
    ProcId = 0x4,
    ThreadId = 0x8,
    Date = 0x10,
    Time = 0x20,
    TimeMilliseconds = 0x40,
    NestLevel = 0x80,
    ExecTime = 0x100,
    This = 0x200,
    File = 0x400,
    Line = 0x800,
    FuncName = 0x1000,
    LogMessage = 0x2000,
    ReturnResult = 0x4000,
};

// fragment is a printf format with exactly one conversion, or for LogValue::None a literal.
struct LogTemplatePiece {
    std::wstring fragment;
    LogValue value;
};
using LogTemplate = std::vector<LogTemplatePiece>;

// Splits a template at its placeholders ("%TIME%"); any other text between two "%" stays literal.
LogTemplate ParseLogTemplate(std::wstring_view text);

class QuelcryptLogControl {
public:
    virtual ~QuelcryptLogControl() = default;
    // Parses the three templates; to be called again after one was changed.
    virtual void Parse();
    // Is a line with this text to be written? Only called for a control of one log object.
    virtual bool Passes(std::wstring_view text) const { return m_filter.empty() || text.find(m_filter) != text.npos; }

    bool m_alwaysOn = false;  // log whatever the level, to the debugger too
    std::wstring m_filter;    // empty: every line passes
    std::wstring m_messageTemplate = L"%NESTEDPADDING%[%THREADID%]%TIME%.%TIMEMILLISEC% %THIS%%FUNCNAME% %LOGMESSAGE%\n";
    std::wstring m_enterTemplate = L"%NESTEDPADDING%[%THREADID%]%TIME%.%TIMEMILLISEC% ENTER %THIS%%FUNCNAME% %LOGMESSAGE%\n";
    std::wstring m_leaveTemplate = L"%NESTEDPADDING%[%THREADID%]%TIME%.%TIMEMILLISEC% LEAVE(%EXECTIME%) %THIS%%FUNCNAME% %LOGMESSAGE%\n";
    LogTemplate m_message;
    LogTemplate m_enter;
    LogTemplate m_leave;
};
