// What really stands on disk under a path. A link (a symbolic link, a junction, a volume's mount point) and a short name
// ("REPORT~1.DOC") make one file reachable by several paths; here each has one. Where a handle says that it is decides,
// so that it holds on any platform. Paths are native; a "real" one came from RealPath or is such a one and a listed name.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

// A real path as people read it, and as the volume takes it.
std::wstring OrdinaryPath(const std::filesystem::path& realPath);

// Does the platform mark each link in a listing? Wine marks only those to folders.
bool AreLinksMarked();

// What the disk says of a file: another one for each content that ever stood there, whatever time somebody gave it.
struct DiskVersion {
    std::uint64_t changed = 0;  // 0: the disk does not keep it, or nothing is there
    std::uint64_t written = 0;
    bool operator==(const DiskVersion&) const = default;
};
DiskVersion VersionOf(const DiskHandle& item);
DiskVersion VersionAt(const std::wstring& path);

enum class Standing { Nothing, Itself, Link };
// What stands at a path that is real unless a link stands there or on the way to it. What is no file of a disk (a pipe, a socket)
// counts as a link. Nothing says nothing of the folders on the way. version, if it is given, receives that of what could be opened.
Standing StandingAt(const std::wstring& realPath, std::optional<DiskVersion>* version = nullptr);
// The long name of what stands there; empty when nothing does.
std::wstring LongName(const std::wstring& path);

// Has the disk of this folder room for so many bytes, and a little more? Also true when it does not say.
bool HasRoom(const std::wstring& folder, std::uint64_t bytes);

// Opens the file or folder that stands at a real path, and no other that a link there leads to. Null: it failed, and
// GetLastError tells why; ERROR_CANT_ACCESS_FILE when it is a link that this platform cannot open itself, or no file of a disk.
DiskHandle OpenItself(const std::wstring& realPath, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING);

// Opens the folder so that nobody can rename, move or delete it, nor on Windows any above it, as long as it is open: the platform
// asks who lists a folder, and not who only looks at its attributes, whether its deletion is shared. Null as above.
DiskHandle HoldFolder(const std::wstring& realPath);

// The names in a folder at a real path; none when it is a link.
std::vector<std::wstring> NamesIn(const std::wstring& realFolder, const wchar_t* pattern = L"*");

// Deletes what was opened with DELETE and FILE_WRITE_ATTRIBUTES, read-only or not, once it is closed.
bool DeleteOpen(const DiskHandle& item);
// Deletes the file or link that stands at a real path, or the folder if it is empty; not while anybody has it open.
bool DeleteItself(const std::wstring& realPath);
// The same with all that is in a folder, but for the files of folders whose names stay says yes to. False: something stays.
using FilesStay = bool (*)(const std::vector<std::wstring>& names);
bool RemoveItself(const std::wstring& realPath, FilesStay stay = nullptr);
