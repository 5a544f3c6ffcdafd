// Text at the edges of the system: UTF-8 for the companion library, system error texts, and comparison without regard
// to letter case. Everything here is stateless and may be called on any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <windows.h>

// UTF-8 copy of text[0, length). Throws CQuelcryptErrorException "Cannot encode" when text is not valid UTF-16.
std::string Utf8EncodeStr(const wchar_t* text, DWORD length);
// UTF-16 copy. Throws CQuelcryptErrorException "Cannot decode" when text is not valid UTF-8.
std::wstring Utf8DecodeStr(std::string_view text);

// Is every surrogate in the text half of a pair? Other text has no UTF-8 form.
bool IsWellFormed(std::wstring_view text);

// The system's message for a Win32 error on one line, followed by "Error code: <n>"; without a message the latter alone.
std::wstring SystemErrorStr(DWORD error);

// One unit in upper case, as file names are compared; units without one stay as they are.
wchar_t UpperUnit(wchar_t unit);
bool EqualNoCase(std::wstring_view left, std::wstring_view right);
bool LessNoCase(std::wstring_view left, std::wstring_view right);
bool EndsWithNoCase(std::wstring_view text, std::wstring_view end);

// For tables keyed by paths or names that differ in letter case only: h = h * 33 + upper-case unit, from 0.
struct NoCaseHash {
    using is_transparent = void;
    std::size_t operator()(std::wstring_view text) const {
        std::size_t hash = 0;
        for (const wchar_t unit : text)
            hash = hash * 33 + UpperUnit(unit);
        return hash;
    }
};
struct NoCaseEqual {
    using is_transparent = void;
    bool operator()(std::wstring_view left, std::wstring_view right) const { return EqualNoCase(left, right); }
};

// What a host put into a fixed buffer, which may lack its terminator.
template <std::size_t Capacity>
std::wstring_view BoundedText(const wchar_t (&buffer)[Capacity]) {
    const std::wstring_view whole(buffer, Capacity);
    return whole.substr(0, whole.find(L'\0'));
}

// Copies text into a fixed buffer, cut to what fits before the terminator; returns whether all of it did.
template <std::size_t Capacity>
bool CopyBounded(wchar_t (&buffer)[Capacity], std::wstring_view text) {
    const std::size_t units = text.copy(buffer, Capacity - 1);
    buffer[units] = L'\0';
    return units == text.size();
}
