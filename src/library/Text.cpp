#include "library/Text.h"

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <utility>

#include "common/CharacterSets.h"
#include "quelcrypt/QuelcryptExceptions.h"

std::string Utf8EncodeStr(const wchar_t* text, DWORD length) {
    auto encoded = NarrowedExactly({text, length}, CharacterSet::Utf8);
    if (!encoded)
        throw CQuelcryptErrorException(L"Cannot encode");
    return *std::move(encoded);
}

std::wstring Utf8DecodeStr(std::string_view text) {
    auto decoded = WidenedExactly(text, CharacterSet::Utf8);
    if (!decoded)
        throw CQuelcryptErrorException(L"Cannot decode");
    return *std::move(decoded);
}

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
