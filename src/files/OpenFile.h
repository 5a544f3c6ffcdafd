// What is done to an open file through its handle. Any thread may call.
#pragma once

#include <cstdint>

#include <windows.h>

#include "library/Win32Error.h"

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
