// What a host compiles against: the volume that QuelcryptVol64.dll hands out, and the records that cross to it.
//
// A volume path is a relative Windows path whose first component names a mount folder ("Docs\Reports\a.txt"); the empty
// path is the root. A mount folder whose name has one unit cannot be reached by a path, which would look like a drive's. Slots 10, 15, 16
// and 23 to 26 also take an absolute path, which is a native path and is used unchanged except for doubled and trailing separators: a
// host that serves untrusted callers must check their paths first.
//
// Every operation may be called on any thread at any time, also on one handle: calls on one file handle, and on one search handle, are
// made one after the other, and two threads that step through one search never get the same entry. When one thread ends a handle that
// another is using, it ends after that call. A later call with an ended file handle is refused; a search handle must not be used again.
// No slot throws. Besides the statuses named below, a slot that takes a path answers VVS_MountFolderNotFound when a volume path does not
// resolve, and VVS_InvalidParameter when a component of it names a device ("Docs\NUL.txt").
//
// Texts are UTF-16 and end with a NUL. Records belong to the caller and are only accessed during the call. A null or
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

// The volume. Slots, their order, and the layout of records are stable, and so is the form of the trace. An object has no state of its own:
// all of them share the process-wide tables, so any number may exist. Every function is one slot of the object's table, in this order; slot
// numbers stand before each.
class IVirtualVolume {
public:
    // 0: destroys the object and, when bit 0 of flags is set, frees it. Open handles stay valid. Returns its address.
    virtual void* Destroy(std::uint32_t flags) = 0;
    // 1: destroys and frees the object.
    virtual void Release() = 0;

    // 2, 3: the mount folder that a volume path, or a native path, lies in. False leaves *mountInfo as it was: there is none, or the
    // record has no room for it (a name of 64 or a path of 260 units and more).
    virtual bool GetMountInfoByVolumePath(const wchar_t* volumePath, VirtMountInfo* mountInfo) = 0;
    virtual bool GetMountInfoByNativePath(const wchar_t* nativePath, VirtMountInfo* mountInfo) = 0;

    // 4: starts a search over the mount folders whose names match searchSpec (null: "*"). Null when none matches. The
    // first call of slot 5 returns the first match. End it with FindClose.
    virtual void* FindFirstMountFolder(const wchar_t* searchSpec) = 0;
    // 5: stores the next match; a name of 64 to 127 units is cut to 63, and folders with longer names, or with paths of 260 units and
    // more, are left out. False leaves *mountInfo as it was: no more matches, or not a handle of slot 4.
    virtual bool FindNextMountFolder(void* hFind, VirtMountInfo* mountInfo) = 0;

    // 6: describes one entry. False when there is none. The path of a container ("a.txt.zip") also finds its document; a folder with
    // such a name is only a folder. While an edit that could not be saved waits (slot 11), this and slots 7, 8, 10 and 21 give the edit's
    // size and write time, because the edit is what an open shows.
    virtual bool FindFile(const wchar_t* filePath, VirtFindData* findData) = 0;
    // 7: starts a search and stores the first entry; filePath may end in a pattern ("Docs\*"). At the root ("", "*",
    // "Doc*", "Docs") mount folders are searched. Null when nothing matches: GetLastError is then ERROR_FILE_NOT_FOUND or
    // ERROR_NO_MORE_FILES; anything else says why the folder could not be searched. End it with FindClose.
    virtual void* FindFirstFileW(const wchar_t* filePath, VirtFindData* findData) = 0;
    // 8: stores the next entry of a search of slot 7. False when there are no more, or the folder could not be read further:
    // GetLastError says which, as for 7.
    virtual bool FindNextFileW(void* hVirtFind, VirtFindData* findData) = 0;
    // 9: ends a search of slot 4, 7 or 26 and frees its handle. False for null or any other handle.
    virtual bool FindClose(void* hVirtFind) = 0;

    // 10: opens or creates an item; *hFile then holds its handle, to be ended with CloseFile. desiredAccess and shareMode
    // are Windows bits, openDisposition as above. When the target existed and findData is given, *findData receives its
    // record. Without a token the open runs under the lock that the target has, if any. A failure leaves *hFile null.
    // An encrypted file is decrypted at its first read, write or size change, not here. CREATE_ALWAYS, OPEN_ALWAYS and
    // TRUNCATE_EXISTING start it empty: the stored content is replaced only when something was written or the size set. For an encrypted
    // file shareMode is ignored, and every handle may write, whatever desiredAccess was.
    // Where a plain file is stored although its folder has a policy, CREATE_ALWAYS and OPEN_ALWAYS make a document beside it, which is then
    // shown as its conflict copy; OPEN_EXISTING opens the plain file.
    // When the platform refuses an existing plain file (no access, or somebody's sharing mode), it is opened for reading instead:
    // success does not mean that it may be written, nor that TRUNCATE_EXISTING has emptied it.
    // Under a lock, even with the right token, rights other than reading, writing and deleting are VVS_Locked.
    // VVS_PathAlreadyExists: a new file's container would take the name or the path of another file.
    // VVS_InvalidParameter: a new name that could never be saved (no room for ".zip" and the names of conflicted edits, or not
    // well-formed UTF-16).
    virtual VirtualVolumeStatus OpenFile(void** hFile, const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                         std::uint32_t openDisposition, const wchar_t* lockToken, VirtFindData* findData) = 0;
    // 11: closes the item. A changed encrypted file is encrypted here, on this thread. When that fails, and the file is not locked, the
    // user is asked for a folder for a backup, except while the process's window station is invisible, as a service's is or as a server
    // may choose (SetProcessWindowStation). Without a backup the edit stays in its temp file, and the next close of a handle that read or
    // wrote the file tries again. If several edits of one document wait, the close saves only the one closed last; the others keep their
    // temp and tracking files. When somebody else replaced the container since this handle's user saw it, or locked it since the open, the
    // edit is saved beside it under a conflict name, and a deletion deletes nothing; the trace says so. In slots 11 to 19, findData may be
    // null and is only read for the trace log; it is never written.
    virtual void CloseFile(void* hFile, VirtFindData* findData) = 0;
    // 12, 13: mark the item for deletion at its close, and take the mark back. A marked file can only be described, undeleted
    // and closed. A plain file must have been opened with DELETE (VVS_AccessDenied, also in slot 14), a link with
    // DELETE only: the link itself is then deleted or moved, never what it leads to. A file that is open under a lock
    // is deleted at the last unlock; listings may show it until then, though it cannot be opened (VVS_FileNotFound). A folder must be
    // empty (VVS_GeneralError), and no unsaved edit may wait for a file in it (VVS_AccessDenied).
    virtual VirtualVolumeStatus Delete(void* hFile, VirtFindData* findData) = 0;
    virtual VirtualVolumeStatus Undelete(void* hFile, VirtFindData* findData) = 0;
    // 14: moves the open item to another path and replaces what is there; the handle stays usable at the new path.
    // VSS_SharingViolation, also of 15 and 16: somebody else replaced the source or the destination meanwhile; nothing was changed.
    // But if somebody prevents only the last step, deleting the source, the move fails after the new content was put in place, and the
    // source stays complete. A link never replaces its target (VVS_PathAlreadyExists).
    virtual VirtualVolumeStatus RenameFile(void* hFile, VirtFindData* findData, const wchar_t* newPath,
                                           const wchar_t* newFileLockToken) = 0;
    // 15, 16: move or copy by path. A copy, like slot 14, replaces a file at the destination; a move does so only when the destination
    // is locked, and without a token uses that lock (VVS_PathAlreadyExists otherwise).
    // The destination's folder decides whether it is stored encrypted; while the companion library cannot say, nothing is moved or
    // copied there (VSS_EncryptError), also not by slot 14. A failure leaves the source whole.
    // A file that is not stored as its folder's policy says takes that form when it is moved onto its own path; a copy onto its own
    // path is VVS_PathAlreadyExists. A folder can be moved or copied only to a folder of the same target key and owner; where neither has a
    // key, both must have a policy or neither (VVS_GeneralError). It cannot be moved while something in it is open or locked, nor
    // when a mount folder lies in it (VVS_AccessDenied), and never replaces anything (VVS_PathAlreadyExists). It cannot be copied
    // while an unsaved edit waits for a file in it (VVS_AccessDenied), nor into itself, whichever path leads there (VVS_InvalidParameter).
    // A copy of a folder adds to a folder that exists and replaces files of the same names, but not what somebody stores there meanwhile
    // (VSS_SharingViolation). It may end half done; a folder that it created is then deleted again, except what others stored in it.
    virtual VirtualVolumeStatus MoveFileW(const wchar_t* existingFilePath, const wchar_t* newFilePath, const wchar_t* newFileLockToken) = 0;
    virtual VirtualVolumeStatus CopyFileW(const wchar_t* existingFilePath, const wchar_t* newFilePath, const wchar_t* newFileLockToken) = 0;
    // 17, 18: fileOffset in bytes; 0xFFFFFFFF means the current position. *actualSize (may be null) is zeroed first and
    // receives the bytes done. Reading at or past the end succeeds with 0 bytes. Of 17 to 19: the first access decrypts an encrypted file
    // (VSS_DecryptError, VVS_FileNotFound); VSS_NotImplemented for a folder, VVS_InvalidParameter for what is no handle, VVS_AccessDenied
    // for a plain file that was opened without the right, VVS_GeneralError for an item that is marked for deletion.
    virtual VirtualVolumeStatus ReadFile(void* hFile, std::uint64_t fileOffset, void* data, std::uint32_t requestedSize,
                                         std::uint32_t* actualSize, VirtFindData* findData) = 0;
    virtual VirtualVolumeStatus WriteFile(void* hFile, std::uint64_t fileOffset, const void* data, std::uint32_t requestedSize,
                                          std::uint32_t* actualSize, VirtFindData* findData) = 0;
    // 19: cuts or extends the file to fileSize bytes.
    virtual VirtualVolumeStatus SetFileSize(void* hFile, std::uint64_t fileSize, VirtFindData* findData) = 0;
    // 20: writes what the platform has buffered of a file that was opened to be written. An encrypted file reaches its container only
    // at CloseFile. VVS_GeneralError: an encrypted file before its first access, and most folders.
    virtual VirtualVolumeStatus Flush(void* hFile) = 0;
    // 21: stores the item's record. False leaves it undefined.
    virtual bool GetFileInfo(void* hFile, VirtFindData* findData) = 0;
    // 22: sets attributes (0xFFFFFFFF: keep) and the record's three times (0: keep). findData must be given. For an encrypted item this
    // succeeds, but they are stored only together with an edit, and only when they were set after the first access.
    virtual VirtualVolumeStatus SetFileInfo(void* hFile, std::uint32_t fileAttributes, const VirtFindData* findData) = 0;

    // 23: takes a lock (scope, type, timeout and owner are read); lockInfo->token receives its token. A missing file is created empty,
    // and deleted at its last unlock unless something was written, or still is by an open handle. While locked, the file is held open
    // against other writers. VVS_Locked while any handle, also of this host, may write or delete the plain file, denies others that, or was
    // opened under an earlier lock (VVS_Unauthorized when that lock's end deleted the file). A handle of an
    // encrypted file that was opened before the lock saves its edit under a conflict name. VVS_LockScopeViolation beside an
    // exclusive lock, VVS_Locked or VVS_Unauthorized when the file cannot be held, VVS_BadRequest for a folder or a link,
    // VVS_InvalidParameter for a missing file whose name could not be stored. Waits for up to two seconds for others who hold the file.
    virtual VirtualVolumeStatus Lock(const wchar_t* filePath, LockInfo* lockInfo) = 0;
    // 24: releases the lock with exactly this token. VVS_InvalidParameter without a token, VVS_LockTokenNotFound for a wrong one,
    // VVS_FileNotLocked when the file has no lock.
    virtual VirtualVolumeStatus Unlock(const wchar_t* filePath, const wchar_t* lockToken) = 0;
    // 25: stores the lock with this token, or without a token the file's oldest. VVS_FileNotLocked: the file has no lock;
    // VVS_LockTokenNotFound: none with this token; VVS_FileNotFound: there is no such file.
    virtual VirtualVolumeStatus FindLock(const wchar_t* filePath, const wchar_t* lockToken, LockInfo* lockInfo) = 0;
    // 26: starts a search over the locks that the file has now and stores the first; null when there is none. End it
    // with FindClose.
    virtual void* FindFirstLock(const wchar_t* filePath, LockInfo* lockInfo) = 0;
    // 27: VVS_Success stores the next lock; VVS_FileNotLocked: no more, or not a handle of slot 26.
    virtual VirtualVolumeStatus FindNextLock(void* hFind, LockInfo* lockInfo) = 0;

    // 28 to 31: not used; they return false, 0, nothing and false.
    virtual bool ReservedQuery28() = 0;
    virtual std::uint32_t ReservedQuery29() = 0;
    virtual void ReservedNoOp30(void* first, void* second) = 0;
    virtual bool ReservedQuery31() = 0;
    // 32: stores 0xFFFFFFFFFF in each output that is given, and returns it, whatever room the disk has.
    virtual std::uint64_t GetSpace(std::uint64_t* totalBytes, std::uint64_t* freeBytes) = 0;

protected:
    ~IVirtualVolume() = default;  // not virtual: compilers disagree on the slots of a virtual destructor
};

// The module imports QuelcryptLib64.dll, which receives passwords and content. A host that loads the module at run time must load only the
// companion library beside it: LoadLibraryEx with the full path and LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32.
extern "C" {
// Makes a volume object; the caller releases it through slot 1. Null when there is not enough memory.
IVirtualVolume* Quelcrypt_VolumeFactory();
// Both do nothing; kept for hosts that call them.
void EnableAsserts(void* first, void* second);
void DisableAsserts(void* first, void* second);
}
