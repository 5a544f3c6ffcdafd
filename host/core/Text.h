// Text between the user and the volume: UTF-8 on this program's outside, UTF-16 towards the platform. Output goes to a
// console as UTF-16 and to a file or pipe as UTF-8, whatever code page is set.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/Names.h"

// Strict: throws HostError when text is not valid UTF-16 (a lone surrogate), for arguments, where a guess would name
// another file.
std::string ArgumentToUtf8(std::wstring_view text);
// Lenient, for output: what is not valid becomes U+FFFD.
std::string ToUtf8(std::wstring_view text);
// Throws HostError when text is not valid UTF-8.
std::wstring ToUtf16(std::string_view utf8);

// Text in a fixed buffer, which may lack its terminator.
template <std::size_t Capacity>
std::wstring_view BoundedText(const wchar_t (&buffer)[Capacity]) {
    const std::wstring_view whole(buffer, Capacity);
    return whole.substr(0, whole.find(L'\0'));
}

// Eight hexadecimal digits that no other upload or run is using.
std::wstring UniqueSuffix();

// A FILETIME as local "2024-05-01 12:00:00"; 0, which means unknown, as "-".
std::string TimeStr(std::uint64_t fileTime);

// Lenient, for one line that people read: what a terminal would act on becomes U+FFFD, the ends of lines too.
std::string ToShown(std::wstring_view text);

// Names and texts of others are part of what is printed, so nothing but the ends of lines and tabs reaches a terminal that
// it would act on. PrintOut throws HostError when standard output does not take it (a full disk, a closed pipe).
void PrintOut(std::string_view utf8);
void PrintError(std::string_view utf8);
// Draws on standard error, with control sequences. text has passed ToShown.
void DrawOnTerminal(std::string_view text);
