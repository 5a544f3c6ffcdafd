#include "core/Text.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <iterator>
#include <random>
#include <utility>

#include <windows.h>

#include "common/CharacterSets.h"
#include "common/Halves.h"
#include "core/HostError.h"

namespace {

std::atomic<bool> g_isDrawn = false;  // is there a line of DrawOnTerminal?

bool WriteAll(HANDLE handle, std::string_view utf8) {
    DWORD mode = 0;
    if (GetConsoleMode(handle, &mode)) {
        const std::wstring text = ToUtf16(utf8);
        DWORD written = 0;
        return WriteConsoleW(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    }
    while (!utf8.empty()) {
        DWORD written = 0;
        if (!WriteFile(handle, utf8.data(), static_cast<DWORD>(utf8.size()), &written, nullptr))
            return false;
        utf8.remove_prefix(written);
    }
    return true;
}

// Control characters of both sets, line ends, and characters that change the direction of text.
bool IsActedOn(wchar_t unit) {
    return unit < 0x20 || (unit >= 0x7F && unit < 0xA0) || unit == 0x200E || unit == 0x200F || (unit >= 0x2028 && unit <= 0x202E) ||
           (unit >= 0x2066 && unit <= 0x2069) || unit == 0x061C;
}

std::string Printable(std::string_view utf8) {
    std::wstring text = Widened(utf8, CharacterSet::Utf8);
    std::replace_if(
        text.begin(), text.end(), [](wchar_t unit) { return unit != L'\n' && unit != L'\t' && IsActedOn(unit); }, L'\xFFFD');
    return ToUtf8(text);
}

}  // namespace

std::string ArgumentToUtf8(std::wstring_view text) {
    auto utf8 = NarrowedExactly(text, CharacterSet::Utf8);
    if (!utf8)
        throw UsageError(ToUtf8(text) + ": not valid Unicode text");
    return *std::move(utf8);
}

std::string ToUtf8(std::wstring_view text) { return Narrowed(text, CharacterSet::Utf8); }

std::wstring ToUtf16(std::string_view utf8) {
    auto text = WidenedExactly(utf8, CharacterSet::Utf8);
    if (!text)
        throw HostError("text that is not valid UTF-8");
    return *std::move(text);
}

std::wstring UniqueSuffix() {
    std::random_device source;
    wchar_t digits[9];
    std::swprintf(digits, std::size(digits), L"%08x", source() ^ GetCurrentProcessId());
    return digits;
}

std::string TimeStr(std::uint64_t fileTime) {
    const FILETIME time = FileTimeOf(fileTime);
    SYSTEMTIME utc, local;
    if (fileTime == 0 || !FileTimeToSystemTime(&time, &utc) || !SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local))
        return "-";
    char text[32];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d", local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute,
                  local.wSecond);
    return text;
}

std::string ToShown(std::wstring_view text) {
    std::wstring shown(text);
    std::replace_if(shown.begin(), shown.end(), IsActedOn, L'\xFFFD');
    return ToUtf8(shown);
}

void PrintOut(std::string_view utf8) {
    EraseDrawing();
    if (!WriteAll(GetStdHandle(STD_OUTPUT_HANDLE), Printable(utf8)))
        throw HostError("standard output: " + SystemMessage(GetLastError()));
}

void PrintError(std::string_view utf8) {
    EraseDrawing();
    WriteAll(GetStdHandle(STD_ERROR_HANDLE), Printable(utf8));
}

void DrawOnTerminal(std::string_view line) {
    const HANDLE error = GetStdHandle(STD_ERROR_HANDLE);
    CONSOLE_SCREEN_BUFFER_INFO screen{};
    std::wstring text = ToUtf16(line);
    const std::size_t width = GetConsoleScreenBufferInfo(error, &screen) ? static_cast<std::size_t>(screen.dwSize.X) : 0;
    if (width > 2 && text.size() >= width)
        text = L"\x2026" + text.substr(text.size() - width + 2);
    g_isDrawn = true;
    WriteAll(error, "\r" + ToUtf8(text) + "\x1b[K");
}

void EraseDrawing() {
    if (g_isDrawn.exchange(false))
        WriteAll(GetStdHandle(STD_ERROR_HANDLE), "\r\x1b[K");
}
