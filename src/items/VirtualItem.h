// The base class of folders and files behind open handles, with the item's path and record. An item is used by
// one thread at a time: the volume holds CallLock() around every call. Paths are native.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <windows.h>

#include "items/ItemState.h"
#include "library/Locks.h"
#include "library/Owners.h"
#include "quelcrypt/IVirtualVolume.h"

// The access that the volume needs to a file with a document's content.
inline constexpr std::uint32_t kFullContentAccess = GENERIC_READ | GENERIC_WRITE | DELETE;
// As an offset: the handle's own position.
inline constexpr std::uint64_t kCurrentPosition = 0xFFFFFFFF;

inline bool CreatesFiles(std::uint32_t openDisposition) {
    return openDisposition == CREATE_NEW || openDisposition == CREATE_ALWAYS || openDisposition == OPEN_ALWAYS;
}

// Does an open cut an existing plain file?
inline bool Truncates(std::uint32_t openDisposition) { return openDisposition == CREATE_ALWAYS || openDisposition == TRUNCATE_EXISTING; }

class VirtualItem {
public:
    VirtualItem() = default;
    VirtualItem(const VirtualItem&) = delete;
    VirtualItem& operator=(const VirtualItem&) = delete;
    virtual ~VirtualItem() = default;

    // findData is the item's record as just listed, or null when it is missing. After a failure the item must be destroyed.
    virtual VirtualVolumeStatus Open(const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                     std::uint32_t openDisposition, const VirtFindData* findData, const wchar_t* lockToken) = 0;
    // Moves the item, or with keepSrcFile copies it. After a move the item has its new path, after a copy the old one.
    // A failure leaves the source complete and the item at its path.
    virtual VirtualVolumeStatus Move(const wchar_t* newFilePath, bool keepSrcFile, const wchar_t* newFileLockToken) = 0;
    virtual VirtualVolumeStatus Rename(const wchar_t* newFilePath, const wchar_t* newFileLockToken) = 0;
    virtual VirtualVolumeStatus Read(std::uint64_t offset, void* data, std::uint32_t dataSize, std::uint32_t* readDataSize) = 0;
    virtual VirtualVolumeStatus Write(std::uint64_t offset, const void* data, std::uint32_t dataSize, std::uint32_t* writtenSize) = 0;
    virtual VirtualVolumeStatus SetSize(std::uint64_t size) = 0;
    // Saves or deletes as needed and closes the item; only the first call has an effect. Throws nothing.
    virtual VirtualVolumeStatus Close() = 0;
    // Set and clear the mark that deletes the item at its close; setting it twice is a success.
    virtual VirtualVolumeStatus Delete() = 0;
    virtual VirtualVolumeStatus Undelete() = 0;
    virtual bool GetFileInfo(VirtFindData* virtFindData) = 0;
    // Sets the three times (0: keep) and the attributes (0xFFFFFFFF: keep).
    virtual VirtualVolumeStatus SetFileInfo(const VirtFindData* virtFindData);
    virtual VirtualVolumeStatus Flush();

    CriticalSection& CallLock() { return m_callLock; }
    bool IsClosed() const { return m_closed; }
    // The record as far as it is known, for log lines; null when it is not.
    const VirtFindData* KnownFindData() const { return m_state.findData ? &*m_state.findData : nullptr; }

    // Opens a native handle; the handle is stored only on success.
    static VirtualVolumeStatus CreateFileW(const std::wstring& file, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                           std::uint32_t creationDisposition, std::uint32_t flagsAndAttributes, UniqueHandle& hFile);
    // The same, repeated for a moment while others hold the file (Patience.h).
    static VirtualVolumeStatus CreateFileInAMoment(const std::wstring& file, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                                   std::uint32_t creationDisposition, std::uint32_t flagsAndAttributes,
                                                   UniqueHandle& hFile);
    // Before a move: can the file be deleted at its end, or does somebody hold or write it?
    static VirtualVolumeStatus CheckDeletable(const std::wstring& path);
    // Synchronous, at offset. The count (may be null) is stored on success. Reading at or past the end is a success of 0 bytes.
    static VirtualVolumeStatus ReadFile(HANDLE hFile, std::uint64_t offset, void* data, std::uint32_t dataSize, std::uint32_t* bytesRead);
    static VirtualVolumeStatus WriteFile(HANDLE hFile, std::uint64_t offset, const void* data, std::uint32_t dataSize,
                                         std::uint32_t* bytesWritten);
    // Cuts or extends; the handle's position stays.
    static VirtualVolumeStatus SetFileSize(HANDLE hFile, std::uint64_t size);
    // Gives an open file or folder another path on the same disk, over a file there. Does not change the state's path. Repeated for a
    // moment; before each try lastLook, if given, must return VVS_Success.
    static VirtualVolumeStatus RenameItem(HANDLE hFile, ItemState& state, const std::wstring& newFilePath,
                                          const std::function<VirtualVolumeStatus()>& lastLook = {});

protected:
    // The native handle for times, attributes and flushes; may be null.
    virtual HANDLE WorkingFile() const = 0;

    ItemState m_state;
    bool m_closed = false;

private:
    CriticalSection m_callLock{LockOrder::Item};
};
