#include "common/CharacterSets.h"

#include <climits>
#include <stdexcept>

#include <windows.h>

namespace {

UINT CodePage(CharacterSet set) {
    switch (set) {
        case CharacterSet::System: return GetACP();
        case CharacterSet::Console: return GetOEMCP();
        default: return CP_UTF8;
    }
}

int Length(std::size_t count) {
    if (count > INT_MAX)
        throw std::length_error("text");
    return static_cast<int>(count);
}

std::optional<std::wstring> Widen(std::string_view text, CharacterSet from, DWORD flags) {
    const UINT codePage = CodePage(from);
    const int bytes = Length(text.size()), units = MultiByteToWideChar(codePage, flags, text.data(), bytes, nullptr, 0);
    if (units <= 0 && bytes > 0)
        return std::nullopt;
    std::wstring wide(static_cast<std::size_t>(units), L'\0');
    MultiByteToWideChar(codePage, flags, text.data(), bytes, wide.data(), units);
    return wide;
}

std::optional<std::string> Narrow(std::wstring_view text, CharacterSet to, bool exactly) {
    const UINT codePage = CodePage(to);
    const bool isUtf8 = codePage == CP_UTF8;  // has all characters, and takes neither the flag nor the question
    const DWORD flags = !isUtf8 ? WC_NO_BEST_FIT_CHARS : exactly ? WC_ERR_INVALID_CHARS : 0;
    BOOL isLossy = FALSE;
    const int units = Length(text.size());
    const int bytes = WideCharToMultiByte(codePage, flags, text.data(), units, nullptr, 0, nullptr, isUtf8 ? nullptr : &isLossy);
    if ((bytes <= 0 && units > 0) || (exactly && isLossy))
        return std::nullopt;
    std::string narrow(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(codePage, flags, text.data(), units, narrow.data(), bytes, nullptr, nullptr);
    return narrow;
}

}  // namespace

std::wstring Widened(std::string_view text, CharacterSet from) { return Widen(text, from, 0).value_or(std::wstring()); }
std::string Narrowed(std::wstring_view text, CharacterSet to) { return Narrow(text, to, false).value_or(std::string()); }
std::optional<std::wstring> WidenedExactly(std::string_view text, CharacterSet from) { return Widen(text, from, MB_ERR_INVALID_CHARS); }
std::optional<std::string> NarrowedExactly(std::wstring_view text, CharacterSet to) { return Narrow(text, to, true); }
