#include "Terminal.h"

#include <windows.h>

#include "Handle.h"
#include "Text.h"

namespace companion {
namespace {

Handle Console(const wchar_t* name) {
    return Handle(CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
}

void Show(const Handle& output, const std::wstring& text) {
    DWORD written = 0;
    WriteConsoleW(output.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

std::optional<std::wstring> Ask(const std::wstring& question, bool isSecret) {
    const Handle input = Console(L"CONIN$"), output = Console(L"CONOUT$");
    DWORD mode = 0;
    if (!input || !output || !GetConsoleMode(input.Get(), &mode))
        return std::nullopt;
    const DWORD echo = isSecret ? 0 : ENABLE_ECHO_INPUT;
    SetConsoleMode(input.Get(), ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT | echo);
    Show(output, question);
    wchar_t line[1024];
    DWORD length = 0;
    const BOOL done = ReadConsoleW(input.Get(), line, static_cast<DWORD>(std::size(line)), &length, nullptr);
    SetConsoleMode(input.Get(), mode);
    if (isSecret)
        Show(output, L"\r\n");
    std::wstring text(line, length);
    Wipe(line, sizeof(line));
    const std::size_t end = text.find_first_of(L"\r\n");
    if (!done || end == std::wstring::npos)  // without a line end, it was broken off or is too long
        return std::nullopt;
    text.resize(end);
    return text;
}

}  // namespace

bool HasTerminal() {
    DWORD mode = 0;
    const Handle input = Console(L"CONIN$");
    return input && GetConsoleMode(input.Get(), &mode);
}

void TellAtTerminal(const std::wstring& text) {
    if (const Handle output = Console(L"CONOUT$"))
        Show(output, text + L"\r\n");
}

std::optional<std::wstring> AskForLine(const std::wstring& question) { return Ask(question, false); }

std::optional<Secret> AskForPassword(const std::wstring& question) {
    std::optional<std::wstring> line = Ask(question, true);
    if (!line)
        return std::nullopt;
    Secret secret(ToUtf8(*line));
    Wipe(*line);
    return secret;
}

}  // namespace companion
