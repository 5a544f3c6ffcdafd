#include "items/VirtualFolder.h"

#include <shlwapi.h>

#include "diagnostics/Trace.h"
#include "items/VirtualTempFileDispenser.h"
#include "library/Text.h"
#include "locks/FileLocker.h"
#include "namespace/VirtualFindFile.h"
#include "namespace/VirtualMountFolder.h"
#include "policy/FileUtils.h"
#include "policy/HvcUtils.h"

VirtualVolumeStatus VirtualFolder::Open(const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                        std::uint32_t openDisposition, const VirtFindData* findData, const wchar_t*) {
    QC_TRACE_THIS(L"VirtualFolder::Open", L"filePath[%s], desiredAccess[%s], shareMode[%s], openDisposition[%s]", filePath,
                  FormatAccessMaskStr(desiredAccess), FormatShareModeStr(shareMode), FormatCreationDispositionStr(openDisposition));
    SetFindData(findData && findData->itemType == VIT_Folder ? findData : nullptr);
    const bool isDocument = findData && (findData->itemType == VIT_EncryptedFile || findData->itemType == VIT_EncryptedFileInConflict);
    QC_CHECK(!isDocument, VVS_PathAlreadyExists, L"!isDocument =>false%s, ");
    const bool create = openDisposition == CreateNewFolder || (openDisposition == OpenOrCreateFolder && !PathIsDirectoryW(filePath));
    const bool folderCreated = !create || CreateDirectoryW(filePath, nullptr);
    QC_CHECK(folderCreated, StatusFromLastError(), L"folderCreated =>FALSE%s,  %s", L"filePath[%s]. Error[%s]", filePath,
             SystemErrorStr(GetLastError()));
    const std::uint32_t access = desiredAccess & DELETE ? desiredAccess : desiredAccess | FILE_WRITE_ATTRIBUTES;
    QC_CHECK_STATUS(CreateFileW(filePath, access, shareMode, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, m_hFile),
                    L"CreateFileW( filePath, desiredAccess, shareMode, 3, 0x02000000, m_hFile ) =>%s, ");
    SetItemPath(filePath);
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFolder::RefuseWhileNeeded() const {
    const bool isNeeded = VirtualMountFolder::HoldsMountFolder(m_itemFullPath) || IsAnyOpenBelow(m_itemFullPath) ||
                          FileLocker::HoldsLockBelow(m_itemFullPath);
    return isNeeded ? VVS_AccessDenied : VVS_Success;
}

// A folder takes no other item's place; a copy may go into an existing folder.
VirtualVolumeStatus VirtualFolder::CheckDestination(const wchar_t* newFilePath, bool mayBeFolder) const {
    VirtFindData existing{};
    if (!IsExistingFolder(PathRemoveFileSpecStr(newFilePath)))
        return VVS_PathNotFound;
    if (EqualNoCase(newFilePath, m_itemFullPath) || !VirtualFindFile::FindFile(newFilePath, &existing))
        return VVS_Success;
    const bool isOrdinaryZip = existing.itemType == VIT_PlainFile && !PathExists(newFilePath);
    return isOrdinaryZip || (mayBeFolder && existing.itemType == VIT_Folder) ? VVS_Success : VVS_PathAlreadyExists;
}

VirtualVolumeStatus VirtualFolder::CheckSameKeyAndOwner(const std::wstring& newFilePath) {
    QC_TRACE_THIS(L"VirtualFolder::CheckSameKeyAndOwner");
    bool isKnown = true;  // two that cannot be told are not two that are empty, which match
    const std::wstring srcTargetKeyId = GetFolderTargetKeyId(m_itemFullPath, &isKnown);
    const std::wstring destTargetKeyId = GetFolderTargetKeyId(newFilePath, &isKnown);
    const bool targetKeyIdMatched = isKnown && EqualNoCase(srcTargetKeyId, destTargetKeyId);
    QC_LOG(L"TargetKeyId[%s], srcTargetKeyId[%s], destTargetKeyId[%s]", targetKeyIdMatched ? L"Matched" : L"Not Matched",
           srcTargetKeyId, destTargetKeyId);
    QC_CHECK(targetKeyIdMatched, VVS_GeneralError, L"targetKeyIdMatched =>false%s, ");
    const std::wstring srcOwnerId = GetOwnerId(m_itemFullPath, &isKnown);
    const std::wstring destOwnerId = GetOwnerId(newFilePath, &isKnown);
    const bool ownerIdMatched = isKnown && EqualNoCase(srcOwnerId, destOwnerId);
    QC_LOG(L"OwnerId[%s], srcOwnerId[%s], destOwnerId[%s]", ownerIdMatched ? L"Matched" : L"Not Matched", srcOwnerId, destOwnerId);
    QC_CHECK(ownerIdMatched, VVS_GeneralError, L"ownerIdMatched =>false%s, ");
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFolder::Move(const wchar_t* newFilePath, bool keepSrcFile, const wchar_t* newFileLockToken) {
    QC_TRACE_THIS(L"VirtualFolder::Move", L"in:newFilePath[%s], this:itemFullPath[%s]", newFilePath, m_itemFullPath);
    if (!keepSrcFile) {
        QC_CHECK_STATUS(Rename(newFilePath, newFileLockToken), L"Rename(newFilePath, newFileLockToken) =>%s, ");
        return qcLog.Leave(VVS_Success);
    }
    QC_CHECK_STATUS(EqualNoCase(newFilePath, m_itemFullPath) ? VVS_PathAlreadyExists : CheckDestination(newFilePath, true),
                    L"CheckDestination(newFilePath) =>%s, ");
    const VirtualVolumeStatus matched = CheckSameKeyAndOwner(newFilePath);
    if (matched != VVS_Success)
        return qcLog.Leave(matched);
    // Some systems do not list a folder that is open for deletion, as it is here.
    CreateFileW(m_itemFullPath, GENERIC_READ, kShareAll, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, m_hFile);
    const Win32Error copied = qcCopyFileOrFolder(m_itemFullPath, newFilePath, false);
    QC_CHECK(copied == Win32Error::None, StatusOfCall(copied), L"qcCopyFileOrFolder(m_itemFullPath, newFilePath, false) == 0L =>false%s, ");
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFolder::Rename(const wchar_t* newFilePath, const wchar_t*) {
    QC_TRACE_THIS(L"VirtualFolder::Rename", L"in:newFilePath[%s], this:itemFullPath[%s]", newFilePath, m_itemFullPath);
    QC_CHECK_STATUS(RefuseWhileNeeded(), L"RefuseWhileNeeded() =>%s, ");
    if (m_itemFullPath == newFilePath)
        return qcLog.Leave(VVS_Success);
    QC_CHECK_STATUS(CheckDestination(newFilePath, false), L"CheckDestination(newFilePath) =>%s, ");
    const VirtualVolumeStatus matched = CheckSameKeyAndOwner(newFilePath);
    if (matched != VVS_Success)
        return qcLog.Leave(matched);
    QC_CHECK_STATUS(VirtualItem::RenameItem(newFilePath), L"VirtualItem::RenameItem(newFilePath) =>%s, ");
    VirtualTempFileDispenser::MoveFolder(m_itemFullPath, newFilePath);
    SetItemPath(newFilePath);
    QC_LOG(L"this:itemFullPath[%s]", m_itemFullPath);
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFolder::Close() {
    if (m_closed)
        return VVS_Success;
    QC_TRACE_THIS(L"VirtualFolder::Close", L"this:itemFullPath[%s]", m_itemFullPath);
    m_closed = true;
    m_hFile.Reset();
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFolder::Delete() {
    QC_TRACE_THIS(L"VirtualFolder::Delete", L"this:itemFullPath[%s]", m_itemFullPath);
    if (!m_deleted) {
        QC_CHECK_STATUS(RefuseWhileNeeded(), L"RefuseWhileNeeded() =>%s, ");
        QC_CHECK_STATUS(StatusOfCall(DeleteUndeleteFile(m_hFile.Get(), true)), L"DeleteUndeleteFile(m_hFile, true) =>%s, ");
        m_deleted = true;
    }
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFolder::Undelete() {
    QC_TRACE_THIS(L"VirtualFolder::Undelete", L"this:itemFullPath[%s]", m_itemFullPath);
    if (m_deleted) {
        QC_CHECK_STATUS(StatusOfCall(DeleteUndeleteFile(m_hFile.Get(), false)), L"DeleteUndeleteFile(m_hFile, false) =>%s, ");
        m_deleted = false;
    }
    return qcLog.Leave(VVS_Success);
}

bool VirtualFolder::GetFileInfo(VirtFindData* virtFindData) {
    QC_TRACE_THIS(L"VirtualFolder::GetFileInfo");
    if (!m_findDataValid) {
        VirtFindData findData{};
        if (!ReadFindData(m_itemFullPath, VIT_Folder, &findData))
            return qcLog.Leave(false);
        SetFindData(&findData);
    }
    *virtFindData = m_findData;
    return qcLog.Leave(true);
}
