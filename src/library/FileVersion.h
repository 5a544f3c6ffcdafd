// Versions of a stored file, to find out whether the content at a path is still the one that somebody saw there. The only
// state is the count of saves, which one lock guards; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <windows.h>

#include "common/FileStamp.h"

// Nothing when the file cannot be read; the last error says why.
std::optional<FileStamp> ReadFileStamp(const std::wstring& path);
std::optional<FileStamp> ReadOpenFileStamp(HANDLE hFile);

// One version of a file. Two versions may have the same size, and the same write time within a tick of the file system's clock, so more
// is compared as far as it is known: the file's identity, its change time (FILETIME), and how many times
// this process had saved to the path.
struct FileVersion {
    FileStamp stamp;
    std::uint64_t volumeSerial = 0;
    std::uint64_t fileId[2] = {};  // both 0, or all ones: not known ("FILE_ID_INFO")
    std::int64_t changeTime = 0;   // 0: not known
    std::uint64_t saves = 0;

    bool HasKnownId() const;
};
// Of the attribute bits only those that people set distinguish versions: read-only, hidden, system. A different change time does not
// count when another attribute bit differs, because setting that changed it.
bool operator==(const FileVersion& left, const FileVersion& right);

// Nothing when there is no file, or it cannot be read; the last error says why.
std::optional<FileVersion> ReadFileVersion(const std::wstring& path);
// The same of a file at path that is open.
std::optional<FileVersion> ReadOpenFileVersion(HANDLE hFile, const std::wstring& path);

// Whether two versions are of one file, which may have several names. Nothing when its file system gives files no identity.
std::optional<bool> AreOneFile(const FileVersion& left, const FileVersion& right);
// Is the open file still the one at path, and neither renamed nor replaced? Where files have no identity, any file at path counts.
bool IsOpenFileAt(HANDLE hFile, const std::wstring& path);

// The same version after a folder above its file was moved.
FileVersion AtOtherPath(FileVersion version, const std::wstring& path);
// Is the file at the new path the version that was renamed? The rename itself changes the change time.
bool IsMovedVersion(const FileVersion& renamed, const FileVersion& arrived);

// May somebody who knew this version (or none) replace what is stored at path now? A missing file, or an empty one, as a lock creates
// it, may always be replaced, a folder never.
bool IsStillVersion(const std::optional<FileVersion>& known, const std::optional<FileVersion>& now);

// Counts a save to a path, before the new content is put in place, so that it is never mistaken for the old one. A count that
// is not kept, because the save failed, is taken back.
class SaveCount {
public:
    explicit SaveCount(const std::wstring& path);
    ~SaveCount();
    SaveCount(const SaveCount&) = delete;
    SaveCount& operator=(const SaveCount&) = delete;
    void Keep() { m_isKept = true; }

private:
    const std::size_t m_pathHash;
    bool m_isKept = false;
};
