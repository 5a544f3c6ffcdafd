#include "Text.h"

#include <algorithm>
#include <climits>

#include <windows.h>

#include "Boundary.h"

namespace companion {
namespace {

std::wstring Widened(std::string_view text, UINT codePage, DWORD flags, const wchar_t* failure) {
    if (text.empty())
        return {};
    if (text.size() > INT_MAX)
        Fail(failure);
    const int length = static_cast<int>(text.size());
    const int units = MultiByteToWideChar(codePage, flags, text.data(), length, nullptr, 0);
    if (units <= 0)
        Fail(failure);
    std::wstring wide(static_cast<std::size_t>(units), L'\0');
    MultiByteToWideChar(codePage, flags, text.data(), length, wide.data(), units);
    return wide;
}

std::string Narrowed(std::wstring_view text, UINT codePage, DWORD flags, const wchar_t* failure) {
    if (text.empty())
        return {};
    if (text.size() > INT_MAX)
        Fail(failure);
    const int length = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(codePage, flags, text.data(), length, nullptr, 0, nullptr, nullptr);
    if (bytes <= 0)
        Fail(failure);
    std::string narrow(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(codePage, flags, text.data(), length, narrow.data(), bytes, nullptr, nullptr);
    return narrow;
}

constexpr const wchar_t* kCannotDecode = L"Cannot decode";
constexpr const wchar_t* kCannotEncode = L"Cannot encode";

}  // namespace

std::wstring FromUtf8(std::string_view text) { return Widened(text, CP_UTF8, MB_ERR_INVALID_CHARS, kCannotDecode); }

std::string ToUtf8(std::wstring_view text) { return Narrowed(text, CP_UTF8, WC_ERR_INVALID_CHARS, kCannotEncode); }

std::wstring FromUtf8Lossy(std::string_view text) { return Widened(text, CP_UTF8, 0, kCannotDecode); }

std::string ToUtf8Lossy(std::wstring_view text) { return Narrowed(text, CP_UTF8, 0, kCannotEncode); }

std::wstring FromAnsi(std::string_view text) { return Widened(text, CP_ACP, 0, kCannotDecode); }

std::string ToAnsi(std::wstring_view text) { return Narrowed(text, CP_ACP, 0, kCannotEncode); }

std::wstring FromOem(std::string_view text) { return Widened(text, CP_OEMCP, 0, kCannotDecode); }

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
