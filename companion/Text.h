// Texts are UTF-8 at the boundary and in files, and UTF-16 inside.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/Names.h"

namespace companion {

// These two throw CQuelcryptErrorException, "Cannot decode" and "Cannot encode".
std::wstring FromUtf8(std::string_view text);
std::string ToUtf8(std::wstring_view text);

// "Access denied. Error code: 5"
std::wstring SystemErrorText(std::uint32_t error);

// The text with composed accents (Unicode's form C).
std::wstring Composed(const std::wstring& text);

}  // namespace companion
