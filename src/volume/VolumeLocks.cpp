#include <cstring>

#include "common/Halves.h"
#include "common/SaveNames.h"
#include "library/Disk.h"
#include "library/Owners.h"
#include "library/Paths.h"
#include "library/Patience.h"
#include "library/Text.h"
#include "library/Win32Error.h"
#include "locks/FileLocker.h"
#include "namespace/VirtualFindFile.h"
#include "policy/HvcUtils.h"
#include "volume/CatchAll.h"
#include "volume/SearchHandles.h"
#include "volume/VirtualVolumeImpl.h"

namespace {

// Texts of checks.
constexpr wchar_t kContainerUnlockedText[] =
    L"unlockStatus == VVS_Success || !fileEncrypted && unlockStatus == VVS_FileNotLocked =>false%s, ";
constexpr wchar_t kUnlockedText[] = L"unlockStatus == VVS_Success || unlockStatus == VVS_FileNotLocked =>false%s, ";
constexpr wchar_t kUnlockContainerText[] = L"FileLocker::Unlock(PathAddExtensionStr(fullFilePath, L\".zip\"), lockToken) =>%s, ";
constexpr wchar_t kFullPathText[] = L"VirtualVolume::GetFullFilePath(filePath, fullFilePath) =>false%s,  %s";

bool IsDir(const VirtFindData& virtFindData) { return virtFindData.fileAttributes & FILE_ATTRIBUTE_DIRECTORY; }

// A plain file is locked under its own path, any other under its container's. A container that cannot be
// read at this moment is shown as a plain file, but still must be locked: at the document's path the lock would create a plain file,
// and the host would write it unencrypted.
std::wstring PathToLock(const std::wstring& fullFilePath, const VirtFindData& virtFindData) {
    // Such a record has the container's name; a record with the name that was asked for needs no second check.
    const bool isPlain = virtFindData.itemType == VIT_PlainFile && (EqualNoCase(virtFindData.fileName, PathStripPathStr(fullFilePath)) ||
                                                                    PathExists(fullFilePath) || !ShouldFileBeEncrypted(fullFilePath));
    return isPlain ? fullFilePath : ContainerPathStr(fullFilePath);
}

// What listings show of a file that is locked but not stored yet, and will be encrypted.
VirtFindData RecordOfMissingFile(const std::wstring& fullFilePath) {
    VirtFindData record{};
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    record.fileAttributes = FILE_ATTRIBUTE_ARCHIVE;
    record.creationTime = record.lastAccessTime = record.lastWriteTime = FileTimeNumber(now);
    record.itemType = VIT_EncryptedFile;
    CopyBounded(record.fileName, PathStripPathStr(fullFilePath));
    return record;
}

// The container may have been replaced before the lock held it, so its record is read again, unless somebody has saved it under the
// lock since. The lock is taken already, so failures are ignored.
void FollowHeldContainer(const std::wstring& containerPath, const VirtFindData& found) noexcept {
    try {
        VirtFindData held{}, now{};
        const bool isKnown = VirtualFindFile::FindContainerOnDisk(containerPath, &held) && held.itemType == found.itemType;
        FileLocker::GetEncryptedInfo(containerPath.c_str(), nullptr, &now);
        if (isKnown && std::memcmp(&now, &found, sizeof(found)) == 0)
            FileLocker::SetEncryptedInfo(containerPath.c_str(), held);
    } catch (...) {  // not enough memory; listings then show what was found before
    }
}

VirtualVolumeStatus LockWhatIsThere(QuelcryptLog& qcLog, const std::wstring& fullFilePath, LockInfo* lockInfo) {
    VirtFindData virtFindData{};
    const bool fileExists = VirtualFindFile::FindFileToOpen(fullFilePath.c_str(), &virtFindData);
    QC_CHECK_OR_RETURN(!fileExists || !IsDir(virtFindData), VVS_BadRequest,
                       L"!fileExists || (fileExists && !IsDir(virtFindData)) =>false%s, ");
    QC_CHECK_OR_RETURN(fileExists || IsWellFormed(fullFilePath), VVS_InvalidParameter, L"IsWellFormed(fullFilePath) =>false%s, ");
    const bool isNewEncrypted = !fileExists && ShouldFileBeEncrypted(fullFilePath);
    QC_CHECK_OR_RETURN(fileExists || IsNameForNewFile(PathStripPathStr(fullFilePath), isNewEncrypted), VVS_InvalidParameter,
                       L"IsNameForNewFile(PathStripPathStr(fullFilePath)) =>false%s, ");
    std::wstring filePathToLock = fullFilePath;
    const VirtFindData* halvaneVirtFindData = nullptr;
    if (fileExists) {
        filePathToLock = PathToLock(fullFilePath, virtFindData);
        halvaneVirtFindData = virtFindData.itemType != VIT_PlainFile ? &virtFindData : nullptr;
    } else if (isNewEncrypted) {
        filePathToLock = ZipPathStr(fullFilePath);
        // As at the open of a new file: the container must not get the name under which another document is shown.
        QC_CHECK_OR_RETURN(!PathExists(ZipPathStr(filePathToLock)), VVS_PathAlreadyExists,
                           L"!PathExists(ZipPathStr(filePathToLock)) =>false%s, ");
        virtFindData = RecordOfMissingFile(fullFilePath);
        halvaneVirtFindData = &virtFindData;
    }
    // The lock would be on a link's target, which could then be deleted or moved.
    const bool isLink = fileExists && (virtFindData.fileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) && IsLink(filePathToLock);
    QC_CHECK_OR_RETURN(!isLink, VVS_BadRequest, L"!IsLink(filePathToLock) =>false%s, ");
    bool isLockedBefore = false;
    FileLocker::GetEncryptedInfo(filePathToLock.c_str(), &isLockedBefore, nullptr);
    QC_CHECK_STATUS_OR_RETURN(FileLocker::Lock(filePathToLock.c_str(), halvaneVirtFindData, lockInfo),
                              L"FileLocker::Lock(filePathToLock, halvaneVirtFindData, lockInfo) =>%s, ");
    if (!isLockedBefore && halvaneVirtFindData)
        FollowHeldContainer(filePathToLock, virtFindData);
    return qcLog.Leave(VVS_Success);
}

}  // namespace

VirtualVolumeStatus VirtualVolume::Lock(const wchar_t* filePath, LockInfo* lockInfo) {
    QC_TRACE_SLOT(L"VirtualVolume::Lock", L"filePath[%s], lockInfo[%s]", filePath, FormatLockInfoStr(lockInfo));
    return CatchAll(QC_SLOT, [&] {
        std::wstring fullFilePath;
        QC_CHECK_OR_RETURN(GetFullFilePath(filePath, fullFilePath), StatusOfUnresolved(filePath), kFullPathText, L"filePath[%s]", filePath);
        VirtualVolumeStatus locked = VVS_Success;
        TryForAMoment([&] {  // each time another file may be there
            locked = LockWhatIsThere(qcLog, fullFilePath, lockInfo);
            return locked == VVS_Locked ? static_cast<Win32Error>(ERROR_SHARING_VIOLATION) : Win32Error::None;
        });
        return qcLog.Leave(locked);
    });
}

VirtualVolumeStatus VirtualVolume::Unlock(const wchar_t* filePath, const wchar_t* lockToken) {
    QC_TRACE_SLOT(L"VirtualVolume::Unlock", L"filePath[%s], lockToken[%s]", filePath, lockToken);
    return CatchAll(QC_SLOT, [&] {
        std::wstring fullFilePath;
        QC_CHECK_OR_RETURN(GetFullFilePath(filePath, fullFilePath), StatusOfUnresolved(filePath), kFullPathText, L"filePath[%s]", filePath);
        VirtFindData virtFindData{};
        const bool fileExists = VirtualFindFile::FindFile(fullFilePath.c_str(), &virtFindData);
        QC_CHECK_OR_RETURN(!fileExists || !IsDir(virtFindData), VVS_BadRequest, L"!IsDir(virtFindData) =>false%s, ");
        const bool fileEncrypted = fileExists && virtFindData.itemType != VIT_PlainFile;
        const std::wstring ownPath = fileExists ? PathToLock(fullFilePath, virtFindData) : fullFilePath;
        const VirtualVolumeStatus unlockStatus = FileLocker::Unlock(ownPath.c_str(), lockToken);
        if (unlockStatus == VVS_Success)
            return qcLog.Leave(unlockStatus);
        // The name may by now be that of another container, or of a document whose plain file the lock still holds.
        const std::wstring containerPath = ZipPathStr(fullFilePath);
        for (const std::wstring& otherPath : {containerPath, fullFilePath})
            if (fileEncrypted && !EqualNoCase(ownPath, otherPath) && FileLocker::Unlock(otherPath.c_str(), lockToken) == VVS_Success)
                return qcLog.Leave(VVS_Success);
        if (fileExists)
            QC_CHECK_OR_RETURN(!fileEncrypted && unlockStatus == VVS_FileNotLocked, unlockStatus, kContainerUnlockedText);
        else
            QC_CHECK_OR_RETURN(unlockStatus == VVS_FileNotLocked, unlockStatus, kUnlockedText);
        // The lock may have been taken when the file was stored encrypted, or would have been.
        QC_CHECK_STATUS_OR_RETURN(FileLocker::Unlock(containerPath.c_str(), lockToken), kUnlockContainerText);
        return qcLog.Leave(VVS_Success);
    });
}

VirtualVolumeStatus VirtualVolume::FindLock(const wchar_t* filePath, const wchar_t* lockToken, LockInfo* lockInfo) {
    QC_TRACE_SLOT(L"VirtualVolume::FindLock", L"filePath[%s], lockToken[%s]", filePath, lockToken);
    return CatchAll(QC_SLOT, [&] {
        std::wstring fullFilePath;
        QC_CHECK_OR_RETURN(GetFullFilePath(filePath, fullFilePath), StatusOfUnresolved(filePath), kFullPathText, L"filePath[%s]", filePath);
        VirtFindData virtFindData{};
        QC_CHECK_OR_RETURN(VirtualFindFile::FindFile(fullFilePath.c_str(), &virtFindData), VVS_FileNotFound,
                           L"VirtualFindFile::FindFile(fullFilePath, &virtFindData) =>false%s, ");
        QC_CHECK_OR_RETURN(!IsDir(virtFindData), VVS_BadRequest, L"!IsDir(virtFindData) =>false%s, ");
        QC_CHECK_STATUS_OR_RETURN(FileLocker::FindLock(PathToLock(fullFilePath, virtFindData).c_str(), lockToken, lockInfo),
                                  L"FileLocker::FindLock(filePathToLock, lockToken, lockInfo) =>%s, ");
        QC_LOG(L"Lock found: filePath[%s], lockToken[%s], lockInfo[%s]", filePath, lockToken, FormatLockInfoStr(lockInfo));
        return qcLog.Leave(VVS_Success);
    });
}

void* VirtualVolume::FindFirstLock(const wchar_t* filePath, LockInfo* lockInfo) {
    QC_TRACE_SLOT(L"VirtualVolume::FindFirstLock", L"filePath[%s]", filePath);
    return CatchAllOr<void*>(nullptr, QC_SLOT, [&]() -> void* {
        std::wstring fullFilePath;
        QC_CHECK_OR_RETURN(GetFullFilePath(filePath, fullFilePath), nullptr,
                           L"VirtualVolume::GetFullFilePath(filePath, fullFilePath) =>false%s, ");
        VirtFindData virtFindData{};
        QC_CHECK_OR_RETURN(VirtualFindFile::FindFile(fullFilePath.c_str(), &virtFindData), nullptr,
                           L"VirtualFindFile::FindFile(fullFilePath, &virtFindData) =>false%s, ");
        QC_CHECK_OR_RETURN(!IsDir(virtFindData), nullptr, L"!IsDir(virtFindData) =>false%s, ");
        void* hFind = nullptr;
        FileLocker::FindFirstLock(PathToLock(fullFilePath, virtFindData).c_str(), &hFind, lockInfo);
        if (hFind)
            QC_LOG(L"Lock found: filePath[%s], lockInfo[%s]", filePath, FormatLockInfoStr(lockInfo));
        else
            QC_LOG(L"No Lock found: filePath[%s]", filePath);
        if (!hFind)
            return qcLog.Leave<void*>(nullptr);
        return qcLog.Leave(SearchHandles::Add(std::shared_ptr<void>(hFind, [](void* search) { FileLocker::FindClose(search); })));
    });
}

VirtualVolumeStatus VirtualVolume::FindNextLock(void* hFind, LockInfo* lockInfo) {
    QC_TRACE_SLOT(L"VirtualVolume::FindNextLock", L"hFind[0x%p]", hFind);
    return CatchAll(QC_SLOT, [&] {
        bool isHandle = false;
        const auto next = [&](std::uint32_t& search) {
            isHandle = true;
            return FileLocker::FindNextLock(&search, lockInfo);
        };
        const bool found = SearchHandles::With<std::uint32_t>(hFind, kLockSearchMagic, false, next);
        if (!isHandle)
            FileLocker::FindNextLock(nullptr, lockInfo);  // logs the invalid handle
        if (!found) {
            QC_LOG(L"No Lock found");
            return qcLog.Leave(VVS_FileNotLocked);
        }
        QC_LOG(L"Lock found: lockInfo[%s]", FormatLockInfoStr(lockInfo));
        return qcLog.Leave(VVS_Success);
    });
}
