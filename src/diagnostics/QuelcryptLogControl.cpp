#include "diagnostics/QuelcryptLogControl.h"

#include <array>

namespace {

struct Placeholder {
    std::wstring_view token;
    LogValue value;
    const wchar_t* conversion;
};
constexpr std::array kPlaceholders{
    Placeholder{L"%NESTEDPADDING%", LogValue::NestedPadding, L"%s"},
    Placeholder{L"%PROCID%", LogValue::ProcId, L"%x"},
    Placeholder{L"%THREADID%", LogValue::ThreadId, L"%x"},
    Placeholder{L"%DATE%", LogValue::Date, L"%s"},
    Placeholder{L"%TIME%", LogValue::Time, L"%s"},
    Placeholder{L"%TIMEMILLISEC%", LogValue::TimeMilliseconds, L"%03d"},
    Placeholder{L"%NESTLEVEL%", LogValue::NestLevel, L"%d"},
    Placeholder{L"%EXECTIME%", LogValue::ExecTime, L"%ss"},
    Placeholder{L"%THIS%", LogValue::This, L"%s"},
    Placeholder{L"%FILE%", LogValue::File, L"%s"},
    Placeholder{L"%LINE%", LogValue::Line, L"%d"},
    Placeholder{L"%FUNCNAME%", LogValue::FuncName, L"%s"},
    Placeholder{L"%LOGMESSAGE%", LogValue::LogMessage, L"%s"},
    Placeholder{L"%RETURNRESULT%", LogValue::ReturnResult, L"%s"},
};

const Placeholder* FindPlaceholder(std::wstring_view token) {
    for (const Placeholder& placeholder : kPlaceholders)
        if (placeholder.token == token)
            return &placeholder;
    return nullptr;
}

std::wstring DoublePercents(std::wstring_view literal) {
    std::wstring doubled;
    for (const wchar_t unit : literal)
        doubled.append(unit == L'%' ? 2 : 1, unit);
    return doubled;
}

}  // namespace

LogTemplate ParseLogTemplate(std::wstring_view text) {
    LogTemplate pieces;
    std::size_t literalStart = 0;
    std::size_t open = text.find(L'%');
    while (open != text.npos) {
        const std::size_t close = text.find(L'%', open + 1);
        if (close == text.npos)
            break;
        const Placeholder* const placeholder = FindPlaceholder(text.substr(open, close + 1 - open));
        if (!placeholder) {
            open = close;  // the closing "%" may open a placeholder
            continue;
        }
        pieces.push_back({DoublePercents(text.substr(literalStart, open - literalStart)) + placeholder->conversion, placeholder->value});
        literalStart = close + 1;
        open = text.find(L'%', literalStart);
    }
    if (literalStart < text.size())
        pieces.push_back({std::wstring(text.substr(literalStart)), LogValue::None});
    return pieces;
}

void QuelcryptLogControl::Parse() {
    m_message = ParseLogTemplate(m_messageTemplate);
    m_enter = ParseLogTemplate(m_enterTemplate);
    m_leave = ParseLogTemplate(m_leaveTemplate);
}
