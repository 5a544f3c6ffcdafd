// Versions of a stored file: what tells whether the content at a path is still the one that somebody saw there. No state but
// the count of saves, which one lock guards; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <windows.h>

// A file as a directory lists it: attribute bits, last-write time (FILETIME) and size in bytes.
struct FileStamp {
    std::uint32_t attributes = 0;
    std::int64_t writeTime = 0;
    std::int64_t size = 0;
    bool operator==(const FileStamp&) const = default;
};
// Nothing when the file cannot be looked at; the last error says why.
std::optional<FileStamp> ReadFileStamp(const std::wstring& path);
std::optional<FileStamp> ReadOpenFileStamp(HANDLE hFile);

// One version of a file. Two of them may have one write time and size, within a tick of the file system's clock, so what
// cannot collide is compared too, as far as it is known: the file's identity, its change time (FILETIME), and how many times
// this process had saved to the path.
struct FileVersion {
    FileStamp stamp;
    std::uint64_t volumeSerial = 0;
    std::uint64_t fileId[2] = {};  // both 0, or all ones: not known ("FILE_ID_INFO")
    std::int64_t changeTime = 0;   // 0: not known
    std::uint64_t saves = 0;

    bool HasKnownId() const;
};
// Of the attribute bits only those that people set make another version: read-only, hidden, system. A change time that another bit
// explains makes none.
bool operator==(const FileVersion& left, const FileVersion& right);

// Nothing when there is no file, or it cannot be looked at; the last error says why.
std::optional<FileVersion> ReadFileVersion(const std::wstring& path);
// The same of a file at path that is open.
std::optional<FileVersion> ReadOpenFileVersion(HANDLE hFile, const std::wstring& path);

// Whether two versions are of one file, which may have several names. Nothing when its file system gives files no identity.
std::optional<bool> AreOneFile(const FileVersion& left, const FileVersion& right);
// Is the open file, which may have been renamed away since, still the one at path? Where files have no identity, any file there is.
bool IsOpenFileAt(HANDLE hFile, const std::wstring& path);

// The same version after a folder above its file was moved.
FileVersion AtOtherPath(FileVersion version, const std::wstring& path);
// Is what arrived at another path the version that was renamed? The rename itself changes the change time.
bool IsMovedVersion(const FileVersion& renamed, const FileVersion& arrived);

// May a saver who knew this version (or nothing) replace what is stored at path now? What is gone, or was never written, as
// the empty file that a lock makes, is no obstacle.
bool IsStillVersion(const std::optional<FileVersion>& known, const std::optional<FileVersion>& now);

// Counts a save to a path. Made before the new content is put in place, so that nobody takes it for the old one; a save that was
// not done, and so is not kept, takes its count back.
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
