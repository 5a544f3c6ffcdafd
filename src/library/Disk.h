// What is on the disk at a path. Nothing is changed; any thread may call.
#pragma once

#include <functional>
#include <string>

#include <windows.h>

// The path of a file or folder without short names, substituted drives, junctions and links, as far as it exists; empty when it
// cannot be found out ("GetFinalPathNameByHandle").
std::wstring FinalPathStr(const std::wstring& path);

// The path with the long form of its last name, if that is a short name ("Naming Files, Paths, and Namespaces").
std::wstring WithLongNameStr(const std::wstring& path);

// Do two paths, perhaps spelled differently or through an alias, lead to one existing file? Where letter case counts, "a" and "A" are
// two files; where files have no identity, their final paths decide.
bool AreSameFile(const std::wstring& left, const std::wstring& right);

// Calls visit(path, entry) for everything in a folder except "." and "..", until it returns false. Also false when the folder could not be
// read to its end: the last error says why.
bool ForEachEntry(const std::wstring& folder, const std::function<bool(const std::wstring&, const WIN32_FIND_DATAW&)>& visit);

// Is there a file or folder at path? Folders count.
bool PathExists(const std::wstring& path);
bool IsExistingFile(const std::wstring& path);
bool IsExistingFolder(const std::wstring& path);

// Is it a link (common/Links.h)? One that cannot be asked counts as one.
bool IsLink(const std::wstring& path);
