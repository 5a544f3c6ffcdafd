// Opening an encrypted file, and its temp file. Saving and deleting are in EncryptedContentSave.cpp.
#include "items/EncryptedContent.h"

#include "common/Halves.h"
#include "common/SaveNames.h"
#include "diagnostics/Trace.h"
#include "files/Deletion.h"
#include "files/OpenFile.h"
#include "items/ContainerCipher.h"
#include "items/TrackingFile.h"
#include "items/VirtualItem.h"
#include "library/Disk.h"
#include "library/FileVersion.h"
#include "library/Paths.h"
#include "library/PlatformPath.h"
#include "library/Status.h"
#include "library/Text.h"
#include "namespace/VirtualFindFile.h"
#include "policy/HvcUtils.h"

namespace {

// Texts of checks.
constexpr wchar_t kPossibleNameText[] = L"PathStripPathStr(filePath).find_first_of(L\"*?<>|\\\":\") == std::wstring::npos =>false%s, ";
constexpr wchar_t kGetLockedFileText[] =
    L"FileLocker::GetLockedFile(filePath + L\".zip\", desiredAccess, lockToken, m_locked, m_hLockedFile) =>%s, ";
constexpr wchar_t kOpenTempFileText[] = L"CreateFileW(tempFilePath, desiredAccess, shareMode, createDisposition, 0x80, hFile) =>%s, ";

constexpr int kDecryptAttempts = 4;

// Through another handle: after times were set on the working handle, the platform would not update them at its writes.
void ApplyTimes(const std::wstring& path, const VirtFindData& findData) {
    UniqueHandle hFile;
    if (VirtualItem::CreateFileW(path, FILE_WRITE_ATTRIBUTES, kShareAll, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, hFile) != VVS_Success)
        return;
    const FILETIME creation = FileTimeOf(findData.creationTime);
    const FILETIME lastAccess = FileTimeOf(findData.lastAccessTime);
    const FILETIME lastWrite = FileTimeOf(findData.lastWriteTime);
    const auto given = [](const FILETIME& time) { return FileTimeNumber(time) ? &time : nullptr; };
    SetFileTime(hFile.Get(), given(creation), given(lastAccess), given(lastWrite));
}

bool HasSize(HANDLE hFile, std::int64_t size) {
    LARGE_INTEGER actual{};
    return GetFileSizeEx(hFile, &actual) && actual.QuadPart == size;
}

// Removes the read-only attribute of a temp file until the end of this object. The host set it for the document; the volume must still
// open the file.
class WritableMeanwhile {
public:
    explicit WritableMeanwhile(const std::wstring& path) : m_path(path), m_attributes(GetFileAttributesW(m_path.c_str())) {
        m_isReadOnly = m_attributes != INVALID_FILE_ATTRIBUTES && (m_attributes & FILE_ATTRIBUTE_READONLY);
        if (m_isReadOnly)
            SetFileAttributesW(m_path.c_str(), m_attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
    }
    ~WritableMeanwhile() {
        if (m_isReadOnly)
            SetFileAttributesW(m_path.c_str(), m_attributes);
    }
    WritableMeanwhile(const WritableMeanwhile&) = delete;
    WritableMeanwhile& operator=(const WritableMeanwhile&) = delete;

private:
    const PlatformPath m_path;
    DWORD m_attributes;
    bool m_isReadOnly = false;
};

}  // namespace

std::wstring EncryptedContent::StoredPath() const { return ZipPathStr(m_state.Path()); }

// A locked file that is marked for deletion is read through the lock's handle, because it is no longer found by its path.
std::optional<FileVersion> EncryptedContent::StoredVersion() const {
    return m_lock.locked ? ReadOpenFileVersion(m_lock.hFile.Get(), StoredPath()) : ReadFileVersion(StoredPath());
}

std::wstring EncryptedContent::TrackingPath() const { return TrackingFilePathStr(m_copy.Path()); }

std::wstring EncryptedContent::DescriptionStr() const {
    const std::wstring temp = m_copy.Path().empty() ? std::wstring() : FormatStr(L" temp:%s", m_copy.Path());
    return FormatStr(L"this:itemFullPath[%s%s]%s", m_state.Path(), L"(E)", temp);
}

VirtualVolumeStatus EncryptedContent::Open(const std::wstring& filePath, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                           std::uint32_t openDisposition, Found found, const wchar_t* lockToken) {
    QC_TRACE_THIS(L"VirtualFile::OpenHalvaneFile", L"filePath[%s], desiredAccess[%s], shareMode[%s], openDisposition[%s]", filePath,
                  FormatAccessMaskStr(desiredAccess), FormatShareModeStr(shareMode), FormatCreationDispositionStr(openDisposition));
    const bool creates = CreatesFiles(openDisposition);
    const bool exists = found == Found::Document;
    const bool isMissing = found == Found::Nothing;
    const bool isContainerPath = found == Found::WaitingContainer;
    const std::wstring containerPath = exists            ? WithLongNameStr(ContainerPathStr(filePath))
                                       : isContainerPath ? filePath
                                                         : ZipPathStr(filePath);
    const std::wstring itemPath(WithoutContainerExtension(containerPath));
    const std::wstring fileName = PathStripPathStr(filePath);
    if (openDisposition == CREATE_NEW && !isMissing)
        QC_CHECK_OR_RETURN(!PathExists(filePath) && !PathExists(containerPath), VSS_FileExists, L"!PathExists(containerPath) =>false%s, ");
    QC_CHECK_OR_RETURN(IsPossibleName(fileName), VVS_InvalidParameter, kPossibleNameText);
    if (creates && !exists) {
        // What is there is not this file's container, and a save must not or cannot replace it: a conflict copy, a ZIP file, a folder.
        QC_CHECK_OR_RETURN(isMissing ? !IsExistingFolder(containerPath) : !PathExists(containerPath), VVS_PathAlreadyExists,
                           L"!PathExists(containerPath) =>false%s, ");
        // The container must not get the name under which another document is shown.
        QC_CHECK_OR_RETURN(!PathExists(ZipPathStr(containerPath)), VVS_PathAlreadyExists,
                           L"!PathExists(ZipPathStr(containerPath)) =>false%s, ");
        // The container is made only at the close, when it would be too late to refuse the name.
        QC_CHECK_OR_RETURN(IsNameForNewFile(fileName, true), VVS_InvalidParameter,
                           L"IsNameForNewFile(PathStripPathStr(filePath)) =>false%s, ");
        QC_CHECK_OR_RETURN(IsExistingFolder(PathRemoveFileSpecStr(filePath)), VVS_PathNotFound,
                           L"IsExistingFolder(PathRemoveFileSpecStr(filePath)) =>false%s, ");
    }
    if (!creates)
        QC_CHECK_OR_RETURN(IsExistingFile(containerPath) || VirtualTempFileDispenser::HoldsUnsavedEdit(itemPath), VVS_FileNotFound,
                           L"IsExistingFile(containerPath) =>false%s, ");
    // The item needs full access to the locked container, whatever the host asked for.
    QC_CHECK_STATUS_OR_RETURN(FileLocker::GetLockedFile(containerPath.c_str(), desiredAccess, kFullContentAccess, lockToken, &m_lock),
                              kGetLockedFileText);
    if (m_lock.locked && !creates) {
        const SectionGuard guard(m_lock.content->section);
        QC_CHECK_OR_RETURN(!m_lock.content->isDeleted, VVS_FileNotFound, L"!m_lock.content->isDeleted =>false%s, ");
    }
    m_startsEmpty = openDisposition != OPEN_EXISTING;
    m_isBaseKnown = m_startsEmpty;
    if (m_startsEmpty && openDisposition != CREATE_NEW)
        m_base = ReadFileVersion(containerPath);
    m_state.SetPath(itemPath);
    return qcLog.Leave(VVS_Success);
}

void EncryptedContent::Adopt(LockedFile lock) {
    m_lock = std::move(lock);
    m_base = StoredVersion();
    m_isBaseKnown = true;
}

VirtualVolumeStatus EncryptedContent::MakeSureTempFileOpenIfNeeded(TempContent content) {
    if (m_copy.IsMade())
        return VVS_Success;
    QC_TRACE_THIS(L"VirtualFile::MakeSureTempFileOpenIfNeeded", L"%s", DescriptionStr());
    const bool mayNeedContainer = !m_startsEmpty || content == TempContent::OfContainer;
    const std::optional<FileVersion> container = mayNeedContainer ? StoredVersion() : std::nullopt;
    const bool decrypt = !m_startsEmpty || (content == TempContent::OfContainer && container);
    RetainedCopy copy;
    const bool retained = VirtualTempFileDispenser::Dispense(m_state.Path(), decrypt,
                                                             decrypt && m_state.findData ? &*m_state.findData : nullptr, container, copy);
    QC_CHECK_OR_RETURN(!copy.tempFilePath.empty(), VVS_GeneralError, L"!tempFilePath.IsEmpty() =>false%s, ");

    UniqueHandle hFile;
    bool reused = retained;
    // After a failure, a new temp file is deleted and a retained copy is given back, so that an unsaved edit is not forgotten because
    // opening it failed once.
    const OnExit giveBack([&] {
        if (m_copy.IsMade())
            return;
        hFile.Reset();
        if (reused)
            VirtualTempFileDispenser::Retain(m_state.Path(), copy);
        else
            VirtualTempFileDispenser::DeleteTempFolder(copy.tempFilePath);
    });
    std::optional<WritableMeanwhile> writable;
    if (retained)
        writable.emplace(copy.tempFilePath);
    QC_CHECK_STATUS_OR_RETURN(VirtualItem::CreateFileInAMoment(copy.tempFilePath, kFullContentAccess, kShareAll,
                                                               retained ? OPEN_ALWAYS : CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, hFile),
                              kOpenTempFileText);
    reused = retained && GetLastError() == ERROR_ALREADY_EXISTS;
    if (decrypt && !reused) {
        const VirtualVolumeStatus status = FillTempFile(container, copy, hFile.Get());
        if (status != VVS_Success)
            return qcLog.Leave(status);
    }
    if (decrypt) {  // base and record are now those of this content
        m_base = copy.container;
        m_isBaseKnown = true;
        const bool isRecordKnown = !copy.unsaved && copy.findData.fileName[0] != L'\0';
        m_state.findData = isRecordKnown ? std::optional(copy.findData) : std::nullopt;
    }
    m_copy.Make(std::move(copy), std::move(hFile), decrypt);
    if (!SaveTrackerFileItem())
        QC_REPORT(L"SaveTrackerFileItem() =>false%s, ");
    return qcLog.Leave(VVS_Success);
}

// Decrypts again when the container was replaced meanwhile, so that content and recorded version agree.
VirtualVolumeStatus EncryptedContent::FillTempFile(std::optional<FileVersion> before, RetainedCopy& copy, HANDLE hFile) {
    QC_TRACE_THIS(L"VirtualFile::FillTempFile", L"%s", DescriptionStr());
    for (int attempt = 0; attempt < kDecryptAttempts; ++attempt) {
        if (!before)
            before = StoredVersion();
        QC_CHECK_OR_RETURN(before.has_value(), StatusFromLastError(), L"ReadFileVersion(GetZipFilePath()) =>false%s, ");
        QC_CHECK_STATUS_OR_RETURN(VirtualItem::SetFileSize(hFile, 0), L"VirtualItem::SetFileSize(hFile, 0) =>%s, ");
        // A lock creates containers of 0 bytes, which no reader accepts.
        const VirtualVolumeStatus status =
            before->stamp.size > 0 ? container_cipher::DecryptToFile(StoredPath(), m_lock, copy.tempFilePath, hFile) : VVS_Success;
        VirtFindData findData{};
        const bool isKnown = VirtualFindFile::FindContainerOnDisk(StoredPath(), &findData);
        const std::optional<FileVersion> after = StoredVersion();
        if (!after || !(*after == *before)) {
            before = after;
            continue;
        }
        if (status != VVS_Success)
            return qcLog.Leave(status);
        // If a reader ended early, a part of the content must not be edited and saved as the whole.
        QC_CHECK_OR_RETURN(!isKnown || findData.itemType == VIT_PlainFile || HasSize(hFile, findData.fileSize), VSS_DecryptError,
                           L"HasSize(hFile, findData.fileSize) =>false%s,  %s", L"findData[%s]", FormatFindDataStr(&findData));
        copy.container = before;
        copy.unsaved = false;
        // An empty container has no record to read.
        copy.findData = isKnown && findData.itemType != VIT_PlainFile ? findData : m_state.findData.value_or(VirtFindData{});
        ApplyTimes(copy.tempFilePath, copy.findData);
        return qcLog.Leave(VVS_Success);
    }
    QC_REPORT_STATUS(VSS_SharingViolation, L"ReadFileVersion(GetZipFilePath()) == before =>%s, ");
    return qcLog.Leave(VSS_SharingViolation);
}

VirtualVolumeStatus EncryptedContent::DoRead(std::uint64_t place, void* data, std::uint32_t dataSize, std::uint32_t* count) {
    return ReadFileAt(m_copy.File(), place, data, dataSize, count);
}

VirtualVolumeStatus EncryptedContent::DoWrite(std::uint64_t place, const void* data, std::uint32_t dataSize, std::uint32_t* count) {
    m_copy.WillBeWritten();
    const VirtualVolumeStatus status = WriteFileAt(m_copy.File(), place, data, dataSize, count);
    if (status == VVS_Success)
        WasWritten();
    return status;
}

VirtualVolumeStatus EncryptedContent::SetSize(std::uint64_t size) {
    m_copy.WillBeWritten();
    const VirtualVolumeStatus status = VirtualItem::SetFileSize(m_copy.File(), size);
    if (status == VVS_Success)
        WasWritten();
    return status;
}

void EncryptedContent::WasWritten() {
    m_copy.WasWritten();
    m_wasWritten = true;
}

VirtualVolumeStatus EncryptedContent::MarkForDeletion(bool deleteFile) {
    QC_TRACE_THIS(L"VirtualFile::MarkForDeletion", L"%s", DescriptionStr());
    const wchar_t* const checkText =
        deleteFile ? L"DeleteUndeleteFile(m_hFile, true) =>%s, " : L"DeleteUndeleteFile(m_hFile, false) =>%s, ";
    // Before the mark: some systems do not open a marked file by its path.
    const std::optional<FileVersion> version = deleteFile ? ReadFileVersion(StoredPath()) : std::nullopt;
    const wchar_t* const lockedCheckText =
        deleteFile ? L"DeleteUndeleteFile(m_hLockedFile, true) =>%s, " : L"DeleteUndeleteFile(m_hLockedFile, false) =>%s, ";
    if (m_copy.IsMade())
        QC_CHECK_STATUS_OR_RETURN(StatusOfCall(DeleteUndeleteFile(m_copy.File(), deleteFile)), checkText);
    if (m_lock.locked) {
        const SectionGuard guard(m_lock.content->section);
        const VirtualVolumeStatus status =
            StatusOfCall(DeleteUndeleteFile(m_lock.hFile.Get(), deleteFile || m_lock.content->isDeletedUnlessWritten));
        if (status != VVS_Success && m_copy.IsMade())
            DeleteUndeleteFile(m_copy.File(), !deleteFile);
        QC_CHECK_STATUS_OR_RETURN(status, lockedCheckText);
        m_lock.content->isDeleted = deleteFile;
    }
    m_deletedVersion = version;
    m_deletedEdit = deleteFile && !m_startsEmpty ? VirtualTempFileDispenser::ShownEdit(m_state.Path(), version) : std::nullopt;
    return qcLog.Leave(VVS_Success);
}

bool EncryptedContent::GetFileInfo(VirtFindData* virtFindData) {
    if (m_copy.IsMade()) {
        const bool isDescribed = VirtualFindFile::DescribeOnDisk(m_copy.Path(), VIT_EncryptedFile, virtFindData);
        CopyBounded(virtFindData->fileName, m_state.Name());  // the copy still has its first name
        return isDescribed;
    }
    if (!VirtualFindFile::FindFile(StoredPath().c_str(), virtFindData))
        return false;
    m_state.findData = *virtFindData;
    return true;
}

bool EncryptedContent::SaveTrackerFileItem() {
    QC_TRACE_THIS(L"VirtualFile::SaveTrackerFileItem");
    const std::optional<FileStamp> temp = ReadOpenFileStamp(m_copy.File());
    QC_CHECK_OR_RETURN(temp.has_value(), false, L"GetFileInformationByHandle(m_hFile, &tempFileInfo) != 0 =>false%s,  %s", L"Error[%s]",
                       SystemErrorStr(GetLastError()));
    return qcLog.Leave(
        WriteTrackingFile(TrackingPath(), {StoredPath(), m_base.value_or(FileVersion{}).stamp, m_copy.Path(), *temp, m_state.Name()}));
}

bool EncryptedContent::IsOnlyNamed() const { return m_startsEmpty && !m_base && !m_copy.HoldsEdit() && !PathExists(StoredPath()); }

VirtualVolumeStatus EncryptedContent::PrepareContent() {
    // What was written and stored, and whose container somebody deleted since, is in the copy alone.
    const bool isOnlyHere = m_startsEmpty && m_wasWritten && m_copy.Get() == WorkingCopy::State::Unneeded && !StoredVersion();
    if (m_copy.Get() != WorkingCopy::State::Unneeded || isOnlyHere) {
        m_copy.SettleTime();
        return MakeSureTempFileOpenIfNeeded(TempContent::OfContainer);
    }
    // Replaces the copy by what is stored, but only if that can be decrypted: the copy may be all that is left of a deleted container.
    WorkingCopy before;
    std::swap(m_copy, before);
    const VirtualVolumeStatus status = MakeSureTempFileOpenIfNeeded(TempContent::OfContainer);
    if (status != VVS_Success)
        std::swap(m_copy, before);
    before.Discard();
    return status;
}

void EncryptedContent::StartEmptyAgain(const std::optional<FileVersion>& base) {
    if (m_copy.IsMade() && !m_copy.HoldsEdit())
        DeleteFileOrFolder(TrackingPath());
    m_copy.GiveBack(m_state.Path(), m_base);
    m_base = base;
    m_startsEmpty = true;
}

VirtualVolumeStatus EncryptedContent::CheckBase() {
    const std::optional<FileVersion> now = ReadFileVersion(StoredPath());
    if (!m_isBaseKnown) {
        m_base = now;
        m_isBaseKnown = true;
    }
    return IsStillVersion(m_base, now) ? VVS_Success : VSS_SharingViolation;
}
