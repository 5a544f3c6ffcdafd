// Moves, renames and copies of an open file between plain and encrypted places. The source goes only after the destination
// is really written; what is written into a plain place is built aside and put there in one step.
#include "items/VirtualFile.h"

#include <mutex>

#include "diagnostics/Trace.h"
#include "items/FileContent.h"
#include "items/SaveNames.h"
#include "library/Text.h"
#include "namespace/VirtualFindFile.h"
#include "policy/FileUtils.h"
#include "policy/HvcUtils.h"

namespace {

std::wstring StoredPath(const std::wstring& filePath, bool encrypted) {
    return encrypted ? PathAddExtensionStr(filePath, kContainerExtension) : filePath;
}

// What a file on disk is shown as; a plain file when it is not there.
VirtualItemType TypeOf(const std::wstring& path) {
    VirtFindData findData{};
    return IsExistingFile(path) && VirtualFindFile::FindFile(path.c_str(), &findData) ? findData.itemType : VIT_PlainFile;
}

bool IsLocked(const std::wstring& path) {
    LockInfo lockInfo{};
    return FileLocker::FindLock(path.c_str(), nullptr, &lockInfo) == VVS_Success;
}

// What a move deletes at its end must not turn out to be held then.
VirtualVolumeStatus CheckDeletable(const std::wstring& path) {
    UniqueHandle hFile;
    return VirtualItem::CreateFileW(path, DELETE, kShareAll, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, hFile);
}

// Copies the content and the times of an open file into a new file.
VirtualVolumeStatus CopyToNewFile(HANDLE hSource, const std::wstring& path) {
    QC_TRACE(L"CopyToNewFile", L"destFilePath[%s]", path);
    UniqueHandle hFile;
    QC_CHECK_STATUS(VirtualItem::CreateFileW(path, kFullContentAccess, FILE_SHARE_READ, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, hFile),
                    L"CreateFileW(newFilePath, desiredAccess, 0x00000001, 1, 0x80, hNewFile) =>%s, ");
    QC_CHECK(file_content::CopyFileW(hSource, hFile.Get()), StatusFromLastError(), L"CopyFileW(m_hFile, hNewFile) =>false%s, ");
    BY_HANDLE_FILE_INFORMATION info{};
    if (GetFileInformationByHandle(hSource, &info))
        SetFileTime(hFile.Get(), &info.ftCreationTime, &info.ftLastAccessTime, &info.ftLastWriteTime);
    QC_CHECK(FlushFileBuffers(hFile.Get()), StatusFromLastError(), L"FlushFileBuffers(hNewFile) =>FALSE%s, ");
    return qcLog.Leave(VVS_Success);
}

// Puts a copy of an open file at filePath, in one step.
VirtualVolumeStatus PutCopyInPlace(HANDLE hSource, const std::wstring& filePath, bool mayReplace) {
    const std::wstring sidePath = SidePathStr(filePath);
    const OnExit removeUnfinished([&] { DeleteFileW(sidePath.c_str()); });  // when it is in place, there is none
    const VirtualVolumeStatus status = CopyToNewFile(hSource, sidePath);
    return status == VVS_Success ? StatusOfCall(PutInPlace(sidePath, filePath, !mayReplace)) : status;
}

// To another disk there is no rename, and the platform's own copy could be left half-written under the new name. Nobody
// writes the source meanwhile.
VirtualVolumeStatus MoveToOtherDisk(const std::wstring& srcFilePath, const std::wstring& destFilePath) {
    QC_TRACE(L"MoveToOtherDisk", L"srcFilePath[%s], destFilePath[%s]", srcFilePath, destFilePath);
    UniqueHandle hSource;
    QC_CHECK_STATUS(VirtualItem::CreateFileW(srcFilePath, GENERIC_READ | DELETE, FILE_SHARE_READ | FILE_SHARE_DELETE, OPEN_EXISTING,
                                             FILE_ATTRIBUTE_NORMAL, hSource),
                    L"CreateFileW(srcFilePath, hSource) =>%s, ");
    QC_CHECK_STATUS(StatusOfCall(CopyInPlace(srcFilePath, destFilePath, true)), L"CopyInPlace(srcFilePath, destFilePath, true) =>%s, ");
    hSource.Reset();
    QC_CHECK(DeleteFileOrFolder(srcFilePath) == DeleteResult::Deleted, VVS_GeneralError, L"DeleteFileOrFolder(srcFilePath) =>false%s, ");
    return qcLog.Leave(VVS_Success);
}

}  // namespace

VirtualVolumeStatus VirtualFile::Move(const wchar_t* newFilePath, bool keepSrcFile, const wchar_t* newFileLockToken) {
    return MoveInternal(newFilePath, false, keepSrcFile, newFileLockToken);
}

VirtualVolumeStatus VirtualFile::Rename(const wchar_t* newFilePath, const wchar_t* newFileLockToken) {
    return MoveInternal(newFilePath, true, false, newFileLockToken);
}

VirtualVolumeStatus VirtualFile::MoveInternal(const wchar_t* newFilePath, bool renameSrcFile, bool keepSrcFile,
                                              const wchar_t* newFileLockToken) {
    QC_TRACE_THIS(L"VirtualFile::MoveInternal", L"in:newFilePath[%s], in:renameSrcFile[%s], in:keepSrcFile[%s], %s", newFilePath,
                  FormatBoolStr(renameSrcFile), FormatBoolStr(keepSrcFile), DescriptionStr());
    QC_CHECK(!m_deleted, VVS_GeneralError, L"!m_deleted =>false%s, ");
    MoveRequest request{newFilePath, renameSrcFile, keepSrcFile, false, {}, {}};
    bool isKnown = true;
    const bool destEncrypted = ShouldFileBeEncrypted(request.newFilePath, &isKnown);
    // What would then stand in clear in a protected place might be synchronised before anybody saw it.
    QC_CHECK(isKnown, VSS_EncryptError, L"isKnown =>false%s, ");
    const std::wstring sourcePath = StoredPath(m_itemFullPath, m_encrypted);
    const std::wstring destPath = StoredPath(request.newFilePath, destEncrypted);
    request.sameFile = EqualNoCase(sourcePath, destPath) || AreSameFile(sourcePath, destPath);
    const bool isBesidePlainFile = m_encrypted && PathExists(m_itemFullPath);  // a conflict copy, whose own path is another file's
    if (request.sameFile && (keepSrcFile || m_encrypted != destEncrypted || isBesidePlainFile))
        return qcLog.Leave(VVS_PathAlreadyExists);
    if (request.newFilePath == m_itemFullPath && request.sameFile)
        return qcLog.Leave(VVS_Success);
    if (!request.sameFile)
        QC_CHECK_STATUS(FileLocker::GetLockedFile(destPath.c_str(), GENERIC_WRITE, GENERIC_READ | DELETE, newFileLockToken, &request.newFile),
                        L"FileLocker::GetLockedFile(newFilePath, (0x40000000L), newFileLockToken, newFileLocked, hNewFile) =>%s, ");
    QC_CHECK_STATUS(CheckDestination(request, destEncrypted), L"CheckDestination(newFilePath) =>%s, ");
    if (m_encrypted && !keepSrcFile && VirtualTempFileDispenser::HoldsUnsavedEdit(m_itemFullPath))  // it moves with its file
        QC_CHECK_STATUS(MakeSureTempFileOpenIfNeeded(TempContent::OfContainer), L"MakeSureTempFileOpenIfNeeded() =>%s, ");

    const std::wstring oldPath = m_itemFullPath;
    const bool wasEncrypted = m_encrypted;
    const SaveGates gates(sourcePath, destPath);
    const PositionKeeper keepPosition(*this);
    const VirtualVolumeStatus status = m_encrypted   ? destEncrypted ? MoveFromHalvaneToHalvane(request) : MoveFromHalvaneToPlain(request)
                                       : destEncrypted          ? MoveFromPlainToHalvane(request)
                                       : request.newFile.locked ? MoveFromPlainToPlainLocked(request)
                                                                : MoveFromPlainToPlainUnlocked(request);
    if (status != VVS_Success)
        return qcLog.Leave(status);
    m_findDataValid = m_findDataValid && keepSrcFile;
    if (wasEncrypted && !keepSrcFile)
        VirtualTempFileDispenser::Remove(oldPath, true);
    if (!request.replacedPath.empty())
        DeleteFileOrFolder(request.replacedPath);
    return qcLog.Leave(VVS_Success);
}

VirtualFile::PositionKeeper::PositionKeeper(VirtualFile& file) : m_file(file) {
    LARGE_INTEGER position{};
    if (file.m_hFile && SetFilePointerEx(file.m_hFile.Get(), LARGE_INTEGER{}, &position, FILE_CURRENT))
        m_position = position;
}

VirtualFile::PositionKeeper::~PositionKeeper() {
    const OnExit putBack([this] {
        if (m_position.QuadPart > 0 && m_file.MakeSureTempFileOpenIfNeeded() == VVS_Success)
            SetFilePointerEx(m_file.m_hFile.Get(), m_position, nullptr, FILE_BEGIN);
    });
}

// May the destination be written? Only the file that is shown under the new name may be replaced by it, in whichever form
// it is stored; never one that merely has the destination's name on disk: a conflict copy, an ordinary ZIP file.
VirtualVolumeStatus VirtualFile::CheckDestination(MoveRequest& request, bool destEncrypted) const {
    const std::wstring& newPath = request.newFilePath;
    const std::wstring newZipPath = PathAddExtensionStr(newPath, kContainerExtension);
    const std::wstring sourcePath = StoredPath(m_itemFullPath, m_encrypted);
    if (!IsExistingFolder(PathRemoveFileSpecStr(newPath)))
        return VVS_PathNotFound;
    if (IsExistingFolder(newPath))
        return VVS_PathAlreadyExists;
    if (request.sameFile)
        return VVS_Success;
    const bool plainIsThere = PathExists(newPath) && (m_encrypted || !EqualNoCase(newPath, sourcePath));
    const bool zipIsThere = PathExists(newZipPath) && !EqualNoCase(newZipPath, sourcePath);
    const bool containerIsThere = zipIsThere && (request.newFile.locked || TypeOf(newZipPath) == VIT_EncryptedFile);
    if (!request.MayReplace() && (plainIsThere || containerIsThere) && !request.newFile.locked)
        return VVS_PathAlreadyExists;
    if (destEncrypted) {
        if (zipIsThere && (PathExists(newPath) || !containerIsThere))
            return VVS_PathAlreadyExists;
        request.replacedPath = plainIsThere ? newPath : std::wstring();
    } else {
        if (plainIsThere && TypeOf(newPath) != VIT_PlainFile)
            return VVS_PathAlreadyExists;
        request.replacedPath = containerIsThere && !plainIsThere ? newZipPath : std::wstring();
    }
    if (request.replacedPath.empty())
        return VVS_Success;
    return IsLocked(request.replacedPath) ? VVS_Locked : CheckDeletable(request.replacedPath);
}

VirtualVolumeStatus VirtualFile::CheckSourceMayGo(const MoveRequest& request) const {
    if (request.keepSrcFile || request.sameFile)
        return VVS_Success;
    if (IsSourceChanged())
        return VSS_SharingViolation;
    return m_lockedFile.locked || !PathExists(GetZipFilePath()) ? VVS_Success : CheckDeletable(GetZipFilePath());
}

// The item's own handle where it may read, else a second one, which a lock allows too.
VirtualVolumeStatus VirtualFile::OpenSourceForReading(UniqueHandle& hSecond, HANDLE& hSource) const {
    hSource = m_hFile.Get();
    if (m_grantedAccess & (GENERIC_READ | GENERIC_ALL | FILE_READ_DATA))
        return VVS_Success;
    const VirtualVolumeStatus status =
        CreateFileW(m_itemFullPath, GENERIC_READ, kShareAll, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, hSecond);
    hSource = hSecond.Get();
    return status;
}

VirtualVolumeStatus VirtualFile::MoveFromPlainToPlainUnlocked(MoveRequest& request) {
    QC_TRACE_THIS(L"VirtualFile::MoveFromPlainToPlainUnlocked", L"in:newFilePath[%s], renameSrcFile[%s], keepSrcFile[%s], %s",
                  request.newFilePath, FormatBoolStr(request.renameSrcFile), FormatBoolStr(request.keepSrcFile), DescriptionStr());
    if (request.sameFile || (request.renameSrcFile && !m_lockedFile.locked)) {
        QC_CHECK_STATUS(VirtualItem::RenameItem(request.newFilePath), L"VirtualItem::RenameItem(newFilePath) =>%s, ");
        SetItemPath(request.newFilePath);
        return qcLog.Leave(VVS_Success);
    }
    if (request.keepSrcFile && !m_lockedFile.locked) {
        const Win32Error error = CopyInPlace(m_itemFullPath, request.newFilePath);
        QC_CHECK(error == Win32Error::None, StatusOfCall(error), L"::CopyFileW(m_itemFullPath, newFilePath, 0) != 0 =>false%s,  %s",
                 L"Error[%s]", SystemErrorStr(static_cast<DWORD>(error)));
        return qcLog.Leave(VVS_Success);
    }
    if (!m_lockedFile.locked)
        return qcLog.Leave(MovePlainFile(request.newFilePath));
    // A locked source is held where it is: its content goes over, and the file goes with the lock.
    UniqueHandle hSecond;
    HANDLE hSource = nullptr;
    QC_CHECK_STATUS(OpenSourceForReading(hSecond, hSource), L"OpenSourceForReading(hSource) =>%s, ");
    {
        const ContentGuard guard(*this);
        QC_CHECK_STATUS(PutCopyInPlace(hSource, request.newFilePath, request.MayReplace()),
                        L"PutCopyInPlace(hSource, newFilePath) =>%s, ");
    }
    if (request.keepSrcFile)
        return qcLog.Leave(VVS_Success);
    QC_CHECK_STATUS(Delete(), L"Delete() =>%s, ");
    BecomePlain(request);
    return qcLog.Leave(VVS_Success);
}

// Moved is moved: should the file then not open again, later calls on the item say so.
VirtualVolumeStatus VirtualFile::MovePlainFile(const std::wstring& newFilePath) {
    QC_TRACE_THIS(L"VirtualFile::MovePlainFile");
    m_hFile.Reset();
    const bool isRenamed = file_content::MoveFileW(m_itemFullPath, newFilePath, 0);
    VirtualVolumeStatus status = isRenamed ? VVS_Success : StatusFromLastError();
    if (!isRenamed && GetLastError() == ERROR_NOT_SAME_DEVICE)
        status = MoveToOtherDisk(m_itemFullPath, newFilePath);
    const bool moved = status == VVS_Success;
    if (moved)
        SetItemPath(newFilePath);
    else
        QC_REPORT(L"MoveFileW(m_itemFullPath, newFilePath) != 0 =>false%s,  %s", L"Error[%s]", SystemErrorStr(GetLastError()));
    CreteFileWithReadOnlyFallback(m_itemFullPath, moved ? kFullContentAccess : m_grantedAccess, moved ? kShareAll : m_shareMode,
                                  OPEN_EXISTING, m_grantedAccess, m_hFile);
    return qcLog.Leave(status);
}

VirtualVolumeStatus VirtualFile::MoveFromPlainToPlainLocked(MoveRequest& request) {
    QC_TRACE_THIS(L"VirtualFile::MoveFromPlainToPlainLocked", L"in:newFilePath[%s], renameSrcFile[%s], keepSrcFile[%s], %s",
                  request.newFilePath, FormatBoolStr(request.renameSrcFile), FormatBoolStr(request.keepSrcFile), DescriptionStr());
    const bool mayGo = request.keepSrcFile || m_lockedFile.locked || m_grantedAccess & (DELETE | GENERIC_ALL);
    QC_CHECK(mayGo, VVS_AccessDenied, L"m_grantedAccess & DELETE =>false%s, ");
    {
        UniqueHandle hSecond;
        HANDLE hSource = nullptr;
        QC_CHECK_STATUS(OpenSourceForReading(hSecond, hSource), L"OpenSourceForReading(hSource) =>%s, ");
        const ContentGuard guard(*this);
        QC_CHECK(file_content::CopyIntoLockedFile(hSource, request.newFile), StatusFromLastError(),
                 L"CopyFileW(m_hFile, hNewFile) =>false%s, ");
    }
    if (request.keepSrcFile)
        return qcLog.Leave(VVS_Success);
    QC_CHECK_STATUS(Delete(), L"Delete() =>%s, ");
    BecomePlain(request);
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::MoveFromHalvaneToPlain(MoveRequest& request) {
    QC_TRACE_THIS(L"VirtualFile::MoveFromHalvaneToPlain", L"in:newFilePath[%s], renameSrcFile[%s], keepSrcFile[%s], %s",
                  request.newFilePath, FormatBoolStr(request.renameSrcFile), FormatBoolStr(request.keepSrcFile), DescriptionStr());
    QC_CHECK_STATUS(MakeSureTempFileOpenIfNeeded(TempContent::OfContainer), L"MakeSureTempFileOpenIfNeeded() =>%s, ");
    QC_CHECK_STATUS(CheckSourceMayGo(request), L"CheckSourceMayGo(newFilePath) =>%s, ");
    if (request.newFile.locked)
        QC_CHECK(file_content::CopyIntoLockedFile(m_hFile.Get(), request.newFile), StatusFromLastError(),
                 L"CopyFileW(m_hFile, hNewFile) =>false%s, ");
    else
        QC_CHECK_STATUS(PutCopyInPlace(m_hFile.Get(), request.newFilePath, request.MayReplace()),
                        L"CopyFileW(m_hFile, hNewFile) =>%s, ");
    if (request.keepSrcFile)
        return qcLog.Leave(VVS_Success);
    QC_CHECK_STATUS(DeleteOldContainer(), L"DeleteOldContainer() =>%s, ");
    DropTempFile();
    BecomePlain(request);
    return qcLog.Leave(VVS_Success);
}

// A locked container goes by a mark on its own handle, with the lock. One that was exchanged meanwhile does not go.
VirtualVolumeStatus VirtualFile::DeleteOldContainer() {
    QC_TRACE_THIS(L"VirtualFile::DeleteOldContainer");
    QC_CHECK(!IsSourceChanged(), VSS_SharingViolation, L"!IsSourceChanged() =>false%s, ");
    if (m_lockedFile.locked)
        QC_CHECK_STATUS(StatusOfCall(DeleteUndeleteFile(m_lockedFile.hFile.Get(), true)),
                        L"DeleteUndeleteFile(m_hLockedFile, true) =>%s, ");
    else
        QC_CHECK(DeleteFileOrFolder(GetZipFilePath()) == DeleteResult::Deleted, VVS_GeneralError,
                 L"DeleteFileOrFolder(prevZipFilePath) =>false%s, ");
    return qcLog.Leave(VVS_Success);
}

// Re-points the item at a plain destination that is written already.
void VirtualFile::BecomePlain(MoveRequest& request) {
    SetItemPath(request.newFilePath);
    m_encrypted = m_deleted = false;
    m_lockedFile = std::move(request.newFile);
    m_hFile = std::move(m_lockedFile.hFile);
    if (!m_hFile)
        CreteFileWithReadOnlyFallback(m_itemFullPath, kFullContentAccess, kShareAll, OPEN_EXISTING, m_grantedAccess, m_hFile);
}

// A move replaces nothing, also not what comes up at its destination meanwhile: an empty file, which the writer replaces,
// holds the place.
VirtualVolumeStatus VirtualFile::EncryptTo(const MoveRequest& request, const std::wstring& srcFilePath, HANDLE hSource) {
    QC_TRACE_THIS(L"VirtualFile::EncryptTo");
    const std::wstring newZipFilePath = PathAddExtensionStr(request.newFilePath, kContainerExtension);
    const std::wstring virtualFileSpec = PathStripPathStr(request.newFilePath);
    const LockedFile& dest = request.sameFile ? m_lockedFile : request.newFile;  // by letter case alone, it is the same file
    if (dest.locked)
        return qcLog.Leave(EncryptOpenFileLocked(newZipFilePath, virtualFileSpec, srcFilePath, hSource, dest));
    bool isHeld = false;
    if (!request.MayReplace() && !request.sameFile) {
        UniqueHandle hHeld;
        const VirtualVolumeStatus held = CreateFileW(newZipFilePath, GENERIC_WRITE, kShareAll, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, hHeld);
        QC_CHECK_STATUS(held == VSS_FileExists ? VVS_PathAlreadyExists : held,
                        L"CreateFileW(newZipFilePath, (0x40000000L), 0x00000007, 1, 0x80, hHeld) =>%s, ");
        isHeld = true;
    }
    const VirtualVolumeStatus status = EncryptOpenFileInternal(newZipFilePath, virtualFileSpec, srcFilePath, hSource);
    if (isHeld && status != VVS_Success)
        DeleteIfEmpty(newZipFilePath);
    return qcLog.Leave(status);
}

VirtualVolumeStatus VirtualFile::MoveFromPlainToHalvane(MoveRequest& request) {
    QC_TRACE_THIS(L"VirtualFile::MoveFromPlainToHalvane", L"in:newFilePath[%s], renameSrcFile[%s], keepSrcFile[%s], %s",
                  request.newFilePath, FormatBoolStr(request.renameSrcFile), FormatBoolStr(request.keepSrcFile), DescriptionStr());
    if (!request.keepSrcFile && !m_lockedFile.locked) {
        QC_CHECK_STATUS(TurnIntoContainer(request), L"TurnIntoContainer(newFilePath) =>%s, ");
        return qcLog.Leave(VVS_Success);
    }
    {
        UniqueHandle hSecond;
        HANDLE hSource = nullptr;
        QC_CHECK_STATUS(OpenSourceForReading(hSecond, hSource), L"OpenSourceForReading(hSource) =>%s, ");
        const ContentGuard guard(*this);
        QC_CHECK_STATUS(EncryptTo(request, m_itemFullPath, hSource),
                        L"EncryptOpenFile(newZipFilePath, virtualFileSpec, m_itemFullPath, newFileLocked, hNewFile) =>%s, ");
    }
    if (request.keepSrcFile)
        return qcLog.Leave(VVS_Success);
    QC_CHECK_STATUS(StatusOfCall(DeleteUndeleteFile(m_hFile.Get(), true)), L"DeleteUndeleteFile(m_hFile, true) =>%s, ");
    BecomeEncrypted(request);
    return qcLog.Leave(VVS_Success);
}

// The plain file becomes the item's temp file: nothing of it stays where it was. Others can only read it meanwhile; who has
// it open for writing stops the move, for what he wrote later would never be saved.
VirtualVolumeStatus VirtualFile::TurnIntoContainer(MoveRequest& request) {
    QC_TRACE_THIS(L"VirtualFile::TurnIntoContainer");
    UniqueHandle hSource;
    m_hFile.Reset();
    const OnExit reopenUnlessMoved([&] {
        hSource.Reset();
        if (!m_encrypted)
            CreteFileWithReadOnlyFallback(m_itemFullPath, m_grantedAccess, m_shareMode, OPEN_EXISTING, m_grantedAccess, m_hFile);
    });
    QC_CHECK_STATUS(CreateFileW(m_itemFullPath, GENERIC_READ | DELETE, FILE_SHARE_READ | FILE_SHARE_DELETE, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, hSource),
                    L"CreateFileW(m_itemFullPath, hSource) =>%s, ");
    QC_CHECK_STATUS(EncryptTo(request, m_itemFullPath, hSource.Get()),
                    L"EncryptOpenFile(newZipFilePath, virtualFileSpec, m_itemFullPath, newFileLocked, hNewFile) =>%s, ");
    RetainedCopy copy;
    VirtualTempFileDispenser::Dispense(request.newFilePath, false, nullptr, nullptr, copy);
    QC_CHECK(!copy.tempFilePath.empty(), VVS_GeneralError, L"!tempFilePath.IsEmpty() =>false%s, ");
    const bool moved = file_content::MoveFileW(m_itemFullPath, copy.tempFilePath, MOVEFILE_COPY_ALLOWED);
    const VirtualVolumeStatus status = moved ? VVS_Success : StatusFromLastError();
    if (!moved)
        VirtualTempFileDispenser::DeleteTempFolder(copy.tempFilePath);
    QC_CHECK_STATUS(status, L"MoveFileW(m_itemFullPath, tempFilePath) =>%s, ");

    hSource.Reset();
    BecomeEncrypted(request);
    m_copy = std::move(copy);
    m_tempFileOpen = CreateFileW(m_copy.tempFilePath, kFullContentAccess, kShareAll, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, m_hFile) == VVS_Success;
    if (!m_tempFileOpen) {
        DropTempFile();  // it is decrypted at the next access
        return qcLog.Leave(VVS_Success);
    }
    RememberSavedState();
    if (!SaveTrackerFileItem())
        QC_REPORT(L"SaveTrackerFileItem() =>false%s, ");
    return qcLog.Leave(VVS_Success);
}

// Re-points the item at a container that is written already, to be decrypted at the next access.
void VirtualFile::BecomeEncrypted(MoveRequest& request) {
    SetItemPath(request.newFilePath);
    m_encrypted = true;
    m_openDisposition = OPEN_EXISTING;
    m_hFile.Reset();
    m_lockedFile = std::move(request.newFile);
}

VirtualVolumeStatus VirtualFile::MoveFromHalvaneToHalvane(MoveRequest& request) {
    QC_TRACE_THIS(L"VirtualFile::MoveFromHalvaneToHalvane", L"in:newFilePath[%s], renameSrcFile[%s], keepSrcFile[%s], %s",
                  request.newFilePath, FormatBoolStr(request.renameSrcFile), FormatBoolStr(request.keepSrcFile), DescriptionStr());
    const bool sameSpec = PathStripPathStr(request.newFilePath) == m_itemName;
    const bool isStored = PathExists(GetZipFilePath());
    bool isKnown = true;  // of keys that are not known, nobody can say that they are the same
    const bool canJustMove = isStored && !request.keepSrcFile && sameSpec && !request.newFile.locked && !m_lockedFile.locked &&
                             GetFolderTargetKeyId(PathRemoveFileSpecStr(m_itemFullPath), &isKnown) ==
                                 GetFolderTargetKeyId(PathRemoveFileSpecStr(request.newFilePath), &isKnown) &&
                             isKnown;
    QC_LOG(L"ItemFullPath[%s], newFilePath[%s], Same spec[%s], Can just move[%s]", m_itemFullPath, request.newFilePath,
           FormatBoolStr(sameSpec), FormatBoolStr(canJustMove));
    // A new file that nothing was written to, to a place where nothing is: its first save will create it there.
    const bool isNew = !isStored && !m_modified && m_openDisposition != OPEN_EXISTING && m_openDisposition != TRUNCATE_EXISTING;
    const bool isOnlyNamed = isNew && !request.keepSrcFile && !request.newFile.locked && !PathExists(request.newFilePath) &&
                             !PathExists(PathAddExtensionStr(request.newFilePath, kContainerExtension));
    if (isOnlyNamed)
        SetItemPath(request.newFilePath);
    else
        QC_CHECK_STATUS(canJustMove ? MoveContainer(request) : ReencryptTo(request), L"MoveFromHalvaneToHalvane(newFilePath) =>%s, ");
    if (m_tempFileOpen && !request.keepSrcFile && !SaveTrackerFileItem())
        QC_REPORT(L"SaveTrackerFileItem() =>false%s, ");
    return qcLog.Leave(VVS_Success);
}

// One rename on disk, whatever the size; an open temp file stays the item's, with what it may hold of unsaved edits.
VirtualVolumeStatus VirtualFile::MoveContainer(MoveRequest& request) {
    QC_TRACE_THIS(L"VirtualFile::MoveContainer");
    const std::wstring newZipFilePath = PathAddExtensionStr(request.newFilePath, kContainerExtension);
    const DWORD flags = MOVEFILE_WRITE_THROUGH | (request.renameSrcFile ? MOVEFILE_REPLACE_EXISTING : 0);
    const bool moved = file_content::MoveFileW(GetZipFilePath(), newZipFilePath, flags);
    if (!moved && GetLastError() == ERROR_NOT_SAME_DEVICE)
        return qcLog.Leave(ReencryptTo(request));  // to another disk there is no rename; a copy could be left half-written
    QC_CHECK(moved, StatusFromLastError(), L"MoveFileW(GetZipFilePath(), newZipFilePath) =>false%s, ");
    SetItemPath(request.newFilePath);
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::ReencryptTo(MoveRequest& request) {
    QC_TRACE_THIS(L"VirtualFile::ReencryptTo");
    const bool wasOpen = m_tempFileOpen;
    QC_CHECK_STATUS(MakeSureTempFileOpenIfNeeded(TempContent::OfContainer), L"MakeSureTempFileOpenIfNeeded() =>%s, ");
    QC_CHECK_STATUS(CheckSourceMayGo(request), L"CheckSourceMayGo(newFilePath) =>%s, ");
    QC_CHECK_STATUS(EncryptTo(request, m_copy.tempFilePath, m_hFile.Get()),
                    L"EncryptOpenFile(newZipFilePath, virtualFileSpec, m_tempFilePath, newFileLocked, hNewFile) =>%s, ");
    if (request.keepSrcFile)
        return qcLog.Leave(VVS_Success);
    if (!request.sameFile) {
        QC_CHECK_STATUS(DeleteOldContainer(), L"DeleteOldContainer() =>%s, ");
        m_lockedFile = std::move(request.newFile);
    }
    SetItemPath(request.newFilePath);
    RememberSavedState();
    if (!wasOpen && m_openDisposition != OPEN_EXISTING)
        DropTempFile();  // the item still is to start empty, at its first access
    return qcLog.Leave(VVS_Success);
}
