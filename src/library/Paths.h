// Paths as text; the disk is not asked. Components may be separated by "\" or "/". Any thread may call.
#pragma once

#include <optional>
#include <string>
#include <string_view>

std::wstring PathStripPathStr(std::wstring_view path);                                  // "C:\a\b.txt" -> "b.txt"
std::wstring PathRemoveFileSpecStr(std::wstring_view path);                             // "C:\a\b.txt" -> "C:\a", "C:\a" -> "C:\"
std::wstring PathAddExtensionStr(std::wstring_view path, std::wstring_view extension);  // appended whatever is there
std::wstring PathRemoveExtensionStr(std::wstring_view path);                            // "a.txt.zip" -> "a.txt"
std::wstring PathAppendStr(std::wstring_view folder, std::wstring_view name);
// With single separators "\", and none at the end except a root's. Of a path in the long form ("\\?\") only the end is changed.
std::wstring TidyPathStr(std::wstring_view path);
// Letter case does not matter. A folder is not below itself.
bool IsPathBelow(std::wstring_view path, std::wstring_view folder);

// Joins a mount folder's path and a path relative to it, resolving "." and ".." without access to the disk and trimming the
// trailing dots and blanks of each component, as the platform would. Nothing when the path leads out of the folder: above it,
// or to a device ("NUL", "COM1.txt").
std::optional<std::wstring> PathJoinBelow(std::wstring_view folder, std::wstring_view relativePath);

// Is a component of the path the name of a device, with or without an extension?
bool NamesDevice(std::wstring_view path);
