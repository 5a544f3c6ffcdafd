// The object behind IVirtualVolume. It has no data: the mount folders, the cache, the locks, the retained copies and the
// open items are process-wide, each guarded by a lock of its own. IVirtualVolume.h says what each slot promises; here
// every slot catches everything, resolves paths and dispatches.
#pragma once

#include <optional>
#include <string>

#include "diagnostics/Trace.h"
#include "namespace/VirtualMountFolder.h"
#include "quelcrypt/IVirtualVolume.h"

#undef QC_TRACE_FILE
#define QC_TRACE_FILE L"VirtualVolumeImpl.cpp"

class VirtualVolume final : public IVirtualVolume {
public:
    VirtualVolume() = default;
    VirtualVolume(const VirtualVolume&) = delete;
    VirtualVolume& operator=(const VirtualVolume&) = delete;

    // VirtualVolume.cpp
    void* Destroy(std::uint32_t flags) override;
    void Release() override;
    bool GetMountInfoByVolumePath(const wchar_t* volumePath, VirtMountInfo* mountInfo) override;
    bool GetMountInfoByNativePath(const wchar_t* nativePath, VirtMountInfo* mountInfo) override;
    bool ReservedQuery28() override { return false; }
    std::uint32_t ReservedQuery29() override { return 0; }
    void ReservedNoOp30(void*, void*) override {}
    bool ReservedQuery31() override { return false; }
    std::uint64_t GetSpace(std::uint64_t* totalBytes, std::uint64_t* freeBytes) override;

    // VolumeEnumeration.cpp
    void* FindFirstMountFolder(const wchar_t* searchSpec) override;
    bool FindNextMountFolder(void* hFind, VirtMountInfo* mountInfo) override;
    bool FindFile(const wchar_t* filePath, VirtFindData* findData) override;
    void* FindFirstFileW(const wchar_t* filePath, VirtFindData* findData) override;
    bool FindNextFileW(void* hVirtFind, VirtFindData* findData) override;
    bool FindClose(void* hVirtFind) override;

    // VolumeFileOperations.cpp
    VirtualVolumeStatus OpenFile(void** hFile, const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                 std::uint32_t openDisposition, const wchar_t* lockToken, VirtFindData* findData) override;
    void CloseFile(void* hFile, VirtFindData* findData) override;
    VirtualVolumeStatus Delete(void* hFile, VirtFindData* findData) override;
    VirtualVolumeStatus Undelete(void* hFile, VirtFindData* findData) override;
    VirtualVolumeStatus RenameFile(void* hFile, VirtFindData* findData, const wchar_t* newPath, const wchar_t* newFileLockToken) override;
    VirtualVolumeStatus MoveFileW(const wchar_t* existingFilePath, const wchar_t* newFilePath, const wchar_t* newFileLockToken) override;
    VirtualVolumeStatus CopyFileW(const wchar_t* existingFilePath, const wchar_t* newFilePath, const wchar_t* newFileLockToken) override;
    VirtualVolumeStatus ReadFile(void* hFile, std::uint64_t fileOffset, void* data, std::uint32_t requestedSize, std::uint32_t* actualSize,
                                 VirtFindData* findData) override;
    VirtualVolumeStatus WriteFile(void* hFile, std::uint64_t fileOffset, const void* data, std::uint32_t requestedSize,
                                  std::uint32_t* actualSize, VirtFindData* findData) override;
    VirtualVolumeStatus SetFileSize(void* hFile, std::uint64_t fileSize, VirtFindData* findData) override;
    VirtualVolumeStatus Flush(void* hFile) override;
    bool GetFileInfo(void* hFile, VirtFindData* findData) override;
    VirtualVolumeStatus SetFileInfo(void* hFile, std::uint32_t fileAttributes, const VirtFindData* findData) override;

    // VolumeLocks.cpp
    VirtualVolumeStatus Lock(const wchar_t* filePath, LockInfo* lockInfo) override;
    VirtualVolumeStatus Unlock(const wchar_t* filePath, const wchar_t* lockToken) override;
    VirtualVolumeStatus FindLock(const wchar_t* filePath, const wchar_t* lockToken, LockInfo* lockInfo) override;
    void* FindFirstLock(const wchar_t* filePath, LockInfo* lockInfo) override;
    VirtualVolumeStatus FindNextLock(void* hFind, LockInfo* lockInfo) override;

private:
    // The native path of a volume path; an absolute path is used unchanged. False: it names no mount folder, or one that is
    // missing on disk, leads out of its mount folder, or names a device.
    static bool GetFullFilePath(const wchar_t* filePath, std::wstring& fullFilePath);
    // The status for a path that did not resolve.
    static VirtualVolumeStatus StatusOfUnresolved(const wchar_t* filePath);
    // The native path of a path relative to a mount folder; nothing in the same cases.
    static std::optional<std::wstring> PathIn(const MountFolderInfo& mountFolderInfo, const std::wstring& relativePath);
    static bool ConvertMountFolderInfoToVirtMountInfo(const MountFolderInfo& mountFolderInfo, VirtMountInfo* virtMountInfo);
    // The record of the root: the earliest creation and the latest other times of all mount folders.
    static void FindRoot(VirtFindData* virtFindData);
    // The token given, otherwise that of a lock on the file or its container; empty when there is none.
    static std::wstring LockTokenAlwaysStr(const std::wstring& fullFilePath, const wchar_t* lockToken);
    VirtualVolumeStatus MoveOrCopyFile(const wchar_t* existingFilePath, const wchar_t* newFilePath, bool keepExistingFile,
                                       const wchar_t* newFileLockToken);
};
