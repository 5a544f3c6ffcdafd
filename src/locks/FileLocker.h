// The locks that hosts hold on real files. While a path has a lock, the table keeps the file open, so no other program
// can write it. One process-wide critical section guards the table; no callback is made while it is held. A locked file's
// content has a section of its own (LockedContent). Paths that
// differ in letter case only are one path. Locks are only in memory: unloading the module ends them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <windows.h>

#include "library/Locks.h"
#include "library/Owners.h"
#include "quelcrypt/IVirtualVolume.h"

// The first 32 bits of a lock-search handle: "FFLM" in memory.
inline constexpr std::uint32_t kLockSearchMagic = 0x4D4C4646;

// What all openers of a locked file share: their handles are duplicates of one, with one position. Whoever changes the file's
// size, position or deletion mark, or copies its whole content, holds the section.
struct LockedContent {
    CriticalSection section{LockOrder::LockedContent};
    // Deleted or moved away under the lock: for openers the file is missing, although the lock still holds it. An open that creates
    // takes the mark back and starts empty.
    bool isDeleted GUARDED_BY(section) = false;
    // Written or cut through the lock, even to no content.
    bool isWritten GUARDED_BY(section) = false;
    // The lock that created the file is released: the file is deleted with its last handle, unless it is written before.
    bool isDeletedUnlessWritten GUARDED_BY(section) = false;
    // A write time was set explicitly, after which the platform does not update it through the handle.
    bool isTimeSet GUARDED_BY(section) = false;
};

// What the opener of a locked file receives.
struct LockedFile {
    // It has a handle. False: the file is not locked, or the opener does not need the lock's handle, and opens the file itself.
    bool locked = false;
    UniqueHandle hFile;
    std::shared_ptr<LockedContent> content;
};

class FileLocker {
public:
    // Takes a lock on filePath, creating the file when it is missing. On success lockInfo->token holds the new token.
    // encryptedInfo, null for a plain file, is what listings show while the file is locked.
    // VVS_LockScopeViolation: there is a lock, and it or the new one is exclusive. VVS_Locked, VVS_Unauthorized: somebody
    // else holds the file. The table is then as it was.
    static VirtualVolumeStatus Lock(const wchar_t* filePath, const VirtFindData* encryptedInfo, LockInfo* lockInfo);

    // Releases the lock with exactly this token. With the last one the file is closed. An empty file that the
    // lock had created and nobody wrote is then deleted, or with its last open handle, unless one writes first.
    // VVS_FileNotLocked, VVS_LockTokenNotFound.
    static VirtualVolumeStatus Unlock(const wchar_t* filePath, const wchar_t* lockToken);

    // Stores the lock with this token, or the oldest when none is given.
    static VirtualVolumeStatus FindLock(const wchar_t* filePath, const wchar_t* lockToken, LockInfo* lockInfo);

    // Stores the oldest lock, and a handle for the others that there are now, which the caller ends with FindClose.
    // VVS_FileNotLocked leaves *hFind null.
    static VirtualVolumeStatus FindFirstLock(const wchar_t* filePath, void** hFind, LockInfo* lockInfo);
    // False: no more, or not a lock-search handle. One thread at a time per handle.
    static bool FindNextLock(void* hFind, LockInfo* lockInfo);
    static bool FindClose(void* hFind);

    // Is the file of this path locked? IsLockedByAnother: by locks of which none has this token; false without a token.
    static bool IsLocked(const std::wstring& filePath);
    static bool IsLockedByAnother(const std::wstring& filePath, const wchar_t* lockToken);
    // Is any file below this folder locked?
    static bool HoldsLockBelow(const std::wstring& folderPath);

    // The record of the file inside a locked container. Both outputs may be null; without a lock neither is written.
    static void GetEncryptedInfo(const wchar_t* filePath, bool* hasInfo, VirtFindData* findData);
    // Replaces that record; does nothing without a lock.
    static void SetEncryptedInfo(const wchar_t* filePath, const VirtFindData& findData);

    // Gives the opener of a locked file its own handle of the lock's file. desiredAccess is what the host asked for, and what the
    // token is needed for: without a token GENERIC_WRITE is refused, and for anything else the opener gets no handle and opens the file
    // itself. extraAccess is granted as well. VVS_Locked: no token or a wrong one.
    static VirtualVolumeStatus GetLockedFile(const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t extraAccess,
                                             const wchar_t* lockToken, LockedFile* lockedFile);
};
