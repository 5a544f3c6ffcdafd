// Native paths as this library compares and opens them.
#pragma once

#include <string>
#include <string_view>

namespace companion {

// Absolute, with "." and ".." resolved, backslashes, no long-path prefix and no separator at its end ("C:" is a drive's
// root). A relative path begins at base, or at the current folder when base is empty. Does not access the disk.
std::wstring FullPath(const std::wstring& path, const std::wstring& base = {});

// A full path, or one already in this form, in a form that the file functions take at any length.
std::wstring OpenablePath(const std::wstring& fullPath);

// A full path without its last component.
std::wstring FolderOf(const std::wstring& fullPath);

// Is path the folder itself or below it? Both are full paths.
bool IsWithin(std::wstring_view path, std::wstring_view folder);

}  // namespace companion
