// Closing an encrypted file: its edit is saved, under a conflict name if the base is no longer stored, or the
// container is deleted. Also what moves do with the container.
#include "items/EncryptedContent.h"

#include <new>

#include "common/SaveNames.h"
#include "diagnostics/Trace.h"
#include "files/Deletion.h"
#include "files/OpenFile.h"
#include "items/BackupFile.h"
#include "items/ContainerCipher.h"
#include "items/SaveGate.h"
#include "items/TrackingFile.h"
#include "items/VirtualItem.h"
#include "library/Disk.h"
#include "library/FileVersion.h"
#include "library/Paths.h"
#include "library/Status.h"
#include "library/Text.h"
#include "namespace/VirtualFindFile.h"
#include "policy/HvcUtils.h"

namespace {

constexpr int kMostConflictNames = 1000;
constexpr int kSaveAttempts = 3;

}  // namespace

VirtualVolumeStatus EncryptedContent::Close(bool isDeleted) {
    QC_TRACE_THIS(L"VirtualFile::CloseContent");
    if (isDeleted)
        return qcLog.Leave(CloseDeleted());
    VirtualVolumeStatus status = VVS_QuelcryptException;
    try {
        status = EncryptChangedTempFileIfNeeded();
        SaveOvertakenEdit();
    } catch (const std::bad_alloc&) {
        status = VSS_OutMemory;
    } catch (...) {  // as after any failed save, the copy is kept below
    }
    m_copy.GiveBack(m_state.Path(), m_base);
    m_lock = {};
    return qcLog.Leave(status);
}

// Deletes the document and the edits of it that the user could see. Not an edit of a version that somebody else stored since, nor a
// waiting edit of an earlier document of this name, when this handle created the document.
VirtualVolumeStatus EncryptedContent::CloseDeleted() {
    QC_TRACE_THIS(L"VirtualFile::CloseDeleted");
    VirtualVolumeStatus status = VVS_GeneralError;
    bool mayStillExist = true;  // the deletion may have failed
    try {
        const SaveGate gate(StoredPath());
        status = DeleteContainer();
        mayStillExist = status == VVS_GeneralError;
    } catch (...) {  // not enough memory
    }
    if (mayStillExist) {  // then its unsaved edit must be kept too
        if (m_copy.IsMade())
            DeleteUndeleteFile(m_copy.File(), false);
        m_copy.GiveBack(m_state.Path(), m_base);
    } else {
        m_copy.Discard();
        VirtualTempFileDispenser::Remove(m_state.Path(), true, m_deletedEdit);
    }
    m_lock = {};
    return qcLog.Leave(status);
}

// A locked container is marked for deletion already, and deleted when the lock is released.
VirtualVolumeStatus EncryptedContent::DeleteContainer() {
    if (m_lock.locked)
        return VVS_Success;
    QC_TRACE_THIS(L"VirtualFile::DeleteContainer");
    const DeleteResult result = DeleteFileOrFolder(StoredPath(), m_deletedVersion);
    QC_CHECK_STATUS_OR_RETURN(result != DeleteResult::Replaced ? VVS_Success : VSS_SharingViolation,
                              L"IsStillVersion(m_deletedVersion, container) =>%s, ");
    QC_CHECK_STATUS_OR_RETURN(result == DeleteResult::Deleted ? VVS_Success : VVS_GeneralError,
                              L"DeleteFileOrFolder(GetZipFilePath()) =>%s, ");
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus EncryptedContent::EncryptChangedTempFileIfNeeded() {
    if (!m_copy.IsMade())
        return VVS_Success;
    QC_TRACE_THIS(L"VirtualFile::EncryptChangedTempFileIfNeeded", L"%s", DescriptionStr());
    if (!m_copy.HoldsEdit()) {
        QC_CHECK_STATUS_OR_RETURN(DeleteFileOrFolder(TrackingPath()) == DeleteResult::Deleted ? VVS_Success : VVS_GeneralError,
                                  L"DeleteFileOrFolder(GetTempTrackingFile()) =>%s, ");
        return qcLog.Leave(VVS_Success);
    }
    m_copy.SettleTime();
    m_gate.emplace(StoredPath());
    const OnExit leaveGate([this] { m_gate.reset(); });
    const bool isTaken = IsSourceChanged() || IsLockedByOthers() || IsNameTaken();
    VirtualVolumeStatus status = isTaken ? SaveUnderFreeName() : EncryptChangedTempFile();
    for (int attempt = 0; status == VVS_PathAlreadyExists && attempt < kSaveAttempts; ++attempt)
        status = SaveUnderFreeName();
    QC_CHECK_STATUS_OR_RETURN(status, L"EncryptChangedTempFile() =>%s, ");
    return qcLog.Leave(VVS_Success);
}

// Was a lock taken after the item had been opened? Nobody but its holder may change the file then.
bool EncryptedContent::IsLockedByOthers() const { return !m_lock.locked && FileLocker::IsLocked(StoredPath()); }

// Was a document stored since that is shown under the name of this new container?
bool EncryptedContent::IsNameTaken() const { return !m_base && PathExists(ZipPathStr(StoredPath())) && !PathExists(StoredPath()); }

// Gives the item the first free conflict name, and creates an empty container there, which the writer replaces, so that two
// saves cannot take the same name. False: no name is left. When the folder refuses new files, the save itself reports why.
bool EncryptedContent::ReserveFreeName(const std::wstring& ownPath, bool& isReserved) {
    for (int number = 1; number <= kMostConflictNames; ++number) {
        const std::wstring name = SaveNameStr(PathStripPathStr(ownPath), SaveName::ConflictedEdit, number);
        m_state.SetPath(FormatStr(L"%s\\%s", PathRemoveFileSpecStr(ownPath), name));
        if (PathExists(m_state.Path()) || PathExists(StoredPath()))
            continue;
        UniqueHandle hReserved;
        isReserved =
            VirtualItem::CreateFileW(StoredPath(), GENERIC_WRITE, kShareAll, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, hReserved) == VVS_Success;
        if (isReserved || GetLastError() != ERROR_FILE_EXISTS)
            return true;
    }
    return false;
}

// Saves beside a container that somebody else changed or locked. Encrypting takes long, so before the container is put in place it is
// checked again that the name is free. When saving fails the item keeps its own name, under which the edit is found again.
VirtualVolumeStatus EncryptedContent::SaveUnderFreeName() {
    QC_TRACE_THIS(L"VirtualFile::SwitchToConflictNameIfSrcChanged", L"%s", DescriptionStr());
    const std::wstring ownPath = m_state.Path();
    const std::optional<FileVersion> ownBase = m_base;
    const LockedFile ownLock = std::move(m_lock);
    m_lock = {};
    bool isReserved = false;
    bool isSaved = false;
    const OnExit restoreUnlessSaved([&] {
        if (!m_copy.HoldsEdit() && isSaved)
            return;
        if (isReserved)
            DeleteIfEmpty(StoredPath());
        m_base = ownBase;
        m_state.SetPath(ownPath);
    });
    QC_CHECK_OR_RETURN(ReserveFreeName(ownPath, isReserved), VVS_GeneralError, L"number <= kMostConflictNames =>false%s, ");
    m_base = ReadFileVersion(StoredPath());
    const VirtualVolumeStatus status = EncryptChangedTempFile();
    isSaved = status == VVS_Success && !m_isBackedUp;
    return qcLog.Leave(status);
}

VirtualVolumeStatus EncryptedContent::EncryptChangedTempFile() {
    QC_TRACE_THIS(L"VirtualFile::EncryptChangedTempFile", L"%s", DescriptionStr());
    VirtualVolumeStatus status = VVS_Success;
    if (m_lock.locked) {
        status = container_cipher::EncryptOpenFileLocked(StoredPath(), m_state.Name(), {m_copy.Path(), m_copy.File()}, m_lock);
        if (status == VVS_Success)
            RememberSavedState();
        else
            FollowOwnLock();
    } else {
        status = EncryptOpenFileUnlocked();
    }
    QC_CHECK_STATUS_OR_RETURN(status, L"EncryptOpenFile(GetZipFilePath(), m_itemName, m_tempFilePath) =>%s, ");
    QC_CHECK_STATUS_OR_RETURN(DeleteFileOrFolder(TrackingPath()) == DeleteResult::Deleted ? VVS_Success : VVS_GeneralError,
                              L"DeleteFileOrFolder(GetTempTrackingFile()) =>%s, ");
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus EncryptedContent::EncryptOpenFileUnlocked() {
    QC_TRACE_THIS(L"VirtualFile::EncryptOpenFileUnlocked");
    const VirtualVolumeStatus status = container_cipher::EncryptOpenFileInternal(
        StoredPath(), m_state.Name(), {m_copy.Path(), m_copy.File()},
        [this] { return IsLockedByOthers() ? VVS_PathAlreadyExists : container_cipher::LookAtReplaced(StoredPath(), m_base); });
    if (status == VVS_Success)
        RememberSavedState();
    if (status == VVS_Success || status == VVS_PathAlreadyExists || !m_mayAskUser)
        return qcLog.Leave(status);
    m_gate.reset();  // the user may take long, and others may save meanwhile
    QC_CHECK_OR_RETURN(BackupTempFile(m_copy.Path(), StoredPath(), m_state.Name(), DescriptionStr()), VVS_GeneralError,
                       L"BackupTempFile(srcFilePath, zipFilePath) =>false%s, ");
    m_copy.WasBackedUp();
    m_isBackedUp = true;
    return qcLog.Leave(VVS_Success);
}

// The copy equals the container again, if the container can be read back. If not, the save still counts, but the copy is not
// used again.
void EncryptedContent::RememberSavedState() {
    m_isBaseKnown = true;
    m_copy.WasSaved(nullptr);
    try {
        m_base = ReadFileVersion(StoredPath());
        VirtFindData stored{};
        LARGE_INTEGER copySize{};
        const bool agrees = m_base && VirtualFindFile::FindContainerOnDisk(StoredPath(), &stored) &&
                            GetFileSizeEx(m_copy.File(), &copySize) && stored.fileSize == copySize.QuadPart;
        if (agrees)
            m_copy.WasSaved(&stored);
    } catch (...) {  // the companion library failed, or there is no memory for a path
    }
}

// An edit of an earlier item may wait for a container that was replaced since. It is saved beside that container now; if that fails
// again, its user is not asked a second time.
void EncryptedContent::SaveOvertakenEdit() {
    if (!VirtualTempFileDispenser::HoldsUnsavedEdit(m_state.Path()))  // the common case, without access to the disk
        return;
    ItemState state;
    state.SetPath(m_state.Path());
    EncryptedContent overtaken(state);
    overtaken.m_mayAskUser = false;
    overtaken.m_isBaseKnown = true;
    RetainedCopy waiting;
    if (!VirtualTempFileDispenser::TakeOvertakenEdit(m_state.Path(), ReadFileVersion(StoredPath()), waiting))
        return;
    bool isTaken = false;
    const OnExit keepWaiting([&] {
        if (!isTaken)
            VirtualTempFileDispenser::Retain(m_state.Path(), waiting);
    });
    UniqueHandle hFile;
    if (VirtualItem::CreateFileW(waiting.tempFilePath, kFullContentAccess, kShareAll, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, hFile) !=
        VVS_Success)
        return;
    overtaken.m_base = waiting.container;
    overtaken.m_copy.Make(waiting, std::move(hFile), false);
    isTaken = true;
    overtaken.Close(false);
}

VirtualVolumeStatus EncryptedContent::CheckMayGo() {
    const VirtualVolumeStatus status = CheckBase();
    if (status != VVS_Success)
        return status;
    if (m_lock.locked) {
        const SectionGuard guard(m_lock.content->section);
        return m_lock.content->isDeleted ? VVS_GeneralError : VVS_Success;
    }
    const VirtualVolumeStatus mayDelete = VirtualItem::CheckDeletable(StoredPath());
    return mayDelete == VVS_FileNotFound ? VVS_Success : mayDelete;  // it may not be stored yet
}

VirtualVolumeStatus EncryptedContent::DeleteOldContainer() {
    QC_TRACE_THIS(L"VirtualFile::DeleteOldContainer");
    const DeleteResult result = !m_lock.locked      ? DeleteFileOrFolder(StoredPath(), m_base)
                                : IsSourceChanged() ? DeleteResult::Replaced
                                                    : DeleteResult::Deleted;
    QC_CHECK_OR_RETURN(result != DeleteResult::Replaced, VSS_SharingViolation, L"!IsSourceChanged() =>false%s, ");
    QC_CHECK_OR_RETURN(result == DeleteResult::Deleted, VVS_GeneralError, L"DeleteFileOrFolder(prevZipFilePath) =>false%s, ");
    if (m_lock.locked) {
        const SectionGuard guard(m_lock.content->section);
        QC_CHECK_STATUS_OR_RETURN(StatusOfCall(DeleteUndeleteFile(m_lock.hFile.Get(), true)),
                                  L"DeleteUndeleteFile(m_hLockedFile, true) =>%s, ");
        m_lock.content->isDeleted = true;
    }
    return qcLog.Leave(VVS_Success);
}

void EncryptedContent::SavedAt(const std::wstring& newFilePath, LockedFile* newLock) {
    QC_TRACE_THIS(L"VirtualFile::SavedAt", L"in:newFilePath[%s], %s", newFilePath, DescriptionStr());
    if (newLock)
        m_lock = std::move(*newLock);
    m_state.SetPath(newFilePath);
    RememberSavedState();
    FollowTrackingFile();
}

// If another version than the base was renamed, the base stays, so that the next save notices the difference.
void EncryptedContent::RenamedTo(const std::wstring& newFilePath) {
    QC_TRACE_THIS(L"VirtualFile::RenamedTo", L"in:newFilePath[%s], %s", newFilePath, DescriptionStr());
    m_state.SetPath(newFilePath);
    const std::optional<FileVersion> arrived = ReadFileVersion(StoredPath());
    if (m_base && arrived && IsMovedVersion(*m_base, *arrived))
        m_base = arrived;
    FollowTrackingFile();
}

void EncryptedContent::FollowTrackingFile() {
    QC_TRACE_THIS(L"VirtualFile::FollowTrackingFile");
    if (m_copy.IsMade() && !SaveTrackerFileItem())
        QC_REPORT(L"SaveTrackerFileItem() =>false%s, ");
}

void EncryptedContent::TakeCopy(RetainedCopy copy, UniqueHandle hFile) {
    QC_TRACE_THIS(L"VirtualFile::TakeCopy", L"%s", DescriptionStr());
    // It is not retained after the close, because somebody else may still write into what was a plain file.
    m_copy.Make(std::move(copy), std::move(hFile), false);
    FollowTrackingFile();
}
