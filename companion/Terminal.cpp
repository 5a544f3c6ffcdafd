#include "Terminal.h"

#include <windows.h>

#include "Text.h"
#include "common/Owners.h"

namespace companion {
namespace {

UniqueHandle Console(const wchar_t* name) {
    return OwnHandle(
        CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
}

void Show(const UniqueHandle& output, const std::wstring& text) {
    DWORD written = 0;
    WriteConsoleW(output.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

// A Unix terminal shows what is typed until Wine takes input from it, which it begins to in a thread of its own: so before the question
// is shown, and not when the answer is read.
void TakeOverTerminal(const UniqueHandle& input) {
    INPUT_RECORD ignored;
    DWORD count = 0;
    PeekConsoleInputW(input.Get(), &ignored, 1, &count);
}

std::optional<std::wstring> Ask(const std::wstring& question, bool isSecret) {
    const UniqueHandle input = Console(L"CONIN$"), output = Console(L"CONOUT$");
    DWORD mode = 0;
    if (!input || !output || !GetConsoleMode(input.Get(), &mode))
        return std::nullopt;
    const DWORD echo = isSecret ? 0 : ENABLE_ECHO_INPUT;
    SetConsoleMode(input.Get(), ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT | echo);
    TakeOverTerminal(input);
    Show(output, question);
    wchar_t line[1024];
    DWORD length = 0;
    const BOOL done = ReadConsoleW(input.Get(), line, static_cast<DWORD>(std::size(line)), &length, nullptr);
    SetConsoleMode(input.Get(), mode);
    if (isSecret)
        Show(output, L"\r\n");
    std::optional<std::wstring> text;
    const std::size_t end = std::wstring_view(line, length).find_first_of(L"\r\n");
    if (done && end != std::wstring_view::npos)  // without a line end, it was broken off or is too long
        text.emplace(line, end);
    Wipe(line, sizeof(line));
    return text;
}

}  // namespace

bool HasTerminal() {
    DWORD mode = 0;
    const UniqueHandle input = Console(L"CONIN$");
    return input && GetConsoleMode(input.Get(), &mode);
}

void TellAtTerminal(const std::wstring& text) {
    if (const UniqueHandle output = Console(L"CONOUT$"))
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
