// UTF-8 stands at the boundary and in files, UTF-16 inside.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/Names.h"

namespace companion {

// These two throw CQuelcryptErrorException, "Cannot decode" and "Cannot encode".
std::wstring FromUtf8(std::string_view text);
std::string ToUtf8(std::wstring_view text);

// For logs: what cannot be converted becomes U+FFFD.
std::wstring FromUtf8Lossy(std::string_view text);
std::string ToUtf8Lossy(std::wstring_view text);

// As most of its old programs, Windows writes some texts in the machine's ANSI code page.
std::wstring FromAnsi(std::string_view text);
std::string ToAnsi(std::wstring_view text);
// And ZIP programs write names in that of its console.
std::wstring FromOem(std::string_view text);

// "Access denied. Error code: 5"
std::wstring SystemErrorText(std::uint32_t error);

// With every accent in its letter, where there is such a letter (Unicode's form C).
std::wstring Composed(const std::wstring& text);

}  // namespace companion
