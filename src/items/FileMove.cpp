#include "items/FileMove.h"

#include "common/SaveNames.h"
#include "common/TrackingText.h"
#include "diagnostics/Trace.h"
#include "files/Deletion.h"
#include "files/OpenFile.h"
#include "files/SideFile.h"
#include "items/ContentCopy.h"
#include "items/EncryptedContent.h"
#include "items/HeldSource.h"
#include "items/PlainContent.h"
#include "items/SaveGate.h"
#include "items/VirtualItem.h"
#include "library/Disk.h"
#include "library/Paths.h"
#include "library/Patience.h"
#include "library/Status.h"
#include "library/Text.h"
#include "library/Win32Error.h"
#include "policy/HvcUtils.h"

namespace {

// Texts of checks.
constexpr wchar_t kTempNameText[] = L"VirtualTempFileDispenser::CreateTempFileName(newFileName, asidePath) =>false%s, ";
constexpr wchar_t kEncryptPlainFileText[] =
    L"EncryptOpenFile(newZipFilePath, virtualFileSpec, m_itemFullPath, newFileLocked, hNewFile) =>%s, ";
constexpr wchar_t kEncryptTempFileText[] =
    L"EncryptOpenFile(newZipFilePath, virtualFileSpec, m_tempFilePath, newFileLocked, hNewFile) =>%s, ";
constexpr wchar_t kHoldNameText[] = L"CreateFileW(newZipFilePath, (0x40000000L), 0x00000007, 1, 0x80, hHeld) =>%s, ";

}  // namespace

FileMove::FileMove(ItemState& state, std::unique_ptr<FileContent>& content, const wchar_t* newFilePath, bool renameSrcFile,
                   bool keepSrcFile)
    : m_state(state), m_content(content), m_newFilePath(newFilePath), m_renameSrcFile(renameSrcFile), m_keepSrcFile(keepSrcFile) {}

PlainContent& FileMove::Plain() const { return static_cast<PlainContent&>(*m_content); }

const LockedFile& FileMove::DestLock() const { return m_sameFile && m_content->IsEncrypted() ? Encrypted().Lock() : m_newFile; }

EncryptedContent& FileMove::Encrypted() const { return static_cast<EncryptedContent&>(*m_content); }

std::wstring FileMove::LogStr() const {
    return FormatStr(L"in:newFilePath[%s], renameSrcFile[%s], keepSrcFile[%s], %s", m_newFilePath, FormatBoolStr(m_renameSrcFile),
                     FormatBoolStr(m_keepSrcFile), m_content->DescriptionStr());
}

VirtualVolumeStatus FileMove::Run(const wchar_t* newFileLockToken) {
    QC_TRACE_THIS(L"FileMove::Run");
    bool isKnown = true;
    const bool destEncrypted = ShouldFileBeEncrypted(m_newFilePath, &isKnown);
    // An unencrypted file in a protected folder might be synchronised before anybody notices.
    QC_CHECK_OR_RETURN(isKnown, VSS_EncryptError, L"isKnown =>false%s, ");
    // As at the open of a new file: refuse now what could not be saved later.
    QC_CHECK_OR_RETURN(IsNameForNewFile(PathStripPathStr(m_newFilePath), destEncrypted), VVS_InvalidParameter,
                       L"IsNameForNewFile(PathStripPathStr(newFilePath)) =>false%s, ");
    m_destPath = destEncrypted ? ZipPathStr(m_newFilePath) : m_newFilePath;
    const std::wstring oldPath = m_state.Path();
    const bool wasEncrypted = m_content->IsEncrypted();
    // The destination's other form, if it is a container, may be deleted as well.
    const SaveGates gates(ZipPathStr(m_state.Path()), ZipPathStr(m_newFilePath));
    const bool startsEmpty = wasEncrypted ? Encrypted().StartsEmpty() : Plain().StartsEmpty();
    const std::optional<FileVersion> base = wasEncrypted ? Encrypted().Base() : std::nullopt;
    bool isMoved = false;
    const OnExit startEmptyAgain([&] {  // the stored content or a waiting edit was moved; the handle's content is still empty
        if (startsEmpty && m_content->IsEncrypted())
            Encrypted().StartEmptyAgain(isMoved ? Encrypted().Base() : base);
        else if (startsEmpty)
            Plain().StartEmpty();
    });
    bool isDone = false;
    VirtualVolumeStatus status = Check(newFileLockToken, destEncrypted, isDone);
    if (status != VVS_Success || isDone)
        return qcLog.Leave(status);
    status = Dispatch(destEncrypted);
    isMoved = status == VVS_Success;
    if (!isMoved)
        return qcLog.Leave(status);
    const OnExit tidyUp([&] {  // failures here do not matter: the move is done
        if (!m_otherFormPath.empty())
            DeleteFileOrFolder(m_otherFormPath, m_otherForm);
        if (wasEncrypted && !m_keepSrcFile)
            VirtualTempFileDispenser::Remove(oldPath, true);
    });
    if (!m_keepSrcFile)
        m_state.findData.reset();
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus FileMove::Dispatch(bool destEncrypted) {
    if (m_content->IsEncrypted())
        return destEncrypted ? MoveFromHalvaneToHalvane() : MoveFromHalvaneToPlain();
    if (destEncrypted)
        return MoveFromPlainToHalvane();
    return m_newFile.locked ? MoveFromPlainToPlainLocked() : MoveFromPlainToPlainUnlocked();
}

VirtualVolumeStatus FileMove::MoveFromPlainToPlainUnlocked() {
    QC_TRACE_THIS(L"VirtualFile::MoveFromPlainToPlainUnlocked", L"%s", LogStr());
    PlainContent& source = Plain();
    if (m_sameFile || (m_renameSrcFile && !source.IsLocked())) {
        // Some systems rename whatever is now at the path that the handle was opened by.
        const auto lastLook = [&] { return m_sameFile ? VVS_Success : source.IsAtItsPath() ? LookAgain() : VSS_SharingViolation; };
        QC_CHECK_STATUS_OR_RETURN(VirtualItem::RenameItem(source.WorkingFile(), m_state, m_newFilePath, lastLook),
                                  L"VirtualItem::RenameItem(newFilePath) =>%s, ");
        SaveCount(m_destPath).Keep();
        m_state.SetPath(m_newFilePath);
        return qcLog.Leave(VVS_Success);
    }
    if (m_keepSrcFile && !source.IsLocked()) {
        const Win32Error error = CopyInPlace(m_state.Path(), m_newFilePath, false, &m_replaced);
        QC_CHECK_OR_RETURN(error == Win32Error::None, StatusOfCall(error),
                           L"::CopyFileW(m_itemFullPath, newFilePath, 0) != 0 =>false%s,  %s", L"Error[%s]",
                           SystemErrorStr(static_cast<DWORD>(error)));
        return qcLog.Leave(VVS_Success);
    }
    if (!source.IsLocked())
        return qcLog.Leave(MovePlainFile());
    // The lock holds a locked source open: its content is copied, and it is deleted when the lock ends.
    QC_CHECK_STATUS_OR_RETURN(WithLockedSource([this](HANDLE hSource) { return PutCopyInPlace(hSource); }),
                              L"PutCopyInPlace(hSource, newFilePath) =>%s, ");
    if (!m_keepSrcFile)
        BecomePlain();
    return qcLog.Leave(VVS_Success);
}

// Writes the content of a locked plain source elsewhere, and then marks the source for deletion unless it is only copied: no other
// opener writes in between.
VirtualVolumeStatus FileMove::WithLockedSource(const std::function<VirtualVolumeStatus(HANDLE)>& write) {
    QC_TRACE_THIS(L"FileMove::WithLockedSource");
    PlainContent& source = Plain();
    QC_CHECK_OR_RETURN(m_keepSrcFile || !source.IsReadOnly(), VVS_AccessDenied, L"!source.IsReadOnly() =>false%s, ");
    UniqueHandle hSecond;
    HANDLE hSource = nullptr;
    QC_CHECK_STATUS_OR_RETURN(source.OpenForReading(hSecond, hSource), L"OpenForReading(hSource) =>%s, ");
    const std::shared_ptr<LockedContent> shared = source.Shared();
    const SectionGuard guard(shared->section);
    QC_CHECK_OR_RETURN(!shared->isDeleted, VVS_GeneralError, L"!shared->isDeleted =>false%s, ");
    const VirtualVolumeStatus status = write(hSource);
    if (status != VVS_Success || m_keepSrcFile)
        return qcLog.Leave(status);
    const VirtualVolumeStatus marked = source.MarkForDeletion(true);
    if (marked != VVS_Success)
        TakeBackDestination();
    QC_CHECK_STATUS_OR_RETURN(marked, L"Delete() =>%s, ");
    return qcLog.Leave(VVS_Success);
}

// The move succeeds even if the file cannot be opened again: later calls on the item report that.
VirtualVolumeStatus FileMove::MovePlainFile() {
    QC_TRACE_THIS(L"VirtualFile::MovePlainFile");
    QC_CHECK_OR_RETURN(Plain().IsAtItsPath(), VSS_SharingViolation, L"Plain().IsAtItsPath() =>false%s, ");
    Plain().CloseFile();
    const Win32Error error = TryForAMoment([this] { return file_content::MoveFileW(m_state.Path(), m_newFilePath, 0); });
    if (error == static_cast<Win32Error>(ERROR_NOT_SAME_DEVICE)) {
        Plain().Reopen(false);  // by its handle it is known still to be the file at its path
        return qcLog.Leave(MoveToOtherDisk());
    }
    const bool isRenamed = error == Win32Error::None;
    if (isRenamed)
        m_state.SetPath(m_newFilePath);
    else
        QC_REPORT(L"MoveFileW(m_itemFullPath, newFilePath) != 0 =>false%s,  %s", L"Error[%s]", SystemErrorStr(static_cast<DWORD>(error)));
    Plain().Reopen(isRenamed);
    return qcLog.Leave(StatusOfCall(error));
}

// A file cannot be renamed to another disk, and the platform's own copy could be left half-written under the new name.
VirtualVolumeStatus FileMove::MoveToOtherDisk() {
    QC_TRACE_THIS(L"MoveToOtherDisk", L"srcFilePath[%s], destFilePath[%s]", m_state.Path(), m_newFilePath);
    {
        HeldSource held(Plain());
        QC_CHECK_STATUS_OR_RETURN(held.Hold(m_state.Path()), L"CreateFileW(srcFilePath, hSource) =>%s, ");
        QC_CHECK_STATUS_OR_RETURN(StatusOfCall(CopyInPlace(m_state.Path(), m_newFilePath, true)),
                                  L"CopyInPlace(srcFilePath, destFilePath, true) =>%s, ");
        RememberWritten();
        const VirtualVolumeStatus marked = held.MarkForDeletion();
        if (marked != VVS_Success)
            TakeBackDestination();
        QC_CHECK_STATUS_OR_RETURN(marked, L"DeleteUndeleteFile(hSource, true) =>%s, ");
        held.Moved();
    }
    m_state.SetPath(m_newFilePath);
    Plain().Reopen(true);
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus FileMove::MoveFromPlainToPlainLocked() {
    QC_TRACE_THIS(L"VirtualFile::MoveFromPlainToPlainLocked", L"%s", LogStr());
    if (m_keepSrcFile || Plain().IsLocked()) {
        QC_CHECK_STATUS_OR_RETURN(WithLockedSource([this](HANDLE hSource) { return CopyIntoLockedPlainFile(hSource); }),
                                  L"CopyFileW(m_hFile, hNewFile) =>%s, ");
    } else {
        QC_CHECK_OR_RETURN(!Plain().IsReadOnly(), VVS_AccessDenied, L"!source.IsReadOnly() =>false%s, ");
        HeldSource held(Plain());
        QC_CHECK_STATUS_OR_RETURN(held.Hold(m_state.Path()), L"CreateFileW(m_itemFullPath, hSource) =>%s, ");
        QC_CHECK_STATUS_OR_RETURN(CopyIntoLockedPlainFile(held.File()), L"CopyFileW(m_hFile, hNewFile) =>%s, ");
        QC_CHECK_STATUS_OR_RETURN(held.MarkForDeletion(), L"Delete() =>%s, ");
        held.Moved();
    }
    if (!m_keepSrcFile)
        BecomePlain();
    return qcLog.Leave(VVS_Success);
}

// The old content is kept in a temp file until the new one is complete.
VirtualVolumeStatus FileMove::CopyIntoLockedPlainFile(HANDLE hSource) {
    QC_TRACE_THIS(L"FileMove::CopyIntoLockedPlainFile");
    std::wstring asidePath;
    QC_CHECK_OR_RETURN(VirtualTempFileDispenser::CreateTempFileName(PathStripPathStr(m_newFilePath), asidePath), VVS_GeneralError,
                       kTempNameText);
    UniqueHandle hAside;
    bool isTorn = false;
    const OnExit deleteAside([&] {
        hAside.Reset();
        if (!isTorn)
            VirtualTempFileDispenser::DeleteTempFolder(asidePath);
    });
    QC_CHECK_STATUS_OR_RETURN(
        VirtualItem::CreateFileW(asidePath, kFullContentAccess, FILE_SHARE_READ, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, hAside),
        L"CreateFileW(asidePath, hAside) =>%s, ");
    QC_CHECK_OR_RETURN(file_content::CopyIntoLockedFile(hSource, m_newFile, hAside.Get(), &isTorn), StatusFromLastError(),
                       L"CopyFileW(m_hFile, hNewFile) =>false%s, ");
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus FileMove::MoveFromHalvaneToPlain() {
    QC_TRACE_THIS(L"VirtualFile::MoveFromHalvaneToPlain", L"%s", LogStr());
    QC_CHECK_STATUS_OR_RETURN(Encrypted().PrepareContent(), L"MakeSureTempFileOpenIfNeeded() =>%s, ");
    const HANDLE hSource = m_content->WorkingFile();
    QC_CHECK_STATUS_OR_RETURN(m_newFile.locked ? LookAgain() : VVS_Success, L"LookAgain() =>%s, ");
    QC_CHECK_STATUS_OR_RETURN(m_newFile.locked ? CopyIntoLockedPlainFile(hSource) : PutCopyInPlace(hSource),
                              L"CopyFileW(m_hFile, hNewFile) =>%s, ");
    if (m_keepSrcFile)
        return qcLog.Leave(VVS_Success);
    QC_CHECK_STATUS_OR_RETURN(DeleteSource(), L"DeleteOldContainer() =>%s, ");
    Encrypted().DiscardCopy();
    BecomePlain();
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus FileMove::MoveFromPlainToHalvane() {
    QC_TRACE_THIS(L"VirtualFile::MoveFromPlainToHalvane", L"%s", LogStr());
    if (!m_keepSrcFile && !Plain().IsLocked()) {
        QC_CHECK_STATUS_OR_RETURN(TurnIntoContainer(), L"TurnIntoContainer(newFilePath) =>%s, ");
        return qcLog.Leave(VVS_Success);
    }
    QC_CHECK_STATUS_OR_RETURN(WithLockedSource([this](HANDLE hSource) {
                                  return EncryptTo({m_state.Path(), hSource});
                              }),
                              kEncryptPlainFileText);
    if (!m_keepSrcFile)
        BecomeEncrypted();
    return qcLog.Leave(VVS_Success);
}

// The plain file becomes the item's temp file, so that the item continues with the content that it stored; the close deletes it.
VirtualVolumeStatus FileMove::TurnIntoContainer() {
    QC_TRACE_THIS(L"VirtualFile::TurnIntoContainer");
    RetainedCopy copy;
    QC_CHECK_OR_RETURN(VirtualTempFileDispenser::CreateTempFileName(PathStripPathStr(m_newFilePath), copy.tempFilePath), VVS_GeneralError,
                       L"!tempFilePath.IsEmpty() =>false%s, ");
    bool isTaken = false;
    const OnExit deleteUnlessTaken([&] {
        if (!isTaken)
            VirtualTempFileDispenser::DeleteTempFolder(copy.tempFilePath);
    });
    HeldSource held(Plain());
    QC_CHECK_STATUS_OR_RETURN(held.Hold(m_state.Path()), L"CreateFileW(m_itemFullPath, hSource) =>%s, ");
    QC_CHECK_STATUS_OR_RETURN(EncryptTo({m_state.Path(), held.File()}), kEncryptPlainFileText);
    // By its handle, so that the file that was encrypted is moved, not one that replaced it. This fails if the temp folder is on another
    // disk. What somebody else may delete is not worked on. Some systems rename whatever is at the path that the handle was opened by.
    const bool isInPlace = IsOpenFileAt(held.File(), m_state.Path());
    const bool isMoved = isInPlace && held.IsAlone() && VirtualItem::RenameItem(held.File(), m_state, copy.tempFilePath) == VVS_Success;
    const VirtualVolumeStatus status = isMoved ? VVS_Success : isInPlace ? held.MarkForDeletion() : VSS_SharingViolation;
    if (status != VVS_Success)
        TakeBackDestination();
    QC_CHECK_STATUS_OR_RETURN(status, L"MoveFileW(m_itemFullPath, tempFilePath) =>%s, ");
    held.Moved();
    BecomeEncrypted();
    UniqueHandle hFile;
    isTaken = isMoved && VirtualItem::CreateFileW(copy.tempFilePath, kFullContentAccess, kShareAll, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                                                  hFile) == VVS_Success;
    if (isTaken)
        Encrypted().TakeCopy(copy, std::move(hFile));
    else
        Encrypted().Prepare();  // before anybody else stores there; if it fails, the next access tries again
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus FileMove::MoveFromHalvaneToHalvane() {
    QC_TRACE_THIS(L"VirtualFile::MoveFromHalvaneToHalvane", L"%s", LogStr());
    const bool sameSpec = PathStripPathStr(m_newFilePath) == m_state.Name();
    bool isKnown = true;  // unknown keys must not compare equal
    const bool canJustMove = !m_keepSrcFile && sameSpec && !m_newFile.locked && !Encrypted().Lock().locked &&
                             PathExists(m_content->StoredPath()) &&
                             GetFolderTargetKeyId(PathRemoveFileSpecStr(m_state.Path()), &isKnown) ==
                                 GetFolderTargetKeyId(PathRemoveFileSpecStr(m_newFilePath), &isKnown) &&
                             isKnown;
    QC_LOG(L"ItemFullPath[%s], newFilePath[%s], Same spec[%s], Can just move[%s]", m_state.Path(), m_newFilePath, FormatBoolStr(sameSpec),
           FormatBoolStr(canJustMove));
    // A new file without content is moved to a free path: its first save will create it there.
    const bool isOnlyNamed = Encrypted().IsOnlyNamed() && !m_keepSrcFile && !m_newFile.locked && !m_wasThere && !PathExists(m_newFilePath);
    if (isOnlyNamed)
        Encrypted().RenamedTo(m_newFilePath);
    else
        QC_CHECK_STATUS_OR_RETURN(canJustMove ? MoveContainer() : ReencryptTo(), L"MoveFromHalvaneToHalvane(newFilePath) =>%s, ");
    return qcLog.Leave(VVS_Success);
}

// One rename on disk, whatever the size; the item keeps its temp file and an unsaved edit in it.
VirtualVolumeStatus FileMove::MoveContainer() {
    QC_TRACE_THIS(L"VirtualFile::MoveContainer");
    const DWORD flags = MOVEFILE_WRITE_THROUGH | (m_renameSrcFile ? MOVEFILE_REPLACE_EXISTING : 0);
    VirtualVolumeStatus looked = VVS_Success;
    const Win32Error error = TryForAMoment([&] {
        looked = LookAgain();
        return looked == VVS_Success ? file_content::MoveFileW(m_content->StoredPath(), m_destPath, flags) : Win32Error::None;
    });
    QC_CHECK_STATUS_OR_RETURN(looked, L"LookAgain() =>%s, ");
    if (error == static_cast<Win32Error>(ERROR_NOT_SAME_DEVICE))
        return qcLog.Leave(ReencryptTo());  // the platform's own copy could be left half-written
    QC_CHECK_OR_RETURN(error == Win32Error::None, StatusOfCall(error), L"MoveFileW(GetZipFilePath(), newZipFilePath) =>false%s, ");
    SaveCount(m_destPath).Keep();
    Encrypted().RenamedTo(m_newFilePath);
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus FileMove::ReencryptTo() {
    QC_TRACE_THIS(L"VirtualFile::ReencryptTo");
    EncryptedContent& source = Encrypted();
    QC_CHECK_STATUS_OR_RETURN(source.PrepareContent(), L"MakeSureTempFileOpenIfNeeded() =>%s, ");
    QC_CHECK_STATUS_OR_RETURN(EncryptTo({source.WorkingPath(), source.WorkingFile()}), kEncryptTempFileText);
    if (m_keepSrcFile)
        return qcLog.Leave(VVS_Success);
    if (!m_sameFile)
        QC_CHECK_STATUS_OR_RETURN(DeleteSource(), L"DeleteOldContainer() =>%s, ");
    source.SavedAt(m_newFilePath, m_sameFile ? nullptr : &m_newFile);
    return qcLog.Leave(VVS_Success);
}

// A move replaces nothing, not even a file that appears at its destination meanwhile: an empty file, which the writer replaces,
// reserves the path.
VirtualVolumeStatus FileMove::EncryptTo(const container_cipher::PlainSource& source) {
    QC_TRACE_THIS(L"VirtualFile::EncryptTo");
    const std::wstring virtualFileSpec = PathStripPathStr(m_newFilePath);
    const LockedFile& dest = DestLock();
    if (dest.locked) {
        // Without a tracking file, the companion library would take the source's key.
        QC_CHECK_OR_RETURN(m_sameFile || IsNameForNewFile(virtualFileSpec + std::wstring(kTrackingExtension), true), VVS_InvalidParameter,
                           L"IsNameForNewFile(TrackingFilePathStr(virtualFileSpec)) =>false%s, ");
        QC_CHECK_STATUS_OR_RETURN(LookAgain(), L"LookAgain() =>%s, ");
        const VirtualVolumeStatus status = container_cipher::EncryptOpenFileLocked(m_destPath, virtualFileSpec, source, dest);
        if (status != VVS_Success && m_sameFile)
            Encrypted().FollowOwnLock();
        return qcLog.Leave(status);
    }
    const bool isHeld = !MayReplace() && !m_sameFile;
    if (isHeld) {
        UniqueHandle hHeld;
        const VirtualVolumeStatus held =
            VirtualItem::CreateFileW(m_destPath, GENERIC_WRITE, kShareAll, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, hHeld);
        QC_CHECK_STATUS_OR_RETURN(held == VSS_FileExists ? VVS_PathAlreadyExists : held, kHoldNameText);
    }
    const std::optional<FileVersion> known = isHeld ? ReadFileVersion(m_destPath) : m_replaced;
    const VirtualVolumeStatus status = container_cipher::EncryptOpenFileInternal(m_destPath, virtualFileSpec, source, [&] {
        const VirtualVolumeStatus looked = MayReplace() ? VVS_Success : container_cipher::LookAtReplaced(m_destPath, known);
        return looked == VVS_Success ? LookAgain() : looked;
    });
    if (status == VVS_Success)
        RememberWritten();
    else if (isHeld)
        DeleteIfEmpty(m_destPath);
    return qcLog.Leave(status == VVS_PathAlreadyExists && !isHeld ? VSS_SharingViolation : status);
}

// Puts a copy of an open file at the destination, in one step.
VirtualVolumeStatus FileMove::PutCopyInPlace(HANDLE hSource) {
    QC_TRACE_THIS(L"FileMove::PutCopyInPlace");
    const std::wstring sidePath = SidePathStr(m_newFilePath);
    const OnExit removeUnfinished([&] { DeleteSideFile(sidePath); });  // does nothing once it was put in place
    QC_CHECK_STATUS_OR_RETURN(file_content::CopyToNewFile(hSource, sidePath), L"CopyToNewFile(hSource, sidePath) =>%s, ");
    QC_CHECK_STATUS_OR_RETURN(LookAgain(), L"LookAgain() =>%s, ");
    QC_CHECK_STATUS_OR_RETURN(StatusOfCall(PutInPlace(sidePath, m_newFilePath, !MayReplace(), MayReplace() ? &m_replaced : nullptr)),
                              L"PutInPlace(sidePath, newFilePath) =>%s, ");
    RememberWritten();
    return qcLog.Leave(VVS_Success);
}

// When the source cannot be deleted, because somebody replaced it meanwhile or holds it, the move is undone.
VirtualVolumeStatus FileMove::DeleteSource() {
    const VirtualVolumeStatus status = Encrypted().DeleteOldContainer();
    if (status != VVS_Success)
        TakeBackDestination();
    return status;
}

void FileMove::RememberWritten() { m_written = ReadFileVersion(m_destPath); }

// Deletes what was just written to a free path, unless others have changed it already.
void FileMove::TakeBackDestination() {
    if (!m_wasThere && m_written)
        DeleteIfVersion(m_destPath, *m_written);
}

// Re-points the item at a plain destination that is written already.
void FileMove::BecomePlain() {
    m_state.SetPath(m_newFilePath);
    auto plain = std::make_unique<PlainContent>(m_state);
    plain->Adopt(std::move(m_newFile));
    m_content = std::move(plain);
}

// Re-points the item at a container that is written already, to be decrypted at the next access.
void FileMove::BecomeEncrypted() {
    m_state.SetPath(m_newFilePath);
    auto encrypted = std::make_unique<EncryptedContent>(m_state);
    encrypted->Adopt(std::move(m_newFile));
    m_content = std::move(encrypted);
}
