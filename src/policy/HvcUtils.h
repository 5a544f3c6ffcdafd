// The companion library's policies of files and folders, and deleting whole trees. When the library throws, fails, or
// returns a text that is not UTF-8, this is logged, the result is as without a policy, owner or key, and *isKnown (may be null)
// becomes false; otherwise it is not written. For a move, a failure is not the same as "no policy". Stateless; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "common/Names.h"
#include "library/FileVersion.h"
#include "library/Win32Error.h"

// Is a file at this path to be stored as a container? Decided by its name and by its folder's policy; it need not exist.
bool ShouldFileBeEncrypted(const std::wstring& filePath, bool* isKnown = nullptr);
bool DoesFolderHavePolicy(const std::wstring& folderPath, bool* isKnown = nullptr);
// Empty when unknown.
std::wstring GetOwnerId(const std::wstring& folderPath, bool* isKnown = nullptr);
// Empty when unknown, or when the folder has no policy.
std::wstring GetFolderTargetKeyId(const std::wstring& folderPath, bool* isKnown = nullptr);

// filePath with the extension of containers.
std::wstring ZipPathStr(std::wstring_view filePath);
// The container of an item shown at filePath: the path itself when it names an existing container, which is the way to a
// conflict copy, else filePath with ".zip" appended.
std::wstring ContainerPathStr(const std::wstring& filePath);

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
