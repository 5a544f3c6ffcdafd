// Files that are built aside and put in place in one step. Any thread may call.
#pragma once

#include <optional>
#include <string>

#include "library/FileVersion.h"
#include "library/Win32Error.h"

// A free path in the same folder, for a side file: a new file that is built there before it is put in place.
std::wstring SidePathStr(const std::wstring& filePath);
// Deletes it, if it is still there; keeps the last error.
void DeleteSideFile(const std::wstring& sidePath);
// Renames a side file to filePath, over a file that is there unless failIfExists. known is the version that
// it may replace, null for any; another version is ERROR_SHARING_VIOLATION. On failure the side file is deleted.
Win32Error PutInPlace(const std::wstring& sidePath, const std::wstring& filePath, bool failIfExists = false,
                      const std::optional<FileVersion>* known = nullptr);
// Copies a file with its attributes and times to a free path, and flushes it to the disk. On failure a part may be there.
Win32Error CopyWholeFile(const std::wstring& srcFilePath, const std::wstring& destFilePath);
// The same through a side file: what is there is replaced by the complete copy or not at all.
Win32Error CopyInPlace(const std::wstring& srcFilePath, const std::wstring& destFilePath, bool failIfExists = false,
                       const std::optional<FileVersion>* known = nullptr);
