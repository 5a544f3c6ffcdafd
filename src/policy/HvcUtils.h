// What policy says of files and folders, as the companion library knows it, and deleting whole trees.
// A failing library is no failure here: it is logged and there is then no policy, no owner, no key. When it threw, answered
// without success, or handed out bytes that are no UTF-8, *isKnown (may be null, and is left alone otherwise) becomes false:
// for a move, a failure is not the same as "no policy". No state, any thread.
#pragma once

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

// filePath with the ending of containers.
std::wstring ZipPathStr(std::wstring_view filePath);
// The container of an item shown at filePath: the path itself when it names an existing container, which is the way to a
// conflict copy, else filePath with ".zip" appended.
std::wstring ContainerPathStr(const std::wstring& filePath);

enum class DeleteResult { Deleted = 0, Failed = 22 };
// Deletes a file, or a folder with all it holds, read-only ones included; nothing goes to a recycle bin. Deleted: nothing is
// at path any more. Refuses an empty or relative path, and a folder that is to be kept.
enum class Folders { Delete, Keep };
DeleteResult DeleteFileOrFolder(const std::wstring& path, Folders folders = Folders::Delete);
// The same for an empty file alone, as one that held a name, or for one that is still this version. Both keep the last error.
void DeleteIfEmpty(const std::wstring& path);
void DeleteIfVersion(const std::wstring& path, const FileVersion& version);
