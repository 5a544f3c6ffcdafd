#include "items/PlainContent.h"

#include "diagnostics/Trace.h"
#include "files/OpenFile.h"
#include "items/VirtualItem.h"
#include "library/FileVersion.h"
#include "library/Status.h"
#include "library/Win32Error.h"
#include "namespace/VirtualFindFile.h"

namespace {

// Texts of checks.
constexpr wchar_t kGetLockedFileText[] = L"FileLocker::GetLockedFile(filePath, desiredAccess, lockToken, m_locked, m_hFile) =>%s, ";

}  // namespace

VirtualVolumeStatus PlainContent::Open(const std::wstring& filePath, bool isLink, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                       std::uint32_t openDisposition, const wchar_t* lockToken) {
    QC_TRACE_THIS(L"VirtualFile::OpenPlainFile", L"filePath[%s], desiredAccess[%s], shareMode[%s], openDisposition[%s]", filePath,
                  FormatAccessMaskStr(desiredAccess), FormatShareModeStr(shareMode), FormatCreationDispositionStr(openDisposition));
    m_state.SetPath(filePath);  // before anything is created or cut: it needs memory
    // A link itself is deleted or moved; its target is only read and written.
    if (isLink && desiredAccess == DELETE) {
        m_openFlags = FILE_FLAG_OPEN_REPARSE_POINT;
    } else if (isLink) {
        if (desiredAccess & GENERIC_ALL)
            desiredAccess |= GENERIC_READ | GENERIC_WRITE;
        desiredAccess &= ~static_cast<std::uint32_t>(DELETE | GENERIC_ALL);
    }
    m_wantedAccess = desiredAccess;
    m_grantedAccess = desiredAccess;
    m_shareMode = shareMode;
    LockedFile lock;
    // Every opener gets DELETE, to take a deletion mark back; MarkForDeletion refuses a host that did not ask for it. An open that
    // creates gets GENERIC_WRITE, to cut the file; BeginWrite refuses later writes.
    const std::uint32_t extraAccess = CreatesFiles(openDisposition) ? DELETE | GENERIC_WRITE : DELETE;
    QC_CHECK_STATUS_OR_RETURN(FileLocker::GetLockedFile(filePath.c_str(), desiredAccess, extraAccess, lockToken, &lock),
                              kGetLockedFileText);
    if (lock.locked) {
        m_hFile = std::move(lock.hFile);
        m_lock = std::move(lock);
    }
    const VirtualVolumeStatus status =
        m_lock.locked ? OpenLocked(openDisposition) : CreteFileWithReadOnlyFallback(filePath, desiredAccess, shareMode, openDisposition);
    return qcLog.Leave(status);
}

// Does on the lock's open file what the platform would do for the disposition.
VirtualVolumeStatus PlainContent::OpenLocked(std::uint32_t openDisposition) {
    QC_TRACE_THIS(L"VirtualFile::OpenLocked");
    const SectionGuard guard(m_lock.content->section);
    const bool isMissing = m_lock.content->isDeleted;
    QC_CHECK_OR_RETURN(!isMissing || CreatesFiles(openDisposition), VVS_FileNotFound, L"!m_lock.content->isDeleted =>false%s, ");
    QC_CHECK_OR_RETURN(isMissing || openDisposition != CREATE_NEW, VSS_FileExists, L"openDisposition != CREATE_NEW =>false%s, ");
    if (isMissing || Truncates(openDisposition))
        QC_CHECK_STATUS_OR_RETURN(VirtualItem::SetFileSize(m_hFile.Get(), 0), L"SetFileSize(m_hFile, 0) =>%s, ");
    if (isMissing)
        QC_CHECK_STATUS_OR_RETURN(StatusOfCall(DeleteUndeleteFile(m_hFile.Get(), false)), L"DeleteUndeleteFile(m_hFile, false) =>%s, ");
    m_lock.content->isDeleted = false;
    m_lock.content->isWritten = m_lock.content->isWritten || isMissing || Truncates(openDisposition);
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus PlainContent::CreteFileWithReadOnlyFallback(const std::wstring& filePath, std::uint32_t desiredAccess,
                                                                std::uint32_t shareMode, std::uint32_t openDisposition) {
    QC_TRACE(L"VirtualFile::CreteFileWithReadOnlyFallback");
    m_grantedAccess = desiredAccess;
    const auto create = Truncates(openDisposition) ? VirtualItem::CreateFileInAMoment : VirtualItem::CreateFileW;
    const VirtualVolumeStatus status =
        create(filePath, desiredAccess, shareMode, openDisposition, FILE_ATTRIBUTE_NORMAL | m_openFlags, m_hFile);
    if (status == VVS_Success)
        return qcLog.Leave(status);
    const DWORD lastError = GetLastError();
    const bool needToCreateFile = openDisposition == CREATE_NEW || openDisposition == CREATE_ALWAYS;
    QC_CHECK_OR_RETURN((lastError == ERROR_ACCESS_DENIED || lastError == ERROR_SHARING_VIOLATION) && !needToCreateFile, status,
                       L"(lastError == 5L || lastError == 32L) && !needToCreateFile =>false%s, ");
    m_grantedAccess = GENERIC_READ;
    if (Truncates(openDisposition))
        m_wantedAccess = GENERIC_READ;  // the file was not cut, so later writes must be refused
    return qcLog.Leave(
        VirtualItem::CreateFileW(filePath, GENERIC_READ, shareMode, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | m_openFlags, m_hFile));
}

void PlainContent::Adopt(LockedFile lock) {
    if (lock.locked) {
        m_grantedAccess = kFullContentAccess;
        m_hFile = std::move(lock.hFile);
        m_lock = std::move(lock);
    } else {
        Reopen(true);
    }
}

void PlainContent::Reopen(bool withFullAccess) {
    if (withFullAccess) {
        m_grantedAccess = kFullContentAccess;
        m_shareMode = kShareAll;
    }
    CreteFileWithReadOnlyFallback(m_state.Path(), m_grantedAccess, m_shareMode, OPEN_EXISTING);
}

// If others held the file when it was opened, asks again for the access that was refused then.
bool PlainContent::IsGranted(std::uint32_t access) {
    if (!(m_grantedAccess & access) && (m_wantedAccess & access) && !m_lock.locked && IsAtItsPath()) {
        m_hFile.Reset();
        const VirtualVolumeStatus status = VirtualItem::CreateFileInAMoment(m_state.Path(), m_wantedAccess, m_shareMode, OPEN_EXISTING,
                                                                            FILE_ATTRIBUTE_NORMAL | m_openFlags, m_hFile);
        if (status == VVS_Success)
            m_grantedAccess = m_wantedAccess;
        else
            Reopen(false);
    }
    return m_grantedAccess & access;
}

bool PlainContent::IsReadOnly() const {
    const std::optional<FileStamp> stamp = ReadOpenFileStamp(m_hFile.Get());
    return stamp && (stamp->attributes & FILE_ATTRIBUTE_READONLY);
}

bool PlainContent::IsAtItsPath() const {
    if (m_openFlags & FILE_FLAG_OPEN_REPARSE_POINT)  // the handle is the link's, the path leads to its target
        return true;
    return IsOpenFileAt(m_hFile.Get(), m_state.Path());
}

VirtualVolumeStatus PlainContent::OpenForReading(UniqueHandle& hSecond, HANDLE& hSource) const {
    hSource = m_hFile.Get();
    if (m_grantedAccess & (GENERIC_READ | GENERIC_ALL | FILE_READ_DATA))
        return VVS_Success;
    const VirtualVolumeStatus status =
        VirtualItem::CreateFileW(m_state.Path(), GENERIC_READ, kShareAll, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, hSecond);
    hSource = hSecond.Get();
    return status;
}

VirtualVolumeStatus PlainContent::DoRead(std::uint64_t place, void* data, std::uint32_t dataSize, std::uint32_t* count) {
    const SectionGuard guard(m_lock.content->section);
    if (m_lock.content->isDeleted)
        return VVS_GeneralError;
    if (!m_startsEmpty)
        return ReadFileAt(m_hFile.Get(), place, data, dataSize, count);
    *count = 0;
    return VVS_Success;
}

VirtualVolumeStatus PlainContent::DoWrite(std::uint64_t place, const void* data, std::uint32_t dataSize, std::uint32_t* count) {
    const SectionGuard guard(m_lock.content->section);
    const VirtualVolumeStatus begun = BeginWrite();
    const VirtualVolumeStatus status = begun == VVS_Success ? WriteFileAt(m_hFile.Get(), place, data, dataSize, count) : begun;
    if (status == VVS_Success && m_lock.content->isTimeSet)
        SetWriteTimeToNow(m_hFile.Get());
    return status;
}

VirtualVolumeStatus PlainContent::SetSize(std::uint64_t size) {
    const SectionGuard guard(m_lock.content->section);
    const VirtualVolumeStatus begun = BeginWrite();
    const VirtualVolumeStatus status = begun == VVS_Success ? VirtualItem::SetFileSize(m_hFile.Get(), size) : begun;
    if (status == VVS_Success && m_lock.content->isTimeSet)
        SetWriteTimeToNow(m_hFile.Get());
    return status;
}

VirtualVolumeStatus PlainContent::BeginWrite() {
    if (m_lock.content->isDeleted)
        return VVS_GeneralError;
    // With a duplicated handle some systems check the access for writes, but not for cuts.
    if (!IsGranted(GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA) && m_lock.locked)
        return VVS_AccessDenied;
    if (m_lock.content->isDeletedUnlessWritten) {
        const Win32Error error = DeleteUndeleteFile(m_hFile.Get(), false);
        if (error != Win32Error::None)
            return StatusOfCall(error);
        m_lock.content->isDeletedUnlessWritten = false;
    }
    m_lock.content->isWritten = true;
    const VirtualVolumeStatus status = m_startsEmpty ? VirtualItem::SetFileSize(m_hFile.Get(), 0) : VVS_Success;
    m_startsEmpty = m_startsEmpty && status != VVS_Success;
    return status;
}

VirtualVolumeStatus PlainContent::MarkForDeletion(bool deleteFile) {
    QC_TRACE_THIS(L"VirtualFile::MarkForDeletion", L"%s", DescriptionStr());
    const wchar_t* const checkText =
        deleteFile ? L"DeleteUndeleteFile(m_hFile, true) =>%s, " : L"DeleteUndeleteFile(m_hFile, false) =>%s, ";
    QC_CHECK_STATUS_OR_RETURN(!deleteFile || MayDelete() ? VVS_Success : VVS_AccessDenied, checkText);
    const SectionGuard guard(m_lock.content->section);
    const bool isMarked = deleteFile || m_lock.content->isDeletedUnlessWritten;
    QC_CHECK_STATUS_OR_RETURN(StatusOfCall(DeleteUndeleteFile(m_hFile.Get(), isMarked)), checkText);
    m_lock.content->isDeleted = deleteFile;
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus PlainContent::Close(bool) {
    m_hFile.Reset();
    m_lock = {false, {}, std::make_shared<LockedContent>()};
    return VVS_Success;
}

bool PlainContent::GetFileInfo(VirtFindData* virtFindData) {
    const bool isDescribed = VirtualFindFile::DescribeOnDisk(m_state.Path(), VIT_PlainFile, virtFindData);
    if (m_startsEmpty)
        virtFindData->fileSize = 0;
    return isDescribed;
}

// Setting the attributes alone sets the time, too.
void PlainContent::InfoWasSet(bool) {
    const SectionGuard guard(m_lock.content->section);
    m_lock.content->isTimeSet = true;
}

std::wstring PlainContent::DescriptionStr() const { return FormatStr(L"this:itemFullPath[%s]", m_state.Path()); }
