// Text in UTF-16 and in narrow characters. Stateless; any thread. All throw std::length_error for text of more than 2 GiB, and
// std::bad_alloc.
#pragma once

#include <optional>
#include <string>
#include <string_view>

enum class CharacterSet { Utf8, System, Console };  // the last two: the code page of this machine, or of its consoles

// What has no form in the other set becomes U+FFFD, or the narrow set's own substitute: never a similar character, which could make
// the name of another file.
std::wstring Widened(std::string_view text, CharacterSet from);
std::string Narrowed(std::wstring_view text, CharacterSet to);

// Nothing if a part of the text has no form in the other set.
std::optional<std::wstring> WidenedExactly(std::string_view text, CharacterSet from);
std::optional<std::string> NarrowedExactly(std::wstring_view text, CharacterSet to);
