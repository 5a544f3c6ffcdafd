// Text that is exchanged with others: UTF-8 for the companion library, system error texts, fixed buffers. Stateless; any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <windows.h>

#include "common/Names.h"

// UTF-8 copy of text[0, length). Throws CQuelcryptErrorException "Cannot encode" when text is not valid UTF-16.
std::string Utf8EncodeStr(const wchar_t* text, DWORD length);
// UTF-16 copy. Throws CQuelcryptErrorException "Cannot decode" when text is not valid UTF-8.
std::wstring Utf8DecodeStr(std::string_view text);

// Is every surrogate in the text half of a pair? Other text has no UTF-8 form.
bool IsWellFormed(std::wstring_view text);

// Can a file or folder have this name? It must not contain units of patterns, streams or the shell.
bool IsPossibleName(std::wstring_view name);

// The system's message for a Win32 error on one line, followed by "Error code: <n>"; without a message the latter alone.
std::wstring SystemErrorStr(DWORD error);

// The text that a host put into a fixed buffer, perhaps without a terminator.
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
