// Text between the user and the volume: UTF-8 for the user, UTF-16 for the platform. Output is written to a
// console as UTF-16 and to a file or pipe as UTF-8, whatever code page is set.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/BoundedText.h"
#include "common/Names.h"

// For arguments: throws HostError when text is not valid UTF-16 (a lone surrogate), because a replacement could name another file.
std::string ArgumentToUtf8(std::wstring_view text);
// For output: invalid units become U+FFFD.
std::string ToUtf8(std::wstring_view text);
// Throws HostError when text is not valid UTF-8.
std::wstring ToUtf16(std::string_view utf8);

// Eight hexadecimal digits that no other upload or run is using.
std::wstring UniqueSuffix();

// A FILETIME as local "2024-05-01 12:00:00"; 0, which means unknown, as "-".
std::string TimeStr(std::uint64_t fileTime);

// For one line that people read: invalid units, line ends, and what a terminal would act on become U+FFFD.
std::string ToShown(std::wstring_view text);

// Printed text may contain names and texts from others, so of the characters that a terminal would act on, only line ends and tabs are
// printed. PrintOut throws HostError when standard output fails (a full disk, a closed pipe).
void PrintOut(std::string_view utf8);
void PrintError(std::string_view utf8);
// Draws one line on the terminal of standard error in place of the one drawn before; what is printed next erases it. A line that is too
// long loses its beginning. Any name in it must come from ToShown.
void DrawOnTerminal(std::string_view line);
void EraseDrawing();
