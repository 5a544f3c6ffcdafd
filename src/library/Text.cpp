#include "library/Text.h"

#include <algorithm>
#include <cwchar>
#include <iterator>

#include "quelcrypt/QuelcryptExceptions.h"

std::string Utf8EncodeStr(const wchar_t* text, DWORD length) {
    if (length == 0)
        return {};
    const int units = static_cast<int>(length);
    const int bytes = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text, units, nullptr, 0, nullptr, nullptr);
    if (bytes <= 0)
        throw CQuelcryptErrorException(L"Cannot encode");
    std::string encoded(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text, units, encoded.data(), bytes, nullptr, nullptr);
    return encoded;
}

std::wstring Utf8DecodeStr(std::string_view text) {
    if (text.empty())
        return {};
    const int bytes = static_cast<int>(text.size());
    const int units = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), bytes, nullptr, 0);
    if (units <= 0)
        throw CQuelcryptErrorException(L"Cannot decode");
    std::wstring decoded(static_cast<std::size_t>(units), L'\0');
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), bytes, decoded.data(), units);
    return decoded;
}

bool IsPossibleName(std::wstring_view name) { return name.find_first_of(L"*?<>|\":") == name.npos; }

bool IsWellFormed(std::wstring_view text) {
    bool afterFirstHalf = false;
    for (const wchar_t unit : text) {
        const bool isSecondHalf = (unit & 0xFC00) == 0xDC00;
        if (isSecondHalf != afterFirstHalf)
            return false;
        afterFirstHalf = (unit & 0xFC00) == 0xD800;
    }
    return !afterFirstHalf;
}

std::wstring SystemErrorStr(DWORD error) {
    wchar_t codeText[32] = L"";
    _snwprintf(codeText, std::size(codeText) - 1, L"Error code: %d", static_cast<int>(error));
    wchar_t* buffer = nullptr;
    const DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;
    if (FormatMessageW(flags, nullptr, error, 0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr) == 0 || buffer == nullptr)
        return codeText;
    std::wstring text(buffer);
    LocalFree(buffer);
    std::erase_if(text, [](wchar_t unit) { return unit == L'\n' || unit == L'\r'; });
    return text + L" " + codeText;
}
