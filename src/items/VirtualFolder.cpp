#include "items/VirtualFolder.h"

#include "diagnostics/Trace.h"
#include "files/OpenFile.h"
#include "items/FolderCopy.h"
#include "items/VirtualTempFileDispenser.h"
#include "library/Disk.h"
#include "library/Paths.h"
#include "library/PlatformPath.h"
#include "library/Status.h"
#include "library/Text.h"
#include "library/Win32Error.h"
#include "locks/FileLocker.h"
#include "namespace/VirtualFindFile.h"
#include "namespace/VirtualMountFolder.h"
#include "policy/HvcUtils.h"

namespace {

// Texts of checks.
constexpr wchar_t kOpenFolderText[] = L"CreateFileW( filePath, desiredAccess, shareMode, 3, 0x02000000, m_hFile ) =>%s, ";

}  // namespace

VirtualVolumeStatus VirtualFolder::Open(const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                        std::uint32_t openDisposition, const VirtFindData* findData, const wchar_t*) {
    QC_TRACE_THIS(L"VirtualFolder::Open", L"filePath[%s], desiredAccess[%s], shareMode[%s], openDisposition[%s]", filePath,
                  FormatAccessMaskStr(desiredAccess), FormatShareModeStr(shareMode), FormatCreationDispositionStr(openDisposition));
    if (findData && findData->itemType == VIT_Folder)
        m_state.findData = *findData;
    const bool isDocument = findData && (findData->itemType == VIT_EncryptedFile || findData->itemType == VIT_EncryptedFileInConflict);
    QC_CHECK_OR_RETURN(!isDocument, VVS_PathAlreadyExists, L"!isDocument =>false%s, ");
    const bool create = openDisposition == CreateNewFolder || (openDisposition == OpenOrCreateFolder && !IsExistingFolder(filePath));
    const bool folderCreated = !create || CreateDirectoryW(PlatformPath(filePath).c_str(), nullptr);
    QC_CHECK_OR_RETURN(folderCreated, StatusFromLastError(), L"folderCreated =>FALSE%s,  %s", L"filePath[%s]. Error[%s]", filePath,
                       SystemErrorStr(GetLastError()));
    const std::uint32_t access = desiredAccess & DELETE ? desiredAccess : desiredAccess | FILE_WRITE_ATTRIBUTES;
    // A link itself is deleted or moved, never its target.
    const bool isLink = (access & (DELETE | GENERIC_ALL | MAXIMUM_ALLOWED)) && findData &&
                        (findData->fileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) && IsLink(filePath);
    const std::uint32_t flags = FILE_FLAG_BACKUP_SEMANTICS | (isLink ? FILE_FLAG_OPEN_REPARSE_POINT : 0);
    VirtualVolumeStatus status = CreateFileW(filePath, access, shareMode, OPEN_EXISTING, flags, m_hFile);
    if (status == VVS_AccessDenied && access != GENERIC_READ)  // opened for reading only, like such a file
        status = CreateFileW(filePath, GENERIC_READ, shareMode, OPEN_EXISTING, flags, m_hFile);
    QC_CHECK_STATUS_OR_RETURN(status, kOpenFolderText);
    m_state.SetPath(filePath);
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFolder::RefuseWhileNeeded() const {
    const bool isNeeded = VirtualMountFolder::HoldsMountFolder(m_state.Path()) || ItemState::IsAnyOpenBelow(m_state.Path()) ||
                          FileLocker::HoldsLockBelow(m_state.Path());
    return isNeeded ? VVS_AccessDenied : VVS_Success;
}

VirtualVolumeStatus VirtualFolder::RefuseWhileEditsWait() const {
    return VirtualTempFileDispenser::HoldsUnsavedEditBelow(m_state.Path()) ? VVS_AccessDenied : VVS_Success;
}

// A folder never replaces another item; a copy may add to an existing folder.
VirtualVolumeStatus VirtualFolder::CheckDestination(const wchar_t* newFilePath, bool mayBeFolder) const {
    VirtFindData existing{};
    if (!IsExistingFolder(PathRemoveFileSpecStr(newFilePath)))
        return VVS_PathNotFound;
    if (!VirtualFindFile::FindFile(newFilePath, &existing) || AreSameFile(newFilePath, m_state.Path()))
        return VVS_Success;
    const bool isOrdinaryZip = existing.itemType == VIT_PlainFile && !PathExists(newFilePath);
    return isOrdinaryZip || (mayBeFolder && existing.itemType == VIT_Folder) ? VVS_Success : VVS_PathAlreadyExists;
}

VirtualVolumeStatus VirtualFolder::CheckSameKeyAndOwner(const std::wstring& newFilePath) {
    QC_TRACE_THIS(L"VirtualFolder::CheckSameKeyAndOwner");
    bool isKnown = true;  // unknown keys must not compare equal, as two empty ones do
    const std::wstring srcTargetKeyId = GetFolderTargetKeyId(m_state.Path(), &isKnown);
    const std::wstring destTargetKeyId = GetFolderTargetKeyId(newFilePath, &isKnown);
    QC_CHECK_OR_RETURN(isKnown, VSS_EncryptError, L"isKnown =>false%s, ");
    // Without keys, a folder with a policy must not be moved to where there is none, nor the reverse.
    const bool needsPolicy = srcTargetKeyId.empty() && destTargetKeyId.empty();
    const bool policyMatched =
        !needsPolicy || DoesFolderHavePolicy(m_state.Path(), &isKnown) == DoesFolderHavePolicy(newFilePath, &isKnown);
    QC_CHECK_OR_RETURN(isKnown, VSS_EncryptError, L"isKnown =>false%s, ");
    const bool targetKeyIdMatched = policyMatched && EqualNoCase(srcTargetKeyId, destTargetKeyId);
    QC_LOG(L"TargetKeyId[%s], srcTargetKeyId[%s], destTargetKeyId[%s]", targetKeyIdMatched ? L"Matched" : L"Not Matched", srcTargetKeyId,
           destTargetKeyId);
    QC_CHECK_OR_RETURN(targetKeyIdMatched, VVS_GeneralError, L"targetKeyIdMatched =>false%s, ");
    const std::wstring srcOwnerId = GetOwnerId(m_state.Path(), &isKnown);
    const std::wstring destOwnerId = GetOwnerId(newFilePath, &isKnown);
    QC_CHECK_OR_RETURN(isKnown, VSS_EncryptError, L"isKnown =>false%s, ");
    const bool ownerIdMatched = EqualNoCase(srcOwnerId, destOwnerId);
    QC_LOG(L"OwnerId[%s], srcOwnerId[%s], destOwnerId[%s]", ownerIdMatched ? L"Matched" : L"Not Matched", srcOwnerId, destOwnerId);
    QC_CHECK_OR_RETURN(ownerIdMatched, VVS_GeneralError, L"ownerIdMatched =>false%s, ");
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFolder::Move(const wchar_t* newFilePath, bool keepSrcFile, const wchar_t* newFileLockToken) {
    QC_TRACE_THIS(L"VirtualFolder::Move", L"in:newFilePath[%s], this:itemFullPath[%s]", newFilePath, m_state.Path());
    if (!keepSrcFile) {
        QC_CHECK_STATUS_OR_RETURN(Rename(newFilePath, newFileLockToken), L"Rename(newFilePath, newFileLockToken) =>%s, ");
        return qcLog.Leave(VVS_Success);
    }
    QC_CHECK_STATUS_OR_RETURN(AreSameFile(m_state.Path(), newFilePath) ? VVS_PathAlreadyExists : CheckDestination(newFilePath, true),
                              L"CheckDestination(newFilePath) =>%s, ");
    QC_CHECK_STATUS_OR_RETURN(RefuseWhileEditsWait(), L"RefuseWhileEditsWait() =>%s, ");
    const VirtualVolumeStatus matched = CheckSameKeyAndOwner(newFilePath);
    if (matched != VVS_Success)
        return qcLog.Leave(matched);
    // Some systems do not list a folder that is open for deletion, as it is here.
    CreateFileW(m_state.Path(), GENERIC_READ, kShareAll, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, m_hFile);
    const Win32Error copied = qcCopyFileOrFolder(m_state.Path(), newFilePath, false);
    QC_CHECK_OR_RETURN(copied == Win32Error::None, StatusOfCall(copied),
                       L"qcCopyFileOrFolder(m_itemFullPath, newFilePath, false) == 0L =>false%s, ");
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFolder::Rename(const wchar_t* newFilePath, const wchar_t*) {
    QC_TRACE_THIS(L"VirtualFolder::Rename", L"in:newFilePath[%s], this:itemFullPath[%s]", newFilePath, m_state.Path());
    QC_CHECK_STATUS_OR_RETURN(RefuseWhileNeeded(), L"RefuseWhileNeeded() =>%s, ");
    if (m_state.Path() == newFilePath)
        return qcLog.Leave(VVS_Success);
    QC_CHECK_STATUS_OR_RETURN(CheckDestination(newFilePath, false), L"CheckDestination(newFilePath) =>%s, ");
    const VirtualVolumeStatus matched = CheckSameKeyAndOwner(newFilePath);
    if (matched != VVS_Success)
        return qcLog.Leave(matched);
    QC_CHECK_STATUS_OR_RETURN(RenameItem(m_hFile.Get(), m_state, newFilePath), L"VirtualItem::RenameItem(newFilePath) =>%s, ");
    const std::wstring oldPath = m_state.Path();
    m_state.SetPath(newFilePath);
    VirtualTempFileDispenser::MoveFolder(oldPath, newFilePath);
    QC_LOG(L"this:itemFullPath[%s]", m_state.Path());
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFolder::Close() {
    if (m_closed)
        return VVS_Success;
    QC_TRACE_THIS(L"VirtualFolder::Close", L"this:itemFullPath[%s]", m_state.Path());
    m_closed = true;
    m_hFile.Reset();
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFolder::Delete() {
    QC_TRACE_THIS(L"VirtualFolder::Delete", L"this:itemFullPath[%s]", m_state.Path());
    if (!m_deleted) {
        QC_CHECK_STATUS_OR_RETURN(RefuseWhileNeeded(), L"RefuseWhileNeeded() =>%s, ");
        QC_CHECK_STATUS_OR_RETURN(RefuseWhileEditsWait(), L"RefuseWhileEditsWait() =>%s, ");
        QC_CHECK_STATUS_OR_RETURN(StatusOfCall(DeleteUndeleteFile(m_hFile.Get(), true)), L"DeleteUndeleteFile(m_hFile, true) =>%s, ");
        m_deleted = true;
    }
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFolder::Undelete() {
    QC_TRACE_THIS(L"VirtualFolder::Undelete", L"this:itemFullPath[%s]", m_state.Path());
    if (m_deleted) {
        QC_CHECK_STATUS_OR_RETURN(StatusOfCall(DeleteUndeleteFile(m_hFile.Get(), false)), L"DeleteUndeleteFile(m_hFile, false) =>%s, ");
        m_deleted = false;
    }
    return qcLog.Leave(VVS_Success);
}

bool VirtualFolder::GetFileInfo(VirtFindData* virtFindData) {
    QC_TRACE_THIS(L"VirtualFolder::GetFileInfo");
    if (!m_state.findData) {
        VirtFindData findData{};
        if (!VirtualFindFile::DescribeOnDisk(m_state.Path(), VIT_Folder, &findData))
            return qcLog.Leave(false);
        m_state.findData = findData;
    }
    *virtFindData = *m_state.findData;
    return qcLog.Leave(true);
}
