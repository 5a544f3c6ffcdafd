#include "Text.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <windows.h>

#include "Boundary.h"
#include "common/CharacterSets.h"

namespace companion {
std::wstring FromUtf8(std::string_view text) {
    auto wide = WidenedExactly(text, CharacterSet::Utf8);
    if (!wide)
        Fail(L"Cannot decode");
    return *std::move(wide);
}

std::string ToUtf8(std::wstring_view text) {
    auto utf8 = NarrowedExactly(text, CharacterSet::Utf8);
    if (!utf8)
        Fail(L"Cannot encode");
    return *std::move(utf8);
}

std::wstring SystemErrorText(std::uint32_t error) {
    wchar_t text[512];
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text,
                                  static_cast<DWORD>(std::size(text)), nullptr);
    while (length > 0 && (text[length - 1] == L'\r' || text[length - 1] == L'\n' || text[length - 1] == L' '))
        --length;
    std::wstring result(text, length);
    if (!result.empty())
        result += L' ';
    return result + L"Error code: " + std::to_wstring(error);
}

std::wstring Composed(const std::wstring& text) {
    const auto isAscii = [](wchar_t unit) { return unit < 0x80; };
    if (std::all_of(text.begin(), text.end(), isAscii))
        return text;
    const int length = static_cast<int>(text.size());
    const int estimate = NormalizeString(NormalizationC, text.data(), length, nullptr, 0);
    std::wstring composed(estimate > 0 ? static_cast<std::size_t>(estimate) : 0, L'\0');
    const int units = NormalizeString(NormalizationC, text.data(), length, composed.data(), estimate);
    if (units <= 0)
        return text;  // not valid Unicode: nothing to compose
    composed.resize(static_cast<std::size_t>(units));
    return composed;
}

}  // namespace companion
