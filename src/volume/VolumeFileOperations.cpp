#include "items/VirtualFile.h"
#include "items/VirtualFolder.h"
#include "items/VirtualTempFileDispenser.h"
#include "library/Paths.h"
#include "namespace/VirtualFindFile.h"
#include "volume/CatchAll.h"
#include "volume/OpenItems.h"
#include "volume/VirtualVolumeImpl.h"

namespace {

// Texts of checks.
constexpr wchar_t kOpenItemText[] =
    L"virtualItem->Open(fullFilePath, desiredAccess, shareMode, openDisposition, virtFindDataPtr, lockTokenAlways ) =>%s, ";
constexpr wchar_t kFindMountFolderText[] =
    L"VirtualMountFolder::GetMountFolderInfoByVirtPath(newPath, mountFolderInfo, relativeFilePath) =>false%s, ";
constexpr wchar_t kOpenSourceText[] =
    L"OpenFile(&hFile, existingFilePath, desiredAccess, shareMode, OpenFileExisting, existFileLockToken ) =>%s, ";
constexpr wchar_t kNewFullPathText[] = L"VirtualVolume::GetFullFilePath(newFilePath, fullNewFilePath) =>false%s,  %s";
constexpr wchar_t kExistingFullPathText[] = L"VirtualVolume::GetFullFilePath(existingFilePath, fullExistingFilePath) =>false%s,  %s";
constexpr wchar_t kMoveItemText[] = L"virtualItemExisting->Move(fullNewFilePath, keepExistingFile, newFileLockTokenAlways) =>%s, ";

bool IsFolderDisposition(std::uint32_t openDisposition) {
    return openDisposition == CreateNewFolder || openDisposition == OpenOrCreateFolder;
}

bool IsKnownDisposition(std::uint32_t openDisposition) {
    return (openDisposition >= CREATE_NEW && openDisposition <= TRUNCATE_EXISTING) || IsFolderDisposition(openDisposition);
}

// Calls op with the item of a handle, one call at a time; returns failed when there is none, or it was closed meanwhile.
template <class Result, class Operation>
Result WithItem(void* hFile, Result failed, Operation op) {
    const OpenItemPtr item = OpenItems::Find(hFile);
    if (!item)
        return failed;
    const SectionGuard guard(item->CallLock());
    return item->IsClosed() ? failed : op(*item);
}

// Waits for calls on an item that are under way, and closes it.
VirtualVolumeStatus CloseItem(const OpenItemPtr& item) {
    if (!item)
        return VVS_Success;
    const SectionGuard guard(item->CallLock());
    return item->Close();
}

// For a log line. Other threads may still be in a call on the item.
std::wstring KnownFindDataStr(const OpenItemPtr& item) {
    if (!item)
        return FormatFindDataStr(nullptr);
    const SectionGuard guard(item->CallLock());
    return FormatFindDataStr(item->KnownFindData());
}

}  // namespace

VirtualVolumeStatus VirtualVolume::OpenFile(void** hFile, const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                            std::uint32_t openDisposition, const wchar_t* lockToken, VirtFindData* findData) {
    QC_TRACE_SLOT(L"VirtualVolume::OpenFile", L"filePath[%s], desiredAccess[0x%x], shareMode[%d], openDisposition[%d], lockToken[%s]",
                  filePath, desiredAccess, shareMode, openDisposition, lockToken);
    return CatchAll(QC_SLOT, [&] {
        QC_CHECK_OR_RETURN(hFile != nullptr, VVS_InvalidParameter, L"hFile != 0 =>false%s, ");
        *hFile = nullptr;
        std::wstring fullFilePath;
        QC_CHECK_OR_RETURN(GetFullFilePath(filePath, fullFilePath), StatusOfUnresolved(filePath),
                           L"VirtualVolume::GetFullFilePath(filePath, fullFilePath) =>false%s,  %s", L"filePath[%s]", filePath);
        QC_CHECK_OR_RETURN(IsKnownDisposition(openDisposition), VVS_InvalidParameter, L"IsKnownDisposition(openDisposition) =>false%s, ");
        VirtFindData virtFindData{};
        const bool exists = VirtualFindFile::FindFileToOpen(fullFilePath.c_str(), &virtFindData);
        const VirtFindData* const virtFindDataPtr = exists ? &virtFindData : nullptr;
        if (exists)
            QC_LOG(L"fullFilePath[%s], virtFindData[%s]", fullFilePath, FormatFindDataStr(virtFindDataPtr));

        OpenItemPtr virtualItem;
        if (IsFolderDisposition(openDisposition) || (exists && virtFindData.itemType == VIT_Folder))
            virtualItem = std::make_shared<VirtualFolder>();
        else
            virtualItem = std::make_shared<VirtualFile>();
        const std::wstring lockTokenAlways = LockTokenAlwaysStr(fullFilePath, lockToken);
        QC_CHECK_STATUS_OR_RETURN(
            virtualItem->Open(fullFilePath.c_str(), desiredAccess, shareMode, openDisposition, virtFindDataPtr, lockTokenAlways.c_str()),
            kOpenItemText);
        *hFile = OpenItems::Add(std::move(virtualItem));
        if (exists && findData) {
            *findData = virtFindData;
            VirtualTempFileDispenser::DescribeShownEdit(PathRemoveFileSpecStr(fullFilePath), *findData);
        }
        QC_LOG(L"filePath[%s] has been opened SUCCESFULLY, hVirtFile[0x%p]", filePath, *hFile);
        return qcLog.Leave(VVS_Success);
    });
}

void VirtualVolume::CloseFile(void* hFile, VirtFindData*) {
    const OpenItemPtr item = OpenItems::Remove(hFile);
    QC_TRACE_SLOT(L"VirtualVolume::CloseFile", L"hFile[0x%p], VirtFindData[%s]", hFile, KnownFindDataStr(item));
    CatchAll(QC_SLOT, [&] { return qcLog.Leave(CloseItem(item)); });
}

VirtualVolumeStatus VirtualVolume::Delete(void* hFile, VirtFindData* findData) {
    QC_TRACE_SLOT(L"VirtualVolume::Delete", L"hFile[0x%p], VirtFindData[%s]", hFile, FormatFindDataStr(findData));
    return CatchAll(QC_SLOT, [&] {
        QC_CHECK_STATUS_OR_RETURN(WithItem(hFile, VVS_InvalidParameter, [](VirtualItem& item) { return item.Delete(); }),
                                  L"hFile->Delete() =>%s, ");
        QC_LOG(L"File had succesfully deleted");
        return qcLog.Leave(VVS_Success);
    });
}

VirtualVolumeStatus VirtualVolume::Undelete(void* hFile, VirtFindData* findData) {
    QC_TRACE_SLOT(L"VirtualVolume::Undelete", L"hFile[0x%p], VirtFindData[%s]", hFile, FormatFindDataStr(findData));
    return CatchAll(QC_SLOT, [&] {
        QC_CHECK_STATUS_OR_RETURN(WithItem(hFile, VVS_InvalidParameter, [](VirtualItem& item) { return item.Undelete(); }),
                                  L"hFile->Undelete() =>%s, ");
        QC_LOG(L"File had succesfully undeleted");
        return qcLog.Leave(VVS_Success);
    });
}

VirtualVolumeStatus VirtualVolume::RenameFile(void* hFile, VirtFindData* findData, const wchar_t* newPath,
                                              const wchar_t* newFileLockToken) {
    QC_TRACE_SLOT(L"VirtualVolume::RenameFile", L"hFile[0x%p], VirtFindData[%s], newPath[%s], newFileLockToken[%s]", hFile,
                  FormatFindDataStr(findData), newPath, newFileLockToken);
    return CatchAll(QC_SLOT, [&] {
        QC_CHECK_STATUS_OR_RETURN(OpenItems::Find(hFile) ? VVS_Success : VVS_InvalidParameter,
                                  L"hFile->Rename(newFilePath, newLockTokenAlways ) =>%s, ");
        MountFolderInfo mountFolderInfo;
        std::wstring relativeFilePath;
        QC_CHECK_OR_RETURN(VirtualMountFolder::GetMountFolderInfoByVirtPath(newPath, mountFolderInfo, relativeFilePath),
                           VVS_MountFolderNotFound, kFindMountFolderText);
        const std::optional<std::wstring> newFilePath = PathIn(mountFolderInfo, relativeFilePath);
        QC_CHECK_OR_RETURN(newFilePath.has_value(), StatusOfUnresolved(newPath),
                           L"PathJoinBelow(mountFolderInfo.path, relativeFilePath) =>false%s, ");
        const std::wstring newLockTokenAlways = LockTokenAlwaysStr(*newFilePath, newFileLockToken);
        QC_CHECK_STATUS_OR_RETURN(
            WithItem(hFile, VVS_InvalidParameter,
                     [&](VirtualItem& item) { return item.Rename(newFilePath->c_str(), newLockTokenAlways.c_str()); }),
            L"hFile->Rename(newFilePath, newLockTokenAlways ) =>%s, ");
        QC_LOG(L"File had been SUCCESFULLY renamed");
        return qcLog.Leave(VVS_Success);
    });
}

VirtualVolumeStatus VirtualVolume::MoveOrCopyFile(const wchar_t* existingFilePath, const wchar_t* newFilePath, bool keepExistingFile,
                                                  const wchar_t* newFileLockToken) {
    QC_TRACE_SLOT(L"VirtualVolume::MoveOrCopyFile", L"existingFilePath[%s], newFilePath[%s], keepExistingFile[%s]", existingFilePath,
                  newFilePath, FormatBoolStr(keepExistingFile));
    return CatchAll(QC_SLOT, [&] {
        void* hFile = nullptr;
        QC_CHECK_STATUS_OR_RETURN(OpenFile(&hFile, existingFilePath, DELETE, kShareAll, OpenFileExisting, nullptr, nullptr),
                                  kOpenSourceText);
        {
            const OnExit closeExisting([&] { CloseFile(hFile, nullptr); });
            std::wstring fullNewFilePath;
            QC_CHECK_OR_RETURN(GetFullFilePath(newFilePath, fullNewFilePath), StatusOfUnresolved(newFilePath), kNewFullPathText,
                               L"newFilePath[%s]", newFilePath);
            std::wstring fullExistingFilePath;
            QC_CHECK_OR_RETURN(GetFullFilePath(existingFilePath, fullExistingFilePath), StatusOfUnresolved(existingFilePath),
                               kExistingFullPathText, L"existingFilePath[%s]", existingFilePath);
            const std::wstring newFileLockTokenAlways = LockTokenAlwaysStr(fullNewFilePath, newFileLockToken);
            QC_CHECK_STATUS_OR_RETURN(WithItem(hFile, VVS_InvalidParameter,
                                               [&](VirtualItem& item) {
                                                   return item.Move(fullNewFilePath.c_str(), keepExistingFile,
                                                                    newFileLockTokenAlways.c_str());
                                               }),
                                      kMoveItemText);
        }
        QC_LOG(L"SUCCESS. existingFilePath[%s], newFilePath[%s], keepExistingFile[%s]", existingFilePath, newFilePath,
               FormatBoolStr(keepExistingFile));
        return qcLog.Leave(VVS_Success);
    });
}

VirtualVolumeStatus VirtualVolume::MoveFileW(const wchar_t* existingFilePath, const wchar_t* newFilePath, const wchar_t* newFileLockToken) {
    return MoveOrCopyFile(existingFilePath, newFilePath, false, newFileLockToken);
}

VirtualVolumeStatus VirtualVolume::CopyFileW(const wchar_t* existingFilePath, const wchar_t* newFilePath, const wchar_t* newFileLockToken) {
    return MoveOrCopyFile(existingFilePath, newFilePath, true, newFileLockToken);
}

VirtualVolumeStatus VirtualVolume::ReadFile(void* hFile, std::uint64_t fileOffset, void* data, std::uint32_t requestedSize,
                                            std::uint32_t* actualSize, VirtFindData* findData) {
    if (actualSize)
        *actualSize = 0;
    QC_TRACE_SLOT(L"VirtualVolume::ReadFile", L"hFile[0x%p], fileOffset[%d], requestedSize[%d], VirtFindData[%s]", hFile, fileOffset,
                  requestedSize, FormatFindDataStr(findData));
    return CatchAll(
        QC_SLOT,
        [&] {
            const auto read = [&](VirtualItem& item) { return item.Read(fileOffset, data, requestedSize, actualSize); };
            QC_CHECK_STATUS_OR_RETURN(data || requestedSize == 0 ? WithItem(hFile, VVS_InvalidParameter, read) : VVS_InvalidParameter,
                                      L"hFile->Read(fileOffset, data, requestedSize, outActualSize) =>%s, ");
            return qcLog.Leave(VVS_Success);
        },
        VVS_QuelcryptException);
}

VirtualVolumeStatus VirtualVolume::WriteFile(void* hFile, std::uint64_t fileOffset, const void* data, std::uint32_t requestedSize,
                                             std::uint32_t* actualSize, VirtFindData* findData) {
    if (actualSize)
        *actualSize = 0;
    QC_TRACE_SLOT(L"VirtualVolume::WriteFile", L"hFile[0x%p], fileOffset[%d], requestedSize[%d], VirtFindData[%s]", hFile, fileOffset,
                  requestedSize, FormatFindDataStr(findData));
    return CatchAll(
        QC_SLOT,
        [&] {
            const auto write = [&](VirtualItem& item) { return item.Write(fileOffset, data, requestedSize, actualSize); };
            QC_CHECK_STATUS_OR_RETURN(data || requestedSize == 0 ? WithItem(hFile, VVS_InvalidParameter, write) : VVS_InvalidParameter,
                                      L"hFile->Write(fileOffset, data, requestedSize, outActualSize) =>%s, ");
            return qcLog.Leave(VVS_Success);
        },
        VVS_QuelcryptException);
}

VirtualVolumeStatus VirtualVolume::SetFileSize(void* hFile, std::uint64_t fileSize, VirtFindData* findData) {
    QC_TRACE_SLOT(L"VirtualVolume::SetFileSize", L"hFile[0x%p], fileSize[%d], VirtFindData[%s]", hFile, fileSize,
                  FormatFindDataStr(findData));
    return CatchAll(QC_SLOT, [&] {
        QC_CHECK_STATUS_OR_RETURN(WithItem(hFile, VVS_InvalidParameter, [&](VirtualItem& item) { return item.SetSize(fileSize); }),
                                  L"hFile->SetSize(fileSize) =>%s, ");
        return qcLog.Leave(VVS_Success);
    });
}

VirtualVolumeStatus VirtualVolume::Flush(void* hFile) {
    QC_TRACE_SLOT(L"VirtualVolume::Flush", L"hFile[0x%p]", hFile);
    return CatchAll(QC_SLOT, [&] {
        QC_CHECK_STATUS_OR_RETURN(WithItem(hFile, VVS_InvalidParameter, [](VirtualItem& item) { return item.Flush(); }),
                                  L"hFile->Flush() =>%s, ");
        return qcLog.Leave(VVS_Success);
    });
}

bool VirtualVolume::GetFileInfo(void* hFile, VirtFindData* findData) {
    QC_TRACE_SLOT(L"VirtualVolume::GetFileInfo", L"hFile[%p]", hFile);
    return CatchAllOr(false, QC_SLOT, [&] {
        QC_CHECK_OR_RETURN(findData && WithItem(hFile, false, [&](VirtualItem& item) { return item.GetFileInfo(findData); }), false,
                           L"hFile->GetFileInfo(virtFindData) =>false%s, ");
        return qcLog.Leave(true);
    });
}

VirtualVolumeStatus VirtualVolume::SetFileInfo(void* hFile, std::uint32_t fileAttributes, const VirtFindData* virtFindData) {
    QC_TRACE_SLOT(L"VirtualVolume::SetFileInfo", L"hFile[0x%p], fileAttributes[0x%d], orig VirtFindData[%s]", hFile, fileAttributes,
                  FormatFindDataStr(virtFindData));
    return CatchAll(QC_SLOT, [&] {
        QC_CHECK_OR_RETURN(virtFindData != nullptr, VVS_InvalidParameter, L"virtFindData != 0 =>false%s, ");
        VirtFindData findData = *virtFindData;
        findData.fileAttributes = fileAttributes;
        QC_CHECK_STATUS_OR_RETURN(WithItem(hFile, VVS_InvalidParameter, [&](VirtualItem& item) { return item.SetFileInfo(&findData); }),
                                  L"hFile->SetFileInfo(&findData) =>%s, ");
        return qcLog.Leave(VVS_Success);
    });
}
