// Native paths as this library compares and opens them.
#pragma once

#include <string>
#include <string_view>

namespace companion {

// Absolute, with "." and ".." resolved, backslashes, no long-path prefix and no separator at its end ("C:" is a drive's
// root). A relative path counts from base, or from the current folder when base is empty. Asks no disk.
std::wstring FullPath(const std::wstring& path, const std::wstring& base = {});

// The same path in a form that the file functions take at any length. Of a full path, or one that is in this form.
std::wstring OpenablePath(const std::wstring& fullPath);

// Without its last component. Of a full path.
std::wstring FolderOf(const std::wstring& fullPath);

// Is path the folder itself or anything below it? Of full paths.
bool IsWithin(std::wstring_view path, std::wstring_view folder);

}  // namespace companion
