// Small file-system helpers for all layers above. Stateless; any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <windows.h>

#include "library/FileVersion.h"
#include "library/Win32Error.h"
#include "quelcrypt/IVirtualVolume.h"

// The one place where platform errors become statuses. None, which a failed call may leave, is VVS_GeneralError.
VirtualVolumeStatus StatusFromWin32(Win32Error error);
// For a call that returned its error: None is VVS_Success.
inline VirtualVolumeStatus StatusOfCall(Win32Error error) { return error == Win32Error::None ? VVS_Success : StatusFromWin32(error); }
inline VirtualVolumeStatus StatusFromLastError() { return StatusFromWin32(LastWin32Error()); }

// Native information classes and records, as in the platform's documentation of ZwSetInformationFile.
inline constexpr int kFileBasicInformation = 4;
inline constexpr int kFileRenameInformation = 10;
inline constexpr int kFileDispositionInformation = 13;
struct FileBasicInformation {
    std::int64_t creationTime;
    std::int64_t lastAccessTime;
    std::int64_t lastWriteTime;
    std::int64_t changeTime;
    std::uint32_t fileAttributes;
};
static_assert(sizeof(FileBasicInformation) == 40);
struct FileRenameInformation {
    BOOLEAN replaceIfExists;
    HANDLE rootDirectory;
    ULONG fileNameLength;  // bytes, without a terminator
    wchar_t fileName[1];
};

// Sets one kind of information on an open file through the native call. A handle's rights decide what is allowed.
Win32Error ZwSetInformationFile(HANDLE hFile, const void* info, ULONG length, int fileInformationClass);

// Sets (true) or clears (false) the delete-on-close mark of the handle's file. The handle needs DELETE access.
Win32Error DeleteUndeleteFile(HANDLE hFile, bool deleteFile);

// Moves an open file's position, and moves it back at its end. Does not own the handle.
class FilePointer {
public:
    FilePointer(HANDLE hFile, std::int64_t newPosition);
    ~FilePointer() { Restore(); }
    FilePointer(const FilePointer&) = delete;
    FilePointer& operator=(const FilePointer&) = delete;

    // False: the position could not be read or moved, and is unchanged.
    bool PointerWasSet() const { return m_pointerWasSet; }
    std::int64_t OriginalPosition() const { return m_origPos; }
    // Moves the position back now; later calls do nothing.
    void Restore();

private:
    HANDLE m_hFile;
    std::int64_t m_origPos = 0;
    bool m_pointerWasSet = false;
};

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

// Is it a link, which leads elsewhere: a symbolic link, a junction, a mounted disk? A sync client's placeholder is a reparse point too,
// but not a link ("Reparse Point Tags", IsReparseTagNameSurrogate).
bool IsLink(const std::wstring& path);

// Paths as text, without access to the disk. Components may be separated by "\" or "/".
std::wstring PathStripPathStr(std::wstring_view path);                                  // "C:\a\b.txt" -> "b.txt"
std::wstring PathRemoveFileSpecStr(std::wstring_view path);                             // "C:\a\b.txt" -> "C:\a", "C:\a" -> "C:\"
std::wstring PathAddExtensionStr(std::wstring_view path, std::wstring_view extension);  // appended whatever is there
std::wstring PathRemoveExtensionStr(std::wstring_view path);                            // "a.txt.zip" -> "a.txt"
std::wstring PathAppendStr(std::wstring_view folder, std::wstring_view name);
// With single separators "\", and none at the end except a root's. Of a path in the long form ("\\?\") only the end is changed.
std::wstring TidyPathStr(std::wstring_view path);
// Letter case does not matter. A folder is not below itself.
bool IsPathBelow(std::wstring_view path, std::wstring_view folder);

// Joins a mount folder's path and a path relative to it, resolving "." and ".." without access to the disk and trimming the
// trailing dots and blanks of each component, as the platform would. Nothing when the path leads out of the folder: above it,
// or to a device ("NUL", "COM1.txt").
std::optional<std::wstring> PathJoinBelow(std::wstring_view folder, std::wstring_view relativePath);

// Is a component of the path the name of a device, with or without an extension?
bool NamesDevice(std::wstring_view path);
