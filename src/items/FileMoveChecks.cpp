// Whether a file may be moved or copied where it is to go: before anything is done, and at the last moment. How it is done is in
// FileMove.cpp.
#include "items/FileMove.h"

#include "diagnostics/Trace.h"
#include "items/EncryptedContent.h"
#include "items/PlainContent.h"
#include "items/VirtualItem.h"
#include "items/VirtualTempFileDispenser.h"
#include "library/Disk.h"
#include "library/Text.h"
#include "locks/FileLocker.h"
#include "namespace/VirtualFindFile.h"
#include "policy/HvcUtils.h"

namespace {

// Texts of checks.
constexpr wchar_t kGetLockedFileText[] =
    L"FileLocker::GetLockedFile(newFilePath, (0x40000000L), newFileLockToken, newFileLocked, hNewFile) =>%s, ";

// What a file on disk is shown as; a plain file when it is missing.
VirtualItemType TypeOf(const std::wstring& path) {
    VirtFindData findData{};
    return IsExistingFile(path) && VirtualFindFile::FindFile(path.c_str(), &findData) ? findData.itemType : VIT_PlainFile;
}

}  // namespace

VirtualVolumeStatus FileMove::Check(const wchar_t* newFileLockToken, bool destEncrypted, bool& isDone) {
    QC_TRACE_THIS(L"FileMove::Check");
    const std::wstring sourcePath = m_content->StoredPath();
    m_replaced = ReadFileVersion(m_destPath);
    m_wasThere = m_replaced.has_value();
    QC_CHECK_OR_RETURN(m_wasThere || GetLastError() != ERROR_PATH_NOT_FOUND, VVS_PathNotFound, L"ReadFileVersion(newFilePath) =>false%s, ");
    m_sameFile = m_wasThere && sourcePath != m_destPath ? AreSameFile(sourcePath, m_destPath) : EqualNoCase(sourcePath, m_destPath);
    // A link that replaced its target would lead nowhere.
    if (m_sameFile && !EqualNoCase(sourcePath, m_destPath) && (IsLink(sourcePath) || IsLink(m_destPath)))
        return qcLog.Leave(VVS_PathAlreadyExists);
    // A plain file has the path of a conflict copy.
    const bool isBesidePlainFile = m_content->IsEncrypted() && PathExists(m_state.Path());
    const bool isOwnPath = m_sameFile || EqualNoCase(m_newFilePath, m_state.Path());  // perhaps in the other form
    if (isOwnPath && m_keepSrcFile)
        return qcLog.Leave(VVS_PathAlreadyExists);
    if (m_sameFile && (m_content->IsEncrypted() != destEncrypted || isBesidePlainFile))
        return qcLog.Leave(VVS_PathAlreadyExists);
    isDone = m_sameFile && m_newFilePath == m_state.Path();
    if (isDone)
        return qcLog.Leave(VVS_Success);
    QC_CHECK_OR_RETURN(!m_sameFile || !FileLocker::IsLockedByAnother(m_destPath, newFileLockToken), VVS_Locked,
                       L"!IsLockedByAnother(newFilePath, newFileLockToken) =>false%s, ");
    if (!m_sameFile)
        QC_CHECK_STATUS_OR_RETURN(
            FileLocker::GetLockedFile(m_destPath.c_str(), GENERIC_WRITE, GENERIC_READ | DELETE, newFileLockToken, &m_newFile),
            kGetLockedFileText);
    QC_CHECK_STATUS_OR_RETURN(CheckDestination(destEncrypted), L"CheckDestination(newFilePath) =>%s, ");
    QC_CHECK_STATUS_OR_RETURN(CheckSource(), L"CheckSource() =>%s, ");
    return qcLog.Leave(VVS_Success);
}

// May the destination be written? Only the file that is shown under the new name may be replaced, in whichever form
// it is stored; never one that only has the destination's name on disk: a conflict copy, an ordinary ZIP file.
VirtualVolumeStatus FileMove::CheckDestination(bool destEncrypted) {
    const std::wstring newZipPath = ZipPathStr(m_newFilePath);
    const std::wstring sourcePath = m_content->StoredPath();
    const std::optional<FileStamp> plain =
        !destEncrypted ? m_replaced ? std::optional(m_replaced->stamp) : std::nullopt : ReadFileStamp(m_newFilePath);
    if (plain && (plain->attributes & FILE_ATTRIBUTE_DIRECTORY))
        return VVS_PathAlreadyExists;
    if (m_sameFile)
        return VVS_Success;
    const bool plainIsThere = plain && (m_content->IsEncrypted() || !destEncrypted || !EqualNoCase(m_newFilePath, sourcePath));
    const bool zipIsThere = destEncrypted ? m_wasThere : PathExists(newZipPath) && !EqualNoCase(newZipPath, sourcePath);
    const bool containerIsThere = zipIsThere && (m_newFile.locked || TypeOf(newZipPath) == VIT_EncryptedFile);
    if (!MayReplace() && (plainIsThere || containerIsThere) && !m_newFile.locked)
        return VVS_PathAlreadyExists;
    if (destEncrypted) {
        if (zipIsThere && (plain || !containerIsThere))
            return VVS_PathAlreadyExists;
        // A plain file with a container's name may be another document's container; and a container must not get the
        // name under which another document is shown.
        if ((plainIsThere && EndsWithNoCase(m_newFilePath, kContainerExtension)) || (!zipIsThere && PathExists(ZipPathStr(newZipPath))))
            return VVS_PathAlreadyExists;
        m_otherFormPath = plainIsThere ? m_newFilePath : std::wstring();
    } else {
        if (plainIsThere && TypeOf(m_newFilePath) != VIT_PlainFile)
            return VVS_PathAlreadyExists;
        m_otherFormPath = containerIsThere && !plainIsThere ? newZipPath : std::wstring();
    }
    if (m_otherFormPath.empty())
        return VVS_Success;
    m_otherForm = ReadFileVersion(m_otherFormPath);
    return FileLocker::IsLocked(m_otherFormPath) ? VVS_Locked : VirtualItem::CheckDeletable(m_otherFormPath);
}

VirtualVolumeStatus FileMove::CheckSource() {
    if (m_keepSrcFile)
        return VVS_Success;
    if (!m_content->IsEncrypted())
        return Plain().MayDelete() ? VVS_Success : VVS_AccessDenied;
    const bool isOwnFile = m_sameFile && !DestLock().locked;
    const VirtualVolumeStatus status = isOwnFile ? Encrypted().CheckBase() : Encrypted().CheckMayGo();
    // A waiting edit moves with its file.
    if (status == VVS_Success && VirtualTempFileDispenser::HoldsUnsavedEdit(m_state.Path()))
        return Encrypted().PrepareContent();
    return status;
}

// The last check, after everything that takes long: the destination is what it was when the move began, and the source may still be
// deleted.
VirtualVolumeStatus FileMove::LookAgain() {
    if (MayReplace() && !DestLock().locked) {
        const VirtualVolumeStatus status = container_cipher::LookAtReplaced(m_destPath, m_replaced);
        if (status != VVS_Success)
            return VSS_SharingViolation;
    }
    const bool isSourceGoing = !m_keepSrcFile && (!m_sameFile || DestLock().locked);
    return m_content->IsEncrypted() && isSourceGoing ? Encrypted().CheckMayGo() : VVS_Success;
}
