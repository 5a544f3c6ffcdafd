// Text that is exchanged with others: UTF-8 for the companion library, system error texts. Stateless; any thread.
#pragma once

#include <string>
#include <string_view>

#include <windows.h>

#include "common/BoundedText.h"
#include "common/Names.h"

// UTF-8 copy of text[0, length). Throws CQuelcryptErrorException "Cannot encode" when text is not valid UTF-16.
std::string Utf8EncodeStr(const wchar_t* text, DWORD length);
// UTF-16 copy. Throws CQuelcryptErrorException "Cannot decode" when text is not valid UTF-8.
std::wstring Utf8DecodeStr(std::string_view text);

// Is every surrogate in the text half of a pair? Other text has no UTF-8 form.
bool IsWellFormed(std::wstring_view text);

// The system's message for a Win32 error on one line, followed by "Error code: <n>"; without a message the latter alone.
std::wstring SystemErrorStr(DWORD error);
