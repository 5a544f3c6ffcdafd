// The content of an open file: the file itself if it is stored plain (PlainContent), a decrypted copy of
// its container if it is stored encrypted (EncryptedContent). Belongs to one item and, like it, is used by one thread at a time. The
// item has what does not depend on where the content is: deletion mark and position.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <windows.h>

#include "items/ItemState.h"
#include "library/FileVersion.h"
#include "quelcrypt/IVirtualVolume.h"

class FileContent {
public:
    explicit FileContent(ItemState& state) : m_state(state) {}
    virtual ~FileContent() = default;
    FileContent(const FileContent&) = delete;
    FileContent& operator=(const FileContent&) = delete;

    virtual bool IsEncrypted() const = 0;
    // Where the file is on disk: the item's path, or its container's.
    virtual std::wstring StoredPath() const = 0;
    // The file that is read and written; empty until it is open.
    virtual std::wstring WorkingPath() const = 0;
    virtual HANDLE WorkingFile() const = 0;
    // The item in a log line.
    virtual std::wstring DescriptionStr() const = 0;

    // Is there a working file?
    virtual bool IsOpen() const = 0;
    // To be called before the content is read, written or cut. A failure changes nothing.
    virtual VirtualVolumeStatus Prepare() { return VVS_Success; }
    // At offset; kCurrentPosition means position. On success the count is stored, and position is where the bytes end.
    VirtualVolumeStatus Read(std::uint64_t offset, void* data, std::uint32_t dataSize, std::uint32_t* count, std::uint64_t& position);
    VirtualVolumeStatus Write(std::uint64_t offset, const void* data, std::uint32_t dataSize, std::uint32_t* count,
                              std::uint64_t& position);
    virtual VirtualVolumeStatus SetSize(std::uint64_t size) = 0;

    // Marks the file for deletion at the close, or takes the mark back. On failure it is as it was.
    virtual VirtualVolumeStatus MarkForDeletion(bool deleteFile) = 0;
    // Saves the content, deletes the file, or keeps it as it is, and closes it. A file that was replaced since it was marked for deletion
    // stays (VSS_SharingViolation). May throw, before anything is lost.
    virtual VirtualVolumeStatus Close(bool isDeleted) = 0;

    virtual bool GetFileInfo(VirtFindData* virtFindData) = 0;
    // Attributes and times were set explicitly on the working file. The platform may not update the write time after that
    // (FILE_BASIC_INFO), so later writes set it themselves.
    virtual void InfoWasSet(bool withWriteTime) = 0;

protected:
    virtual VirtualVolumeStatus DoRead(std::uint64_t place, void* data, std::uint32_t dataSize, std::uint32_t* count) = 0;
    virtual VirtualVolumeStatus DoWrite(std::uint64_t place, const void* data, std::uint32_t dataSize, std::uint32_t* count) = 0;
    // Reads at any offset of a handle's file.
    static VirtualVolumeStatus ReadFileAt(HANDLE hFile, std::uint64_t place, void* data, std::uint32_t dataSize, std::uint32_t* count);
    static VirtualVolumeStatus WriteFileAt(HANDLE hFile, std::uint64_t place, const void* data, std::uint32_t dataSize,
                                           std::uint32_t* count);

    static void SetWriteTimeToNow(HANDLE hFile);

    ItemState& m_state;
};
