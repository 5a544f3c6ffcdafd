// What a host compiles against: the volume that QuelcryptVol64.dll hands out, and the records that cross to it.
//
// A volume path is a relative Windows path whose first component names a mount folder ("Docs\Reports\a.txt"); the empty
// path is the root. Below a mount folder whose name has one unit no volume path leads, for that would be a drive's. Slots 10, 15, 16
// and 23 to 26 also take an absolute path, which is a native path and is used as it is, doubled and trailing separators aside: a
// host that serves untrusted callers checks their paths first. Every operation may be called on any thread at
// any time, also on one handle: calls on one file handle, and on one search handle, are carried out one after the other, and of
// two threads that step through one search each gets other entries. A handle that one thread ends while another uses it ends when
// that call is done; later calls find no file handle, and must not be made with a search handle. No slot throws. Besides the statuses
// named below, a slot that takes a path answers VVS_MountFolderNotFound when a volume path does not resolve, and
// VVS_InvalidParameter when a component of it names a device ("Docs\NUL.txt").
//
// Texts are UTF-16 and end with a NUL. Records belong to the caller and are only touched during the call. A null or
// empty lock token means "none".
#pragma once

#include <cstddef>
#include <cstdint>

// The result of every operation that can fail. Hosts compare the numbers.
enum VirtualVolumeStatus : std::uint32_t {
    VVS_Success = 0,
    VVS_PathNotFound = 1,
    VVS_PathAlreadyExists = 2,
    VVS_MountFolderNotFound = 3,  // the path resolves to no mount folder, or to one that is not on disk
    VVS_QuelcryptException = 4,   // an exception was caught; the trace log says where
    VVS_Locked = 5,               // held by a lock whose token was not given, by another process, or by a handle of the host's own
    VVS_LockScopeViolation = 6,   // an exclusive lock beside another lock
    VVS_LockTokenNotFound = 7,
    VVS_FileNotLocked = 8,
    VVS_Unauthorized = 9,
    VVS_BadRequest = 10,  // a lock operation on a folder
    VVS_PreConditionFailed = 11,
    VVS_FileNotFound = 12,
    VVS_AccessDenied = 13,
    VVS_InvalidParameter = 14,
    VSS_FileExists = 15,
    VSS_LockViolation = 16,
    VSS_SharingViolation = 17,
    VSS_OutMemory = 18,
    VSS_NotImplemented = 19,
    VSS_DecryptError = 20,
    VSS_EncryptError = 21,
    VVS_GeneralError = 22,
};

enum VirtualItemType : std::uint32_t {
    VIT_Root = 0,
    VIT_MountFolder = 1,
    VIT_Folder = 2,
    VIT_PlainFile = 3,
    VIT_EncryptedFile = 4,            // a container "<name>.zip", shown as "<name>"
    VIT_EncryptedFileInConflict = 5,  // shown as "<stem>.HvcConflicted", or "<stem>.zip" for want of room; opened under "<stem>.zip"
};

enum ProtectedFolderType : std::uint32_t {
    PFT_Root = 0,
    PFT_Dropbox = 1,
    PFT_General = 6,
    PFT_Invalid = 10,
};

enum LockScope : std::uint32_t { LockScope_Shared = 0, LockScope_Exclusive = 1 };
enum LockType : std::uint32_t { LockType_Write = 0 };

// openDisposition takes the Windows numbers 1 (CREATE_NEW) to 5 (TRUNCATE_EXISTING), and two of the volume's own.
enum VirtualOpenDisposition : std::uint32_t {
    OpenFileExisting = 3,
    CreateNewFolder = 10,     // create a folder; it must not exist
    OpenOrCreateFolder = 11,  // open a folder, created when it is missing
};

// One entry of the volume. Times are Windows FILETIMEs as one number: 100 ns steps since 1601, UTC; 0 is "unknown".
struct VirtFindData {
    std::uint32_t fileAttributes;  // Windows attribute bits; 0x10 tells folders from files
    std::uint64_t creationTime;
    std::uint64_t lastAccessTime;
    std::uint64_t lastWriteTime;
    std::int64_t fileSize;  // bytes; of an encrypted file, the size of its content
    VirtualItemType itemType;
    wchar_t fileName[260];  // last component as shown, with its terminator
};
static_assert(sizeof(VirtFindData) == 568 && offsetof(VirtFindData, creationTime) == 8 && offsetof(VirtFindData, lastAccessTime) == 16 &&
              offsetof(VirtFindData, lastWriteTime) == 24 && offsetof(VirtFindData, fileSize) == 32 &&
              offsetof(VirtFindData, itemType) == 40 && offsetof(VirtFindData, fileName) == 44);

struct VirtMountInfo {
    ProtectedFolderType type;
    wchar_t name[64];   // as shown at the root, with its terminator
    wchar_t path[260];  // native path of the folder, with its terminator
};
static_assert(sizeof(VirtMountInfo) == 652 && offsetof(VirtMountInfo, name) == 4 && offsetof(VirtMountInfo, path) == 132);

// One lock, as WebDAV knows it (RFC 4918, section 6). The volume keeps and returns timeout; it never acts on it.
struct LockInfo {
    std::uint32_t timeout;
    LockScope scope;
    LockType type;
    std::uint16_t reserved;  // neither read nor written by the volume
    wchar_t owner[64];
    wchar_t token[64];  // a GUID in registry form, braces included
};
static_assert(sizeof(LockInfo) == 272 && offsetof(LockInfo, scope) == 4 && offsetof(LockInfo, type) == 8 &&
              offsetof(LockInfo, owner) == 14 && offsetof(LockInfo, token) == 142);

// The volume. An object has no state of its own: all of them share the process-wide tables, so any number may exist.
// Every function is one slot of the object's table, in this order; slot numbers stand before each.
class IVirtualVolume {
public:
    // 0: destroys the object and, when bit 0 of flags is set, frees it. Open handles stay valid. Returns its address.
    virtual void* Destroy(std::uint32_t flags) = 0;
    // 1: destroys and frees the object.
    virtual void Release() = 0;

    // 2, 3: the mount folder that a volume path, or a native path, lies in. False leaves *mountInfo as it was: no mount
    // folder, or a name of 64 units or a path of 260 and more, which the record cannot hold.
    virtual bool GetMountInfoByVolumePath(const wchar_t* volumePath, VirtMountInfo* mountInfo) = 0;
    virtual bool GetMountInfoByNativePath(const wchar_t* nativePath, VirtMountInfo* mountInfo) = 0;

    // 4: starts a search over the mount folders whose names match searchSpec (null: "*"). Null when none matches. The
    // handle stands at the first match, which the first call of slot 5 returns. End it with FindClose.
    virtual void* FindFirstMountFolder(const wchar_t* searchSpec) = 0;
    // 5: stores the next match; a name of 64 to 127 units is cut to 63, and folders with longer names, or paths that the record cannot
    // hold, are left out. False leaves *mountInfo as it was: no more matches, or not a handle of slot 4.
    virtual bool FindNextMountFolder(void* hFind, VirtMountInfo* mountInfo) = 0;

    // 6: describes one entry. False when there is none. The path of a container ("a.txt.zip") finds it too; a folder with such a
    // name stands for no document.
    virtual bool FindFile(const wchar_t* filePath, VirtFindData* findData) = 0;
    // 7: starts a search and stores the first entry; filePath may end in a pattern ("Docs\*"). At the root ("", "*",
    // "Doc*", "Docs") mount folders are searched. Null when nothing matches: GetLastError is then ERROR_FILE_NOT_FOUND or
    // ERROR_NO_MORE_FILES; anything else says why the folder could not be searched. End it with FindClose.
    virtual void* FindFirstFileW(const wchar_t* filePath, VirtFindData* findData) = 0;
    // 8: stores the next entry of a search of slot 7. False when there are no more, or the folder could not be read further:
    // GetLastError tells them apart as for 7.
    virtual bool FindNextFileW(void* hVirtFind, VirtFindData* findData) = 0;
    // 9: ends a search of slot 4, 7 or 26 and frees its handle. False for null or a handle of none of them.
    virtual bool FindClose(void* hVirtFind) = 0;

    // 10: opens or creates an item; *hFile then holds its handle, to be ended with CloseFile. desiredAccess and shareMode
    // are Windows bits, openDisposition as above. When the target existed and findData is given, *findData receives its
    // record. Without a token the open runs under the lock that the target has, if any. A failure leaves *hFile null.
    // An encrypted file is decrypted at its first read, write or size change, not here. CREATE_ALWAYS, OPEN_ALWAYS and
    // TRUNCATE_EXISTING start it empty: the stored content is replaced only when something was written or the size set. It is not
    // shared by shareMode, and may be written whatever access was asked for.
    // Where a plain file is stored although its folder has a policy, CREATE_ALWAYS and OPEN_ALWAYS make a document beside it, which is then
    // shown as its conflict copy; OPEN_EXISTING opens the plain file.
    // A plain file that the platform refuses (no access, or somebody's sharing mode) is opened for reading where it exists and need not
    // be made: success does not say that it may be written, nor that TRUNCATE_EXISTING has emptied it.
    // Under a lock, with the right token too, other rights than reading, writing and deleting are VVS_Locked.
    // VVS_PathAlreadyExists: a new file's container would take the name or the place of another file.
    // VVS_InvalidParameter: a new name that could never be saved (no room for ".zip" and the names of conflict copies, or no
    // well-formed UTF-16).
    virtual VirtualVolumeStatus OpenFile(void** hFile, const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                         std::uint32_t openDisposition, const wchar_t* lockToken, VirtFindData* findData) = 0;
    // 11: closes the item. A changed encrypted file is encrypted here, on this thread; when that fails, and the file is not locked, a
    // folder for a backup is asked for, on a screen that somebody sees: not while the process's window station is invisible, as a
    // service's is or as a server may choose (SetProcessWindowStation). Failing that the edit stays in its temp file, to be tried again
    // at the next close of a handle that read or wrote it; of several such edits of one document the one that was closed last, and the
    // others stay there with their tracking files. When the container is not the one any more that this handle's user knows, or was
    // locked since the open, the edit is saved beside it under a conflict name, and a deletion leaves it; the trace says so. In this slot
    // and up to 19, findData may be null and only serves the trace log; it is never written.
    virtual void CloseFile(void* hFile, VirtFindData* findData) = 0;
    // 12, 13: mark the item for deletion at its close, and take the mark back. Until then a file can only be described, undeleted
    // and closed. A plain file must have been opened with DELETE (VVS_AccessDenied, also in slot 14), a link with
    // DELETE alone: the link itself is then deleted or moved, never what it leads to. A file that is open under a lock
    // goes with the last unlock; listings may show it until then, though it cannot be opened (VVS_FileNotFound). A folder must be
    // empty (VVS_GeneralError), and no unsaved edit may wait for a file in it (VVS_AccessDenied).
    virtual VirtualVolumeStatus Delete(void* hFile, VirtFindData* findData) = 0;
    virtual VirtualVolumeStatus Undelete(void* hFile, VirtFindData* findData) = 0;
    // 14: gives the open item another path, in place of what is there; the handle stays usable at the new path.
    // VSS_SharingViolation, also of 15 and 16: somebody else replaced the source, or what was there, meanwhile; nothing was touched. But
    // when it is only at the very end that somebody keeps the source from being deleted, the move fails with the new content in its place
    // and the source whole. A link does not take the place of what it leads to (VVS_PathAlreadyExists).
    virtual VirtualVolumeStatus RenameFile(void* hFile, VirtFindData* findData, const wchar_t* newPath,
                                           const wchar_t* newFileLockToken) = 0;
    // 15, 16: move or copy by path. A copy, as slot 14, replaces the file that is at the destination; a move does so only under the
    // destination's lock, which it takes up when no token is given (VVS_PathAlreadyExists otherwise).
    // The destination's folder decides whether it is stored encrypted; while the companion library cannot say, nothing is moved
    // there (VSS_EncryptError), also not by slot 14. A failure leaves the source whole.
    // A file that is not stored as its folder's policy says takes that form when it is moved onto its own path; a copy onto the own
    // path is VVS_PathAlreadyExists. A folder goes only where the target key and the owner are the same, and where neither has a key,
    // to another with a policy or without, as itself (VVS_GeneralError). It is not moved while something in it is open or locked, nor
    // when a mount folder lies in it (VVS_AccessDenied), and never to another's place (VVS_PathAlreadyExists). It is not copied while
    // an unsaved edit waits for a file in it (VVS_AccessDenied), nor into itself, whichever path leads there (VVS_InvalidParameter). A
    // copy goes into a folder that is there and replaces files of the same names, but none that somebody stores there while it runs
    // (VSS_SharingViolation). It may end half done; a new folder is then removed again, but for what others stored in it.
    virtual VirtualVolumeStatus MoveFileW(const wchar_t* existingFilePath, const wchar_t* newFilePath, const wchar_t* newFileLockToken) = 0;
    virtual VirtualVolumeStatus CopyFileW(const wchar_t* existingFilePath, const wchar_t* newFilePath, const wchar_t* newFileLockToken) = 0;
    // 17, 18: fileOffset in bytes; 0xFFFFFFFF means the current position. *actualSize (may be null) is zeroed first and
    // receives the bytes done. Reading at or past the end succeeds with 0 bytes.
    virtual VirtualVolumeStatus ReadFile(void* hFile, std::uint64_t fileOffset, void* data, std::uint32_t requestedSize,
                                         std::uint32_t* actualSize, VirtFindData* findData) = 0;
    virtual VirtualVolumeStatus WriteFile(void* hFile, std::uint64_t fileOffset, const void* data, std::uint32_t requestedSize,
                                          std::uint32_t* actualSize, VirtFindData* findData) = 0;
    // 19: cuts or extends the file to fileSize bytes.
    virtual VirtualVolumeStatus SetFileSize(void* hFile, std::uint64_t fileSize, VirtFindData* findData) = 0;
    // 20: writes what the platform has buffered of a file that was opened to be written. An encrypted file reaches its container at
    // CloseFile only, and before its first access there is nothing to write (VVS_GeneralError), nor of most folders.
    virtual VirtualVolumeStatus Flush(void* hFile) = 0;
    // 21: stores the item's record. False leaves it undefined.
    virtual bool GetFileInfo(void* hFile, VirtFindData* findData) = 0;
    // 22: sets attributes (0xFFFFFFFF: keep) and the record's three times (0: keep). findData must be given. An encrypted item takes
    // them, with success, for its open content: they are stored with its edit, and are lost without one, or before the first access.
    virtual VirtualVolumeStatus SetFileInfo(void* hFile, std::uint32_t fileAttributes, const VirtFindData* findData) = 0;

    // 23: takes a lock (scope, type, timeout and owner are read); lockInfo->token receives its token. A missing file is
    // created empty and goes with its last lock unless something was, or is then, written. While locked, the file is held open
    // against other writers. Open handles that write or delete a plain file or do not share that, the host's own too, and those that are
    // left of an earlier lock refuse the lock (VVS_Locked; VVS_Unauthorized when that lock's end deleted the file). An encrypted file's
    // handle that was opened before does not know the lock: its edit is saved under a conflict name. VVS_LockScopeViolation beside an
    // exclusive lock, VVS_Locked or VVS_Unauthorized when the file cannot be held, VVS_BadRequest for a folder or a link,
    // VVS_InvalidParameter for a missing file whose name could not be stored. Waits for up to two seconds for others who hold the file.
    virtual VirtualVolumeStatus Lock(const wchar_t* filePath, LockInfo* lockInfo) = 0;
    // 24: releases the lock with exactly this token. VVS_InvalidParameter without one, VVS_LockTokenNotFound for another,
    // VVS_FileNotLocked when the file has no lock.
    virtual VirtualVolumeStatus Unlock(const wchar_t* filePath, const wchar_t* lockToken) = 0;
    // 25: stores the lock with this token, or without a token the file's oldest. VVS_FileNotLocked: it has none;
    // VVS_LockTokenNotFound: not one with this token;
    // VVS_FileNotFound: there is no such file.
    virtual VirtualVolumeStatus FindLock(const wchar_t* filePath, const wchar_t* lockToken, LockInfo* lockInfo) = 0;
    // 26: starts a search over the file's locks as they are now and stores the first; null when there is none. End it
    // with FindClose.
    virtual void* FindFirstLock(const wchar_t* filePath, LockInfo* lockInfo) = 0;
    // 27: VVS_Success stores the next lock; VVS_FileNotLocked: no more, or not a handle of slot 26.
    virtual VirtualVolumeStatus FindNextLock(void* hFind, LockInfo* lockInfo) = 0;

    // 28 to 31: answered with false, 0, nothing and false.
    virtual bool ReservedQuery28() = 0;
    virtual std::uint32_t ReservedQuery29() = 0;
    virtual void ReservedNoOp30(void* first, void* second) = 0;
    virtual bool ReservedQuery31() = 0;
    // 32: stores 0xFFFFFFFFFF in each output that is given, and returns it; no disk is measured.
    virtual std::uint64_t GetSpace(std::uint64_t* totalBytes, std::uint64_t* freeBytes) = 0;

protected:
    ~IVirtualVolume() = default;  // not virtual: compilers disagree on the slots of a virtual destructor
};

// The module imports QuelcryptLib64.dll, which gets passwords and content. A host that loads it at run time names its full path and
// LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32 (LoadLibraryEx), so that only the library beside it is taken.
extern "C" {
// Makes a volume object; the caller releases it through slot 1. Null when memory is short.
IVirtualVolume* Quelcrypt_VolumeFactory();
// Both do nothing; kept for hosts that call them.
void EnableAsserts(void* first, void* second);
void DisableAsserts(void* first, void* second);
}
