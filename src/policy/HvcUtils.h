// The companion library's policies of files and folders. When the library throws, fails, or
// returns a text that is not UTF-8, this is logged, the result is as without a policy, owner or key, and *isKnown (may be null)
// becomes false; otherwise it is not written. For a move, a failure is not the same as "no policy". Stateless; any thread.
#pragma once

#include <string>
#include <string_view>

#include "common/Names.h"

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
