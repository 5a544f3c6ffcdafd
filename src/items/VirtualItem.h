// The base of what stands behind an open handle: a folder or a file. It knows the item's path and record. An item is used by
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

// What the volume asks for when it works on a file's content itself.
inline constexpr std::uint32_t kFullContentAccess = GENERIC_READ | GENERIC_WRITE | DELETE;
// As an offset: the handle's own position.
inline constexpr std::uint64_t kCurrentPosition = 0xFFFFFFFF;

inline bool CreatesFiles(std::uint32_t openDisposition) {
    return openDisposition == CREATE_NEW || openDisposition == CREATE_ALWAYS || openDisposition == OPEN_ALWAYS;
}

// Does an open cut a plain file that is there?
inline bool Truncates(std::uint32_t openDisposition) { return openDisposition == CREATE_ALWAYS || openDisposition == TRUNCATE_EXISTING; }

class VirtualItem {
public:
    VirtualItem() = default;
    VirtualItem(const VirtualItem&) = delete;
    VirtualItem& operator=(const VirtualItem&) = delete;
    virtual ~VirtualItem() = default;

    // findData is the item's record as just listed, or null when it is missing. On failure the item is only to be destroyed.
    virtual VirtualVolumeStatus Open(const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                     std::uint32_t openDisposition, const VirtFindData* findData, const wchar_t* lockToken) = 0;
    // Moves the item, or with keepSrcFile copies it. After a move the item stands at its new path, after a copy at the old.
    // A failure leaves the source whole and the item where it was.
    virtual VirtualVolumeStatus Move(const wchar_t* newFilePath, bool keepSrcFile, const wchar_t* newFileLockToken) = 0;
    virtual VirtualVolumeStatus Rename(const wchar_t* newFilePath, const wchar_t* newFileLockToken) = 0;
    virtual VirtualVolumeStatus Read(std::uint64_t offset, void* data, std::uint32_t dataSize, std::uint32_t* readDataSize) = 0;
    virtual VirtualVolumeStatus Write(std::uint64_t offset, const void* data, std::uint32_t dataSize, std::uint32_t* writtenSize) = 0;
    virtual VirtualVolumeStatus SetSize(std::uint64_t size) = 0;
    // Does everything that is left to do, once; every call of the volume ends here. Throws nothing.
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

    // Opens a native handle, and hands it out only on success.
    static VirtualVolumeStatus CreateFileW(const std::wstring& file, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                           std::uint32_t creationDisposition, std::uint32_t flagsAndAttributes, UniqueHandle& hFile);
    // The same, tried again for a moment while others hold the file (Patience.h).
    static VirtualVolumeStatus CreateFileInAMoment(const std::wstring& file, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                                   std::uint32_t creationDisposition, std::uint32_t flagsAndAttributes,
                                                   UniqueHandle& hFile);
    // What a move deletes at its end must not turn out to be held then, or to be written.
    static VirtualVolumeStatus CheckDeletable(const std::wstring& path);
    // Synchronous, at offset. The count (may be null) is stored on success. Reading at or past the end is a success of 0 bytes.
    static VirtualVolumeStatus ReadFile(HANDLE hFile, std::uint64_t offset, void* data, std::uint32_t dataSize, std::uint32_t* bytesRead);
    static VirtualVolumeStatus WriteFile(HANDLE hFile, std::uint64_t offset, const void* data, std::uint32_t dataSize,
                                         std::uint32_t* bytesWritten);
    // Cuts or extends; the handle's position stays.
    static VirtualVolumeStatus SetFileSize(HANDLE hFile, std::uint64_t size);
    // Gives an open file or folder another path on the same disk, in place of a file there. The state's path stays. Tried again for a
    // moment; lastLook, if given, has the last word before each try.
    static VirtualVolumeStatus RenameItem(HANDLE hFile, ItemState& state, const std::wstring& newFilePath,
                                          const std::function<VirtualVolumeStatus()>& lastLook = {});

protected:
    // The native handle that times, attributes and flushes go to; may be null.
    virtual HANDLE WorkingFile() const = 0;

    ItemState m_state;
    bool m_closed = false;

private:
    CriticalSection m_callLock{LockOrder::Item};
};
