// Deleting files and whole trees. Any thread.
#pragma once

#include <optional>
#include <string>

#include "library/FileVersion.h"

enum class DeleteResult { Deleted = 0, Failed = 22, Replaced };
// Deletes a file, or a folder with everything in it, including read-only files, without the recycle bin. Deleted: nothing is
// at path any more. Refuses an empty or relative path.
DeleteResult DeleteFileOrFolder(const std::wstring& path);
// Deletes the file only while it is version known (nothing: no file). Replaced: another is there, and stays. Deleted: known is gone; a
// newer file may be there.
DeleteResult DeleteFileOrFolder(const std::wstring& path, const std::optional<FileVersion>& known);
// Deletes a file only if it is empty, as one that reserves a name is, or only if it is this version. Both keep the last error.
void DeleteIfEmpty(const std::wstring& path);
void DeleteIfVersion(const std::wstring& path, const FileVersion& version);
