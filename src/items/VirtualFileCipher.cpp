// Moving content between an encrypted item's container and its temp file, through the companion library's reader and writer.
#include "items/VirtualFile.h"

#include <memory>
#include <mutex>

#include "diagnostics/Trace.h"
#include "items/BackupFile.h"
#include "items/FileContent.h"
#include "items/SaveNames.h"
#include "library/Text.h"
#include "namespace/VirtualFindFile.h"
#include "policy/FileUtils.h"
#include "policy/HvcUtils.h"
#include "quelcrypt/QuelcryptExceptions.h"

namespace {

constexpr std::int32_t kWriterMode = 2;
constexpr int kMostConflictNames = 1000;
constexpr int kSaveAttempts = 3;

using LibraryString = LibraryPtr<IHvcStringW>;
LibraryString MakeLibraryString(const std::wstring& text) { return LibraryString(new CHvcStringWImpl(text.c_str())); }

SYSTEMTIME SystemTimeOf(const FILETIME& time) {
    SYSTEMTIME systemTime{};
    FileTimeToSystemTime(&time, &systemTime);
    return systemTime;
}

// A temp file for a container that is not used in place; its folder goes when this ends, unless it is kept.
class TempContainer {
public:
    explicit TempContainer(const std::wstring& fileName) { VirtualTempFileDispenser::CreateTempFileName(fileName, m_path); }
    ~TempContainer() {
        const OnExit deleteFolder([this] {
            if (!m_path.empty() && !m_kept)
                VirtualTempFileDispenser::DeleteTempFolder(m_path);
        });
    }
    TempContainer(const TempContainer&) = delete;
    TempContainer& operator=(const TempContainer&) = delete;
    const std::wstring& Path() const { return m_path; }  // empty: no folder could be made
    void Keep(bool keep) { m_kept = keep; }

private:
    std::wstring m_path;
    bool m_kept = false;
};

}  // namespace

VirtualVolumeStatus VirtualFile::DecryptToFile(const std::wstring& destFilePath, HANDLE hDestFile) {
    QC_TRACE_THIS(L"VirtualFile::DecryptToFile", L"srcFilePath[%s], destFilePath[%s]", m_itemFullPath, destFilePath);
    if (!m_lockedFile.locked)
        return qcLog.Leave(DecryptContainer(GetZipFilePath(), destFilePath, hDestFile));
    const TempContainer tempZip(PathStripPathStr(GetZipFilePath()));
    QC_CHECK(!tempZip.Path().empty(), VVS_GeneralError,
             L"VirtualTempFileDispenser::CreateTempFileName(PathStripPathStr(origFilePathHalvane), tempZipFilePath) =>false%s, ");
    const VirtualVolumeStatus status = CopyLockedContainer(tempZip.Path());
    return qcLog.Leave(status == VVS_Success ? DecryptContainer(tempZip.Path(), destFilePath, hDestFile) : status);
}

VirtualVolumeStatus VirtualFile::CopyLockedContainer(const std::wstring& tempZipFilePath) {
    QC_TRACE_THIS(L"VirtualFile::CopyLockedContainer", L"destFilePath[%s]", tempZipFilePath);
    UniqueHandle hTempZip;
    QC_CHECK_STATUS(CreateFileW(tempZipFilePath, GENERIC_WRITE, FILE_SHARE_READ, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, hTempZip),
                    L"CreateFileW(tempZipFilePath, (0x40000000L), 0x00000001, 2, 0x80, hTempZip) =>%s, ");
    const std::lock_guard guard(*m_lockedFile.contentLock);
    QC_CHECK(file_content::CopyFileW(m_lockedFile.hFile.Get(), hTempZip.Get()), StatusFromLastError(),
             L"CopyFileW(m_hLockedFile, hTempZip) =>false%s, ");
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::DecryptContainer(const std::wstring& containerPath, const std::wstring& destFilePath, HANDLE hDestFile) {
    QC_TRACE_THIS(L"VirtualFile::DecryptContainer", L"srcFilePath[%s], destFilePath[%s]", containerPath, destFilePath);
    try {
        const LibraryString path = MakeLibraryString(containerPath);
        const LibraryPtr<IFileReader> reader(Quelcrypt_FileReaderFactory(path.Get()));
        QC_CHECK(static_cast<bool>(reader), VSS_DecryptError, L"reader != 0 =>false%s, ");
        FilePointer filePointer(hDestFile, 0);
        QC_CHECK(filePointer.PointerWasSet(), StatusFromLastError(), L"filePointer.PointerWasSet() =>false%s, ");
        QC_LOG(L"Dest file original pos[%s]", FormatInt64Str(filePointer.OriginalPosition()));
        while (reader->Advance() != 0) {
            const DWORD length = reader->GetDataLength();
            const void* const data = reader->GetData();
            QC_CHECK(data != nullptr || length == 0, VSS_DecryptError, L"reader->GetData() != 0 =>false%s, ");
            DWORD bytesWritten = 0;
            QC_CHECK(length == 0 || (file_content::WriteFile(destFilePath, hDestFile, data, length, &bytesWritten) && bytesWritten == length),
                     StatusFromLastError(),
                     L"WriteFile(destFilePath, hDestFile, reader->GetData(), reader->GetDataLength(), &bytesWritten) && bytesWritten == "
                     L"reader->GetDataLength() =>false%s, ");
        }
        return qcLog.Leave(VVS_Success);
    } catch (const CQuelcryptErrorException& exception) {
        if (EqualNoCase(exception.GetDescription(), L"Cannot recover password"))
            QC_LOG_AT(LogLevel_Error, L"Exception[%s], srcFilePath[%s], destFilePath[%s]", exception.GetDescription(), containerPath,
                      destFilePath);
        else
            QC_REPORT_STATUS(VSS_DecryptError, L"VSS_DecryptError =>%s,  %s", L"Exception, srcFilePath[%s], destFilePath[%s]", containerPath, destFilePath);
    } catch (...) {
        QC_REPORT_STATUS(VSS_DecryptError, L"VSS_DecryptError =>%s,  %s", L"Exception, srcFilePath[%s], destFilePath[%s]", containerPath, destFilePath);
    }
    return qcLog.Leave(VSS_DecryptError);
}

VirtualVolumeStatus VirtualFile::EncryptChangedTempFileIfNeeded() {
    if (!m_encrypted || m_deleted || !m_tempFileOpen)
        return VVS_Success;
    QC_TRACE_THIS(L"VirtualFile::EncryptChangedTempFileIfNeeded", L"%s", DescriptionStr());
    if (!m_modified) {
        QC_CHECK_STATUS(DeleteFileOrFolder(GetTempTrackingFile()) == DeleteResult::Deleted ? VVS_Success : VVS_GeneralError,
                        L"DeleteFileOrFolder(GetTempTrackingFile()) =>%s, ");
        return qcLog.Leave(VVS_Success);
    }
    const SaveGate gate(GetZipFilePath());
    const bool isTaken = IsSourceChanged() || IsLockedByOthers();
    VirtualVolumeStatus status = isTaken ? SaveUnderFreeName() : EncryptChangedTempFile();
    for (int attempt = 0; status == VVS_PathAlreadyExists && attempt < kSaveAttempts; ++attempt)
        status = SaveUnderFreeName();
    QC_CHECK_STATUS(status, L"EncryptChangedTempFile() =>%s, ");
    return qcLog.Leave(VVS_Success);
}

bool VirtualFile::IsSourceChanged() const {
    const std::optional<FileStamp> container = ReadFileStamp(GetZipFilePath());
    if (!container || *container == m_copy.container)
        return false;
    // The empty file that a lock makes is nobody's change of a document that was never stored.
    return !m_lockedFile.locked || m_copy.container != FileStamp{} || container->size != 0;
}

// Was a lock taken after the item had been opened? Its holder counts on nobody else changing the file.
bool VirtualFile::IsLockedByOthers() const {
    LockInfo lockInfo{};
    return !m_lockedFile.locked && FileLocker::FindLock(GetZipFilePath().c_str(), nullptr, &lockInfo) == VVS_Success;
}

// Saves beside a container that somebody else changed or locked. The name is reserved by an empty file, which the writer replaces:
// no two savers can take the same one. Encrypting takes long, so whether the name is still free is asked again before the
// container is put in place. When saving fails the item keeps its own name, under which the edit is found again.
VirtualVolumeStatus VirtualFile::SaveUnderFreeName() {
    QC_TRACE_THIS(L"VirtualFile::SwitchToConflictNameIfSrcChanged", L"%s", DescriptionStr());
    const std::wstring ownPath = m_itemFullPath;
    bool isReserved = false;
    const FileStamp ownContainer = m_copy.container;
    const LockedFile ownLock = std::move(m_lockedFile);
    m_lockedFile = {};
    const OnExit restoreUnlessSaved([&] {
        if (m_tempIsContainers && !m_modified)
            return;
        if (isReserved)
            DeleteIfEmpty(GetZipFilePath());
        m_copy.container = ownContainer;
        SetItemPath(ownPath);
    });
    bool mayBeTaken = true;
    for (int number = 1; !isReserved && mayBeTaken; ++number) {
        QC_CHECK(number <= kMostConflictNames, VVS_GeneralError, L"number <= kMostConflictNames =>false%s, ");
        const std::wstring name = SaveNameStr(PathStripPathStr(ownPath), SaveName::ConflictedEdit, number);
        SetItemPath(FormatStr(L"%s\\%s", PathRemoveFileSpecStr(ownPath), name));
        if (PathExists(m_itemFullPath) || PathExists(GetZipFilePath()))
            continue;
        // Should the folder refuse new files, saving there tells why.
        UniqueHandle hReserved;
        isReserved = CreateFileW(GetZipFilePath(), GENERIC_WRITE, kShareAll, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, hReserved) == VVS_Success;
        mayBeTaken = isReserved || GetLastError() == ERROR_FILE_EXISTS;
    }
    m_copy.container = ReadFileStamp(GetZipFilePath()).value_or(FileStamp{});
    return qcLog.Leave(EncryptChangedTempFile());
}

VirtualVolumeStatus VirtualFile::EncryptChangedTempFile() {
    QC_TRACE_THIS(L"VirtualFile::EncryptChangedTempFile", L"%s", DescriptionStr());
    const std::wstring& tempFilePath = m_copy.tempFilePath;
    const VirtualVolumeStatus status =
        m_lockedFile.locked ? EncryptOpenFileLocked(GetZipFilePath(), m_itemName, tempFilePath, m_hFile.Get(), m_lockedFile)
                            : EncryptOpenFileUnlocked(GetZipFilePath(), m_itemName, tempFilePath);
    QC_CHECK_STATUS(status, L"EncryptOpenFile(GetZipFilePath(), m_itemName, m_tempFilePath) =>%s, ");
    QC_CHECK_STATUS(DeleteFileOrFolder(GetTempTrackingFile()) == DeleteResult::Deleted ? VVS_Success : VVS_GeneralError,
                    L"DeleteFileOrFolder(GetTempTrackingFile()) =>%s, ");
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::EncryptOpenFileUnlocked(const std::wstring& zipFilePath, const std::wstring& virtualFileSpec,
                                                         const std::wstring& srcFilePath) {
    QC_TRACE_THIS(L"VirtualFile::EncryptOpenFileUnlocked");
    const VirtualVolumeStatus status = EncryptOpenFileInternal(zipFilePath, virtualFileSpec, srcFilePath, m_hFile.Get(), true);
    if (status == VVS_Success)
        RememberSavedState();
    if (status == VVS_Success || status == VVS_PathAlreadyExists)
        return qcLog.Leave(status);
    QC_CHECK(BackupTempFile(srcFilePath, zipFilePath, m_itemName, DescriptionStr()), VVS_GeneralError,
             L"BackupTempFile(srcFilePath, zipFilePath) =>false%s, ");
    m_modified = false;  // the edit is safe, though not in the container
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::EncryptOpenFileLocked(const std::wstring& zipFilePath, const std::wstring& virtualFileSpec,
                                                       const std::wstring& srcFilePath, HANDLE hSource, const LockedFile& dest) {
    QC_TRACE_THIS(L"VirtualFile::EncryptOpenFileLocked", L"zipFilePath[%s], virtualFileSpec[%s], srcFilePath[%s]", zipFilePath,
                  virtualFileSpec, srcFilePath);
    TempContainer tempZip(PathStripPathStr(zipFilePath));
    QC_CHECK(!tempZip.Path().empty(), VVS_GeneralError,
             L"VirtualTempFileDispenser::CreateTempFileName(PathStripPathStr(zipFilePath), tempZipFilePath) =>false%s, ");
    // Says whose container this is: to the companion library, which has to find its key, and should it be left behind.
    TrackingRecord aside;
    aside.sourceName = zipFilePath;
    aside.source = ReadFileStamp(zipFilePath).value_or(FileStamp{});
    aside.tempName = tempZip.Path();
    aside.fileSpec = virtualFileSpec;
    if (!WriteTrackingFile(TrackingFilePathStr(tempZip.Path()), aside))
        QC_REPORT(L"WriteTrackingFile(tempZipFilePath) =>false%s, ");
    QC_CHECK_STATUS(EncryptOpenFileInternal(tempZip.Path(), virtualFileSpec, srcFilePath, hSource),
                    L"EncryptOpenFileInternal(tempZipFilePath, virtualFileSpec, srcFilePath) =>%s, ");
    UniqueHandle hTempFile;
    QC_CHECK_STATUS(CreateFileW(tempZip.Path(), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, hTempFile),
                    L"CreateFileW(tempZipFilePath, (0x80000000L), 0x00000001, 3, 0x80, hTempFile) =>%s, ");
    bool isTorn = true;
    tempZip.Keep(isTorn);  // there may be no other whole container then
    const bool isCopied = file_content::CopyIntoLockedFile(hTempFile.Get(), dest, &isTorn);
    tempZip.Keep(isTorn && !isCopied);
    QC_CHECK(isCopied, StatusFromLastError(), L"CopyFileW(hTempFile, hDestFile) =>false%s, ");
    hTempFile.Reset();

    VirtFindData encryptedInfo{};
    if (ReadFindData(srcFilePath, VIT_EncryptedFile, &encryptedInfo)) {
        CopyBounded(encryptedInfo.fileName, virtualFileSpec);
        FileLocker::SetEncryptedInfo(zipFilePath.c_str(), encryptedInfo);
    } else {
        QC_LOG_AT(LogLevel_Error, L"Failed to set Locked EncryptedInfo. Error[%s]", SystemErrorStr(GetLastError()));
    }
    if (hSource == m_hFile.Get() && EqualNoCase(zipFilePath, GetZipFilePath()))
        RememberSavedState();
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualFile::EncryptOpenFileInternal(const std::wstring& zipFilePath, const std::wstring& virtualFileSpec,
                                                         const std::wstring& srcFilePath, HANDLE hSource, bool isOwnContainer) {
    QC_TRACE_THIS(L"VirtualFile::EncryptOpenFileInternal", L"zipFilePath[%s], virtualFileSpec[%s], srcFilePath[%s]", zipFilePath,
                  virtualFileSpec, srcFilePath);
    BY_HANDLE_FILE_INFORMATION fileInfo{};
    QC_CHECK(GetFileInformationByHandle(hSource, &fileInfo), StatusFromLastError(),
             L"GetFileInformationByHandle(m_hFile, &fileInfo) =>FALSE%s, ");
    const SYSTEMTIME lastWrite = SystemTimeOf(fileInfo.ftLastWriteTime);
    const SYSTEMTIME lastAccess = SystemTimeOf(fileInfo.ftLastAccessTime);
    const SYSTEMTIME creation = SystemTimeOf(fileInfo.ftCreationTime);
    try {
        const LibraryString zipPath = MakeLibraryString(zipFilePath);
        const LibraryString fileSpec = MakeLibraryString(virtualFileSpec);
        const LibraryString sourcePath = MakeLibraryString(srcFilePath);
        const LibraryPtr<IFileWriter> writer(
            Quelcrypt_FileWriterFactory(zipPath.Get(), fileSpec.Get(), sourcePath.Get(), fileInfo.dwFileAttributes, &lastWrite, &lastAccess,
                                        &creation, kWriterMode, file_content::kChunkBytes, nullptr));
        QC_CHECK(static_cast<bool>(writer), VSS_EncryptError, L"writer != 0 =>false%s, ");
        FilePointer filePointer(hSource, 0);
        QC_CHECK(filePointer.PointerWasSet(), StatusFromLastError(), L"filePointer.PointerWasSet() =>false%s, ");
        QC_LOG(L"File original pos[%s]", FormatInt64Str(filePointer.OriginalPosition()));
        const auto writeBuffer = std::make_unique<char[]>(file_content::kChunkBytes);
        for (;;) {
            DWORD bytesToWrite = 0;
            QC_CHECK(file_content::ReadFile(GetWorkingPath(), hSource, writeBuffer.get(), &bytesToWrite), StatusFromLastError(),
                     L"ReadFile(openedFilePath, m_hFile, writeBuffer, (sizeof(*RtlpNumberOf(writeBuffer))), &bytesToWrite) =>false%s, ");
            if (bytesToWrite == 0)
                break;
            QC_CHECK(writer->Write(writeBuffer.get(), bytesToWrite), VSS_EncryptError,
                     L"writer->Write(writeBuffer, bytesToWrite) =>false%s, ");
        }
        QC_CHECK(!isOwnContainer || !IsSourceChanged(), VVS_PathAlreadyExists, L"!IsSourceChanged() =>false%s, ");
        QC_CHECK(writer->Finish(true), VSS_EncryptError, L"writer->Finish(true) =>false%s, ");
        return qcLog.Leave(VVS_Success);
    } catch (const CQuelcryptErrorException& exception) {
        QC_REPORT_STATUS(VSS_EncryptError, L"VSS_EncryptError =>%s,  %s", L"Exception[%s]", exception.GetDescription());
    } catch (...) {
        QC_REPORT_STATUS(VSS_EncryptError, L"VSS_EncryptError =>%s,  %s", L"Exception");
    }
    return qcLog.Leave(VSS_EncryptError);
}

// After a save: the temp file is again what the container holds, as far as the container can be read back. What was saved
// stays saved when it cannot: the temp file is then not used again.
void VirtualFile::RememberSavedState() {
    m_modified = m_copy.unsaved = m_tempIsContainers = false;
    try {
        const std::optional<FileStamp> container = ReadFileStamp(GetZipFilePath());
        m_copy.container = container.value_or(FileStamp{});
        LARGE_INTEGER tempSize{};
        m_tempIsContainers = container && VirtualFindFile::FindFile(GetZipFilePath().c_str(), &m_copy.findData) &&
                             GetFileSizeEx(m_hFile.Get(), &tempSize) && m_copy.findData.fileSize == tempSize.QuadPart;
    } catch (...) {  // the companion library, or the memory for a path
    }
}
