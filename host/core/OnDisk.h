// What really stands on disk under a path. A link (a symbolic link, a junction, a volume's mount point) and a short name
// ("REPORT~1.DOC") make one file reachable by several paths; here each has one. Where a handle says that it is decides,
// so that it holds on any platform. Paths are native; a "real" one came from RealPath or is such a one and a listed name.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include <windows.h>

struct DiskHandleCloser {
    using pointer = HANDLE;
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using DiskHandle = std::unique_ptr<void, DiskHandleCloser>;
// Takes over a handle; null for INVALID_HANDLE_VALUE.
DiskHandle OwnHandle(HANDLE handle);

// The one path of the file or folder that path leads to, in the form "\\?\C:\...". Empty: nothing is there, or it cannot be told.
std::wstring RealPath(const std::wstring& path);
// The same of an open file.
std::wstring RealPath(HANDLE file);

enum class Standing { Nothing, Itself, Link };
// What stands at folder\name, where folder is a real path.
Standing StandingAt(const std::wstring& realPath);
// The long name of what stands there; empty when nothing does.
std::wstring LongName(const std::wstring& path);

// Opens the file or folder that stands at a real path, and no other that a link there leads to. Null: it failed, and
// GetLastError tells why; ERROR_CANT_ACCESS_FILE when it is a link that this platform cannot open itself.
DiskHandle OpenItself(const std::wstring& realPath, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING);

// Deletes what stands at a real path: a file, a link but not what it leads to, or a folder with what is in it and keep does
// not ask to stay (which is asked for files by their path). False: something stays.
bool RemoveItself(const std::wstring& realPath, bool (*stays)(const std::filesystem::path& file) = nullptr);
