// What is really on disk at a path. Through links (a symbolic link, a junction, a volume's mount point) and short names
// ("REPORT~1.DOC") one file has several paths, but only one real path, which the system reports for an open handle on any
// platform. Paths are native; a "real" one comes from RealPath, or is such a path and a listed name.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <windows.h>

#include "common/Owners.h"

// The real path of the file or folder that path leads to, in the form "\\?\C:\...". Empty: nothing is there, or it is unknown.
std::wstring RealPath(const std::wstring& path);
// The real path of an open file.
std::wstring RealPath(HANDLE file);

// A real path in the form for people and for the volume.
std::wstring OrdinaryPath(const std::filesystem::path& realPath);

// Does the platform mark each link in a listing? Wine marks only those to folders.
bool AreLinksMarked();

// Differs for each content that the file ever had, whatever times somebody sets.
struct DiskVersion {
    std::uint64_t changed = 0;  // 0: the disk has no change times, or nothing is there
    std::uint64_t written = 0;
    bool operator==(const DiskVersion&) const = default;
};
DiskVersion VersionOf(const UniqueHandle& item);
DiskVersion VersionAt(const std::wstring& path);

enum class Standing { Nothing, Itself, Link };
// Itself: a file or folder is at this real path. Link: a link is there or in the path, or something that is not a file of a disk (a
// pipe, a socket). Nothing: neither, but the path may contain links. version, if given, receives the version of what could be opened.
Standing StandingAt(const std::wstring& realPath, std::optional<DiskVersion>* version = nullptr);
// The long name of the file or folder; empty when there is none.
std::wstring LongName(const std::wstring& path);

// Has the disk of this folder room for so many bytes, and 1 MiB more? Also true when the room is unknown.
bool HasRoom(const std::wstring& folder, std::uint64_t bytes);

// Opens the file or folder at a real path, never a link's target. Null: it failed, and GetLastError says why;
// ERROR_CANT_ACCESS_FILE for a link that this platform cannot open itself, or for something that is not a file of a disk.
UniqueHandle OpenItself(const std::wstring& realPath, DWORD access, DWORD share, DWORD disposition = OPEN_EXISTING);

// Opens the folder so that, while it is open, nobody can rename, move or delete it, nor on Windows any folder above. For this it must be
// opened for listing, not only for its attributes. Null as above.
UniqueHandle HoldFolder(const std::wstring& realPath);

// The names in a folder at a real path; none when it is a link.
std::vector<std::wstring> NamesIn(const std::wstring& realFolder, const wchar_t* pattern = L"*");

// Marks for deletion a file that was opened with DELETE and FILE_WRITE_ATTRIBUTES, even a read-only one.
bool DeleteOpen(const UniqueHandle& item);
// Deletes the file or link at a real path, or the folder if it is empty; not while anybody has it open.
bool DeleteItself(const std::wstring& realPath);
// The same for a folder with everything in it, except the files of folders for whose names stay returns true. False: something is left.
using FilesStay = bool (*)(const std::vector<std::wstring>& names);
bool RemoveItself(const std::wstring& realPath, FilesStay stay = nullptr);
