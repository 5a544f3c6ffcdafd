#include <algorithm>
#include <memory>
#include <optional>

#include <shlwapi.h>

#include "library/Disk.h"
#include "library/Paths.h"
#include "library/Text.h"
#include "locks/FileLocker.h"
#include "policy/HvcUtils.h"
#include "volume/CatchAll.h"
#include "volume/VirtualVolumeImpl.h"

namespace {

constexpr std::uint64_t kReportedSpace = 0xFFFFFFFFFF;

}  // namespace

void* VirtualVolume::Destroy(std::uint32_t flags) {
    void* const address = this;
    if (flags & 1)
        delete this;
    return address;
}

void VirtualVolume::Release() { delete this; }

bool VirtualVolume::GetMountInfoByVolumePath(const wchar_t* volumePath, VirtMountInfo* mountInfo) {
    QC_TRACE_SLOT(L"VirtualVolume::GetMountInfoByVolumePath", L"filePath[%s]", volumePath);
    return CatchAllOr(false, QC_SLOT, [&] {
        MountFolderInfo mountFolderInfo;
        std::wstring relativePath;
        return qcLog.Leave(mountInfo && VirtualMountFolder::GetMountFolderInfoByVirtPath(volumePath, mountFolderInfo, relativePath) &&
                           ConvertMountFolderInfoToVirtMountInfo(mountFolderInfo, mountInfo));
    });
}

bool VirtualVolume::GetMountInfoByNativePath(const wchar_t* nativePath, VirtMountInfo* mountInfo) {
    QC_TRACE_SLOT(L"VirtualVolume::GetMountInfoByNativePath", L"filePath[%s]", nativePath);
    return CatchAllOr(false, QC_SLOT, [&] {
        MountFolderInfo mountFolderInfo;
        std::wstring relativePath;
        return qcLog.Leave(mountInfo && VirtualMountFolder::GetMountFolderInfoByNativePath(nativePath, mountFolderInfo, relativePath) &&
                           ConvertMountFolderInfoToVirtMountInfo(mountFolderInfo, mountInfo));
    });
}

std::uint64_t VirtualVolume::GetSpace(std::uint64_t* totalBytes, std::uint64_t* freeBytes) {
    if (totalBytes)
        *totalBytes = kReportedSpace;
    if (freeBytes)
        *freeBytes = kReportedSpace;
    return kReportedSpace;
}

bool VirtualVolume::GetFullFilePath(const wchar_t* filePath, std::wstring& fullFilePath) {
    QC_TRACE(L"VirtualVolume::GetFullFilePath", L"filePath[%s]", filePath);
    if (filePath && !PathIsRelativeW(filePath)) {
        fullFilePath = TidyPathStr(filePath);
        return qcLog.Leave(true);
    }
    MountFolderInfo mountFolderInfo;
    std::wstring relativePath;
    if (!VirtualMountFolder::GetMountFolderInfoByVirtPath(filePath, mountFolderInfo, relativePath))
        return qcLog.Leave(false);
    const std::optional<std::wstring> joined = PathIn(mountFolderInfo, relativePath);
    if (joined)
        fullFilePath = *joined;
    else
        QC_LOG(L"relativePath[%s] leads to no file in mount folder[%s], or that is not on disk", relativePath, mountFolderInfo.path);
    return qcLog.Leave(joined.has_value());
}

VirtualVolumeStatus VirtualVolume::StatusOfUnresolved(const wchar_t* filePath) {
    MountFolderInfo mountFolderInfo;
    std::wstring relativePath;
    const bool isFolderKnown = VirtualMountFolder::GetMountFolderInfoByVirtPath(filePath, mountFolderInfo, relativePath);
    return isFolderKnown && NamesDevice(relativePath) ? VVS_InvalidParameter : VVS_MountFolderNotFound;
}

// A mount folder may be missing together with its disk; nothing must be created in its place meanwhile.
std::optional<std::wstring> VirtualVolume::PathIn(const MountFolderInfo& mountFolderInfo, const std::wstring& relativePath) {
    std::optional<std::wstring> joined = PathJoinBelow(mountFolderInfo.path, relativePath);
    return joined && (*joined != mountFolderInfo.path || IsExistingFolder(*joined)) ? joined : std::nullopt;
}

bool VirtualVolume::ConvertMountFolderInfoToVirtMountInfo(const MountFolderInfo& mountFolderInfo, VirtMountInfo* virtMountInfo) {
    QC_TRACE(L"VirtualVolume::ConvertMountFolderInfoToVirtMountInfo");
    const bool enoughSpace =
        mountFolderInfo.name.size() < std::size(virtMountInfo->name) && mountFolderInfo.path.size() < std::size(virtMountInfo->path);
    QC_CHECK_OR_RETURN(enoughSpace, false, L"enoughSpace =>false%s, ");
    virtMountInfo->type = mountFolderInfo.type;
    CopyBounded(virtMountInfo->name, mountFolderInfo.name);
    CopyBounded(virtMountInfo->path, mountFolderInfo.path);
    return qcLog.Leave(true);
}

void VirtualVolume::FindRoot(VirtFindData* virtFindData) {
    QC_TRACE(L"VirtualVolume::FindRoot");
    *virtFindData = {};
    virtFindData->fileAttributes = FILE_ATTRIBUTE_DIRECTORY;
    virtFindData->itemType = VIT_Root;
    VirtFindData folder{};
    const VirtFindMountFolderHandlePtr handle = VirtualMountFolder::FindFirstFolder(L"*", &folder);
    if (!handle) {
        if (!VirtualMountFolder::FindFirstFolder(L"*"))  // some may be missing on disk at the moment
            QC_LOG_AT(LogLevel_Warning, L"Virtual volume is empty!");
        return;
    }
    do {
        if (folder.creationTime != 0 && (virtFindData->creationTime == 0 || folder.creationTime < virtFindData->creationTime))
            virtFindData->creationTime = folder.creationTime;
        virtFindData->lastAccessTime = std::max(virtFindData->lastAccessTime, folder.lastAccessTime);
        virtFindData->lastWriteTime = std::max(virtFindData->lastWriteTime, folder.lastWriteTime);
    } while (VirtualMountFolder::FindNextFolder(*handle, &folder));
}

std::wstring VirtualVolume::LockTokenAlwaysStr(const std::wstring& fullFilePath, const wchar_t* lockToken) {
    if (lockToken && *lockToken)
        return lockToken;
    LockInfo lockInfo{};
    VirtualVolumeStatus status = FileLocker::FindLock(fullFilePath.c_str(), nullptr, &lockInfo);
    if (status == VVS_FileNotLocked)
        status = FileLocker::FindLock(ZipPathStr(fullFilePath).c_str(), nullptr, &lockInfo);
    return status == VVS_Success ? std::wstring(BoundedText(lockInfo.token)) : std::wstring();
}
