#include "items/VirtualFile.h"

#include <new>

#include "diagnostics/Trace.h"
#include "library/Text.h"
#include "namespace/VirtualFindFile.h"
#include "policy/FileUtils.h"
#include "policy/HvcUtils.h"

namespace {

constexpr std::size_t kLongestName = 255;  // UTF-16 units that the file system stores, without the terminator

bool CreatesFiles(std::uint32_t openDisposition) {
    return openDisposition == CREATE_NEW || openDisposition == CREATE_ALWAYS || openDisposition == OPEN_ALWAYS;
}

}  // namespace

VirtualVolumeStatus VirtualFile::Open(const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                      std::uint32_t openDisposition, const VirtFindData* findData, const wchar_t* lockToken) {
    QC_TRACE_THIS(L"VirtualFile::Open", L"filePath[%s], desiredAccess[%s], shareMode[%s], openDisposition[%s], lockToken[%s]", filePath,
                  FormatAccessMaskStr(desiredAccess), FormatShareModeStr(shareMode), FormatCreationDispositionStr(openDisposition),
                  lockToken);
    m_openDisposition = openDisposition;
    SetFindData(findData);
    m_lockToken = lockToken ? lockToken : L"";
    const bool isEncrypted = findData ? findData->itemType != VIT_PlainFile : VirtualTempFileDispenser::HoldsUnsavedEdit(filePath);
    if (isEncrypted || (CreatesFiles(openDisposition) && ShouldFileBeEncrypted(filePath)))
        return qcLog.Leave(OpenHalvaneFile(filePath, desiredAccess, shareMode, openDisposition, isEncrypted && findData, lockToken));
    return qcLog.Leave(OpenPlainFile(filePath, desiredAccess, shareMode, openDisposition, lockToken));
}

VirtualVolumeStatus VirtualFile::OpenHalvaneFile(const std::wstring& filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                                 std::uint32_t openDisposition, bool exists, const wchar_t* lockToken) {
    QC_TRACE_THIS(L"VirtualFile::OpenHalvaneFile", L"filePath[%s], desiredAccess[%s], shareMode[%s], openDisposition[%s]", filePath,
                  FormatAccessMaskStr(desiredAccess), FormatShareModeStr(shareMode), FormatCreationDispositionStr(openDisposition));
    const std::wstring containerPath =
        exists ? ContainerPathStr(filePath) : PathAddExtensionStr(filePath, kContainerExtension);
    if (openDisposition == CREATE_NEW)
        QC_CHECK(!PathExists(filePath) && !PathExists(containerPath), VSS_FileExists, L"!PathExists(containerPath) =>false%s, ");
    QC_CHECK(PathStripPathStr(filePath).find_first_of(L"*?<>|\":") == std::wstring::npos, VVS_InvalidParameter,
             L"PathStripPathStr(filePath).find_first_of(L\"*?<>|\\\":\") == std::wstring::npos =>false%s, ");
    // Not this file's container, then, but another file that saving would overwrite: a conflict copy, an ordinary ZIP file.
    if (!exists && CreatesFiles(openDisposition)) {
        QC_CHECK(!PathExists(containerPath), VVS_PathAlreadyExists, L"!PathExists(containerPath) =>false%s, ");
        // The container is made at the close only, which would be too late to find out that it cannot be.
        QC_CHECK(PathStripPathStr(containerPath).size() <= kLongestName, VVS_InvalidParameter,
                 L"PathStripPathStr(containerPath).size() <= kLongestName =>false%s, ");
        QC_CHECK(IsExistingFolder(PathRemoveFileSpecStr(filePath)), VVS_PathNotFound,
                 L"IsExistingFolder(PathRemoveFileSpecStr(filePath)) =>false%s, ");
    }
    if (!CreatesFiles(openDisposition))
        QC_CHECK(IsExistingFile(containerPath) || VirtualTempFileDispenser::HoldsUnsavedEdit(filePath), VVS_FileNotFound,
                 L"IsExistingFile(containerPath) =>false%s, ");
    m_grantedAccess = desiredAccess;
    m_shareMode = FILE_SHARE_READ;  // whatever was asked: the container is not open, only its temp file will be
    QC_CHECK_STATUS(FileLocker::GetLockedFile(containerPath.c_str(), desiredAccess, kFullContentAccess, lockToken, &m_lockedFile),
                    L"FileLocker::GetLockedFile(filePath + L\".zip\", desiredAccess, lockToken, m_locked, m_hLockedFile) =>%s, ");
    m_encrypted = true;
    SetItemPath(containerPath.substr(0, containerPath.size() - kContainerExtension.size()));
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::OpenPlainFile(const std::wstring& filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                               std::uint32_t openDisposition, const wchar_t* lockToken) {
    QC_TRACE_THIS(L"VirtualFile::OpenPlainFile", L"filePath[%s], desiredAccess[%s], shareMode[%s], openDisposition[%s]", filePath,
                  FormatAccessMaskStr(desiredAccess), FormatShareModeStr(shareMode), FormatCreationDispositionStr(openDisposition));
    m_grantedAccess = desiredAccess;
    m_shareMode = shareMode;
    // A locked file can be deleted by the lock's own handle alone, so its openers' handles can.
    QC_CHECK_STATUS(FileLocker::GetLockedFile(filePath.c_str(), desiredAccess, DELETE, lockToken, &m_lockedFile),
                    L"FileLocker::GetLockedFile(filePath, desiredAccess, lockToken, m_locked, m_hFile) =>%s, ");
    if (m_lockedFile.locked) {
        m_hFile = std::move(m_lockedFile.hFile);
        // What the platform would do for these dispositions, on a file that is open already.
        QC_CHECK(openDisposition != CREATE_NEW, VSS_FileExists, L"openDisposition != CREATE_NEW =>false%s, ");
        if (openDisposition == CREATE_ALWAYS || openDisposition == TRUNCATE_EXISTING)
            QC_CHECK_STATUS(SetFileSize(m_hFile.Get(), 0), L"SetFileSize(m_hFile, 0) =>%s, ");
    } else {
        const VirtualVolumeStatus status =
            CreteFileWithReadOnlyFallback(filePath, desiredAccess, shareMode, openDisposition, m_grantedAccess, m_hFile);
        if (status != VVS_Success)
            return qcLog.Leave(status);
    }
    SetItemPath(filePath);
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::CreteFileWithReadOnlyFallback(const std::wstring& filePath, std::uint32_t desiredAccess,
                                                               std::uint32_t shareMode, std::uint32_t openDisposition,
                                                               std::uint32_t& grantedAccess, UniqueHandle& hFile) {
    QC_TRACE(L"VirtualFile::CreteFileWithReadOnlyFallback");
    grantedAccess = desiredAccess;
    const VirtualVolumeStatus status = CreateFileW(filePath, desiredAccess, shareMode, openDisposition, FILE_ATTRIBUTE_NORMAL, hFile);
    if (status == VVS_Success)
        return qcLog.Leave(status);
    const DWORD lastError = GetLastError();
    const bool needToCreateFile = openDisposition == CREATE_NEW || openDisposition == CREATE_ALWAYS;
    QC_CHECK((lastError == ERROR_ACCESS_DENIED || lastError == ERROR_SHARING_VIOLATION) && !needToCreateFile, status,
             L"(lastError == 5L || lastError == 32L) && !needToCreateFile =>false%s, ");
    grantedAccess = GENERIC_READ;
    return qcLog.Leave(CreateFileW(filePath, GENERIC_READ, shareMode, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, hFile));
}

VirtualVolumeStatus VirtualFile::Read(std::uint64_t offset, void* data, std::uint32_t dataSize, std::uint32_t* readDataSize) {
    QC_TRACE_THIS(L"VirtualFile::Read", L"in:offest[%s], in:dataSize[%s], %s", FormatInt64Str(static_cast<std::int64_t>(offset)),
                  FormatInt64Str(dataSize), DescriptionStr());
    QC_CHECK(!m_deleted, VVS_GeneralError, L"!m_deleted =>false%s, ");
    QC_CHECK_STATUS(MakeSureTempFileOpenIfNeeded(), L"MakeSureTempFileOpenIfNeeded() =>%s, ");
    const ContentGuard guard(*this);
    QC_CHECK_STATUS(VirtualItem::ReadFile(m_hFile.Get(), offset, data, dataSize, readDataSize),
                    L"VirtualItem::ReadFile(m_hFile, offset, data, dataSize, readDataSize) =>%s, ");
    QC_LOG(L"out: readDataSize[%s]", FormatInt64Str(readDataSize ? *readDataSize : 0));
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::Write(std::uint64_t offset, const void* data, std::uint32_t dataSize, std::uint32_t* writtenSize) {
    QC_TRACE_THIS(L"VirtualFile::Write", L"in:offest[%s], in:dataSize[%s], %s", FormatInt64Str(static_cast<std::int64_t>(offset)),
                  FormatInt64Str(dataSize), DescriptionStr());
    QC_CHECK(!m_deleted, VVS_GeneralError, L"!m_deleted =>false%s, ");
    QC_CHECK_STATUS(MakeSureTempFileOpenIfNeeded(), L"MakeSureTempFileOpenIfNeeded() =>%s, ");
    const ContentGuard guard(*this);
    m_tempIsContainers = false;  // also when only a part of it will be done
    QC_CHECK_STATUS(VirtualItem::WriteFile(m_hFile.Get(), offset, data, dataSize, writtenSize),
                    L"VirtualItem::WriteFile(m_hFile, offset, data, dataSize, writtenSize) =>%s, ");
    m_findDataValid = false;
    m_modified = m_encrypted;
    QC_LOG(L"out: writtenSize[%s]", FormatInt64Str(writtenSize ? *writtenSize : 0));
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::SetSize(std::uint64_t size) {
    QC_TRACE_THIS(L"VirtualFile::SetSize", L"in:size[%s], %s", FormatInt64Str(static_cast<std::int64_t>(size)), DescriptionStr());
    QC_CHECK(!m_deleted, VVS_GeneralError, L"!m_deleted =>false%s, ");
    QC_CHECK_STATUS(MakeSureTempFileOpenIfNeeded(), L"MakeSureTempFileOpenIfNeeded() =>%s, ");
    const ContentGuard guard(*this);
    m_tempIsContainers = false;  // also when only a part of it will be done
    QC_CHECK_STATUS(VirtualItem::SetFileSize(m_hFile.Get(), size), L"VirtualItem::SetFileSize(m_hFile, size) =>%s, ");
    m_findDataValid = false;
    m_modified = m_encrypted;
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::Close() {
    if (m_closed)
        return VVS_Success;
    QC_TRACE_THIS(L"VirtualFile::Close", L"%s, deleted[%s]", DescriptionStr(), FormatBoolStr(m_deleted));
    m_closed = true;
    VirtualVolumeStatus status = VVS_QuelcryptException;
    try {
        status = CloseContent();
    } catch (const std::bad_alloc&) {
        status = VSS_OutMemory;
    } catch (...) {  // an edit that was not saved is on disk, with its tracking file
    }
    m_hFile.Reset();
    m_lockedFile = {};
    return qcLog.Leave(status);
}

VirtualVolumeStatus VirtualFile::CloseContent() {
    VirtualVolumeStatus status = VVS_QuelcryptException;
    try {
        status = EncryptChangedTempFileIfNeeded();
    } catch (const std::bad_alloc&) {
        status = VSS_OutMemory;
    } catch (...) {  // like any failed save: the temp file is kept below
    }
    m_hFile.Reset();
    if (!m_encrypted)
        return status;
    if (m_deleted) {
        status = DeleteContainer();
        const bool isGone = status == VVS_Success;  // an edit that waits for its document goes with it only
        VirtualTempFileDispenser::Remove(m_itemFullPath, true, isGone);
        if (!m_copy.tempFilePath.empty())
            VirtualTempFileDispenser::DeleteTempFolder(m_copy.tempFilePath);
    } else if (!m_copy.tempFilePath.empty()) {
        KeepOrDropTempFile();
    }
    return status;
}

// A locked container goes by the mark on its own handle, when the lock is released.
VirtualVolumeStatus VirtualFile::DeleteContainer() {
    if (m_lockedFile.locked)
        return VVS_Success;
    QC_TRACE_THIS(L"VirtualFile::DeleteContainer");
    QC_CHECK_STATUS(DeleteFileOrFolder(GetZipFilePath()) == DeleteResult::Deleted ? VVS_Success : VVS_GeneralError,
                    L"DeleteFileOrFolder(GetZipFilePath()) =>%s, ");
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::MarkForDeletion(bool deleteFile) {
    QC_TRACE_THIS(L"VirtualFile::MarkForDeletion", L"%s", DescriptionStr());
    const wchar_t* const checkText = deleteFile ? L"DeleteUndeleteFile(m_hFile, true) =>%s, " : L"DeleteUndeleteFile(m_hFile, false) =>%s, ";
    const wchar_t* const lockedCheckText =
        deleteFile ? L"DeleteUndeleteFile(m_hLockedFile, true) =>%s, " : L"DeleteUndeleteFile(m_hLockedFile, false) =>%s, ";
    if (!m_encrypted || m_tempFileOpen)
        QC_CHECK_STATUS(StatusOfCall(DeleteUndeleteFile(m_hFile.Get(), deleteFile)), checkText);
    if (m_encrypted && m_lockedFile.locked)
        QC_CHECK_STATUS(StatusOfCall(DeleteUndeleteFile(m_lockedFile.hFile.Get(), deleteFile)), lockedCheckText);
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::Delete() {
    QC_TRACE_THIS(L"VirtualFile::Delete", L"this:itemFullPath[%s]", m_itemFullPath);
    if (!m_deleted) {
        const VirtualVolumeStatus status = MarkForDeletion(true);
        if (status != VVS_Success) {
            MarkForDeletion(false);
            return qcLog.Leave(status);
        }
        m_deleted = true;
    }
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::Undelete() {
    QC_TRACE_THIS(L"VirtualFile::Undelete", L"this:itemFullPath[%s]", m_itemFullPath);
    if (m_deleted) {
        const VirtualVolumeStatus status = MarkForDeletion(false);
        if (status != VVS_Success)
            return qcLog.Leave(status);
        m_deleted = false;
    }
    return qcLog.Leave(VVS_Success);
}

bool VirtualFile::GetFileInfo(VirtFindData* virtFindData) {
    QC_TRACE_THIS(L"VirtualFile::GetFileInfo");
    if (!m_findDataValid && m_encrypted && !m_tempFileOpen) {
        VirtFindData findData{};
        if (!VirtualFindFile::FindFile(GetZipFilePath().c_str(), &findData))
            return qcLog.Leave(false);
        SetFindData(&findData);
    }
    if (m_findDataValid) {
        *virtFindData = m_findData;
        return qcLog.Leave(true);
    }
    return qcLog.Leave(ReadFindData(GetWorkingPath(), m_encrypted ? VIT_EncryptedFile : VIT_PlainFile, virtFindData));
}

VirtualVolumeStatus VirtualFile::SetFileInfo(const VirtFindData* virtFindData) {
    QC_TRACE_THIS(L"VirtualFile::SetFileInfo");
    QC_CHECK(!m_deleted, VVS_GeneralError, L"!m_deleted =>false%s, ");
    if (m_encrypted && !m_tempFileOpen)
        return qcLog.Leave(VVS_Success);
    return qcLog.Leave(VirtualItem::SetFileInfo(virtFindData));
}

std::wstring VirtualFile::GetZipFilePath() const { return PathAddExtensionStr(m_itemFullPath, kContainerExtension); }

std::wstring VirtualFile::GetTempTrackingFile() const { return TrackingFilePathStr(m_copy.tempFilePath); }

std::wstring VirtualFile::DescriptionStr() const {
    const std::wstring temp = m_copy.tempFilePath.empty() ? std::wstring() : FormatStr(L" temp:%s", m_copy.tempFilePath);
    return FormatStr(L"this:itemFullPath[%s%s]%s", m_itemFullPath, m_encrypted ? L"(E)" : L"", temp);
}
