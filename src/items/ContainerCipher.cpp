#include "items/ContainerCipher.h"

#include <memory>

#include "diagnostics/Trace.h"
#include "files/OpenFile.h"
#include "items/ContentCopy.h"
#include "items/TrackingFile.h"
#include "items/VirtualItem.h"
#include "items/VirtualTempFileDispenser.h"
#include "library/Paths.h"
#include "library/Patience.h"
#include "library/PlatformPath.h"
#include "library/Status.h"
#include "library/Text.h"
#include "library/Win32Error.h"
#include "namespace/VirtualFindFile.h"
#include "quelcrypt/QuelcryptExceptions.h"

namespace {

// Texts of checks.
constexpr wchar_t kCreateTempZipText[] = L"CreateFileW(tempZipFilePath, (0x40000000L), 0x00000001, 2, 0x80, hTempZip) =>%s, ";
constexpr wchar_t kWritePartText[] =
    L"WriteFile(destFilePath, hDestFile, reader->GetData(), reader->GetDataLength(), &bytesWritten) && bytesWritten == "
    L"reader->GetDataLength() =>false%s, ";
constexpr wchar_t kReadPartText[] =
    L"ReadFile(openedFilePath, m_hFile, writeBuffer, (sizeof(*RtlpNumberOf(writeBuffer))), &bytesToWrite) =>false%s, ";
constexpr wchar_t kTempNameForLockedText[] =
    L"VirtualTempFileDispenser::CreateTempFileName(PathStripPathStr(origFilePathHalvane), tempZipFilePath) =>false%s, ";
constexpr wchar_t kTempNameText[] =
    L"VirtualTempFileDispenser::CreateTempFileName(PathStripPathStr(zipFilePath), tempZipFilePath) =>false%s, ";
constexpr wchar_t kEncryptToTempText[] = L"EncryptOpenFileInternal(tempZipFilePath, virtualFileSpec, srcFilePath) =>%s, ";
constexpr wchar_t kOpenTempZipText[] = L"CreateFileW(tempZipFilePath, (0x80000000L), 0x00000001, 3, 0x80, hTempFile) =>%s, ";

constexpr std::int32_t kWriterMode = 2;

using LibraryString = LibraryPtr<IHvcStringW>;
LibraryString MakeLibraryString(const std::wstring& text) { return LibraryString(new CHvcStringWImpl(text.c_str())); }

SYSTEMTIME SystemTimeOf(const FILETIME& time) {
    SYSTEMTIME systemTime{};
    FileTimeToSystemTime(&time, &systemTime);
    return systemTime;
}

// A temp file for a copy of a container; its folder is deleted at the end of this object, unless it is kept.
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

VirtualVolumeStatus CopyLockedContainer(const LockedFile& lock, const std::wstring& tempZipFilePath) {
    QC_TRACE(L"VirtualFile::CopyLockedContainer", L"destFilePath[%s]", tempZipFilePath);
    UniqueHandle hTempZip;
    QC_CHECK_STATUS_OR_RETURN(
        VirtualItem::CreateFileW(tempZipFilePath, GENERIC_WRITE, FILE_SHARE_READ, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, hTempZip),
        kCreateTempZipText);
    const SectionGuard guard(lock.content->section);
    QC_CHECK_OR_RETURN(file_content::CopyFileW(lock.hFile.Get(), hTempZip.Get()), StatusFromLastError(),
                       L"CopyFileW(m_hLockedFile, hTempZip) =>false%s, ");
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus DecryptContainer(const std::wstring& containerPath, const std::wstring& destFilePath, HANDLE hDestFile) {
    QC_TRACE(L"VirtualFile::DecryptContainer", L"srcFilePath[%s], destFilePath[%s]", containerPath, destFilePath);
    try {
        const LibraryString path = MakeLibraryString(containerPath);
        const LibraryPtr<IFileReader> reader(CallCompanion([&] { return Quelcrypt_FileReaderFactory(path.Get()); }));
        QC_CHECK_OR_RETURN(static_cast<bool>(reader), VSS_DecryptError, L"reader != 0 =>false%s, ");
        FilePointer filePointer(hDestFile, 0);
        QC_CHECK_OR_RETURN(filePointer.PointerWasSet(), StatusFromLastError(), L"filePointer.PointerWasSet() =>false%s, ");
        QC_LOG(L"Dest file original pos[%s]", FormatInt64Str(filePointer.OriginalPosition()));
        while (CallCompanion([&] { return reader->Advance(); }) != 0) {
            const DWORD length = CallCompanion([&] { return reader->GetDataLength(); });
            const void* const data = CallCompanion([&] { return reader->GetData(); });
            QC_CHECK_OR_RETURN(data != nullptr || length == 0, VSS_DecryptError, L"reader->GetData() != 0 =>false%s, ");
            DWORD bytesWritten = 0;
            QC_CHECK_OR_RETURN(
                length == 0 || (file_content::WriteFile(destFilePath, hDestFile, data, length, &bytesWritten) && bytesWritten == length),
                StatusFromLastError(), kWritePartText);
        }
        return qcLog.Leave(VVS_Success);
    } catch (const CQuelcryptErrorException& exception) {
        if (EqualNoCase(exception.GetDescription(), L"Cannot recover password"))
            QC_LOG_AT(LogLevel_Error, L"Exception[%s], srcFilePath[%s], destFilePath[%s]", exception.GetDescription(), containerPath,
                      destFilePath);
        else
            QC_REPORT_STATUS(VSS_DecryptError, L"VSS_DecryptError =>%s,  %s", L"Exception, srcFilePath[%s], destFilePath[%s]",
                             containerPath, destFilePath);
    } catch (...) {
        QC_REPORT_STATUS(VSS_DecryptError, L"VSS_DecryptError =>%s,  %s", L"Exception, srcFilePath[%s], destFilePath[%s]", containerPath,
                         destFilePath);
    }
    return qcLog.Leave(VSS_DecryptError);
}

// Keeps the name and type that the lock's record has; they are the volume's, not the writer's. The save is done, so a failure
// is only logged.
void UpdateLockRecord(QuelcryptLog& qcLog, const std::wstring& zipFilePath, const std::wstring& virtualFileSpec,
                      const std::wstring& srcFilePath) noexcept {
    try {
        VirtFindData source{};
        if (VirtualFindFile::DescribeOnDisk(srcFilePath, VIT_EncryptedFile, &source)) {
            CopyBounded(source.fileName, virtualFileSpec);
            bool isKnown = false;
            VirtFindData shown{};
            FileLocker::GetEncryptedInfo(zipFilePath.c_str(), &isKnown, &shown);
            if (isKnown) {
                source.itemType = shown.itemType;
                if (!EqualNoCase(BoundedText(shown.fileName), virtualFileSpec))
                    CopyBounded(source.fileName, BoundedText(shown.fileName));
            }
            FileLocker::SetEncryptedInfo(zipFilePath.c_str(), source);
            return;
        }
    } catch (...) {  // no memory for a path
    }
    QC_LOG_AT(LogLevel_Error, L"Failed to set Locked EncryptedInfo. Error[%s]", SystemErrorStr(GetLastError()));
}

// Reads the source to its end into the writer.
VirtualVolumeStatus WriteAll(IFileWriter& writer, const container_cipher::PlainSource& source) {
    QC_TRACE(L"WriteAll");
    FilePointer filePointer(source.hFile, 0);
    QC_CHECK_OR_RETURN(filePointer.PointerWasSet(), StatusFromLastError(), L"filePointer.PointerWasSet() =>false%s, ");
    QC_LOG(L"File original pos[%s]", FormatInt64Str(filePointer.OriginalPosition()));
    const auto writeBuffer = std::make_unique<char[]>(file_content::kChunkBytes);
    for (;;) {
        DWORD bytesToWrite = 0;
        QC_CHECK_OR_RETURN(file_content::ReadFile(source.path, source.hFile, writeBuffer.get(), &bytesToWrite), StatusFromLastError(),
                           kReadPartText);
        if (bytesToWrite == 0)
            return qcLog.Leave(VVS_Success);
        QC_CHECK_OR_RETURN(CallCompanion([&] { return writer.Write(writeBuffer.get(), bytesToWrite); }), VSS_EncryptError,
                           L"writer->Write(writeBuffer, bytesToWrite) =>false%s, ");
    }
}

}  // namespace

namespace container_cipher {

VirtualVolumeStatus DecryptToFile(const std::wstring& containerPath, const LockedFile& lock, const std::wstring& destFilePath,
                                  HANDLE hDestFile) {
    QC_TRACE(L"VirtualFile::DecryptToFile", L"srcFilePath[%s], destFilePath[%s]", PathRemoveExtensionStr(containerPath), destFilePath);
    if (!lock.locked)
        return qcLog.Leave(DecryptContainer(containerPath, destFilePath, hDestFile));
    const TempContainer tempZip(PathStripPathStr(containerPath));
    QC_CHECK_OR_RETURN(!tempZip.Path().empty(), VVS_GeneralError, kTempNameForLockedText);
    const VirtualVolumeStatus status = CopyLockedContainer(lock, tempZip.Path());
    return qcLog.Leave(status == VVS_Success ? DecryptContainer(tempZip.Path(), destFilePath, hDestFile) : status);
}

// Time and size may not show what somebody is writing yet. An open that denies writers finds out.
VirtualVolumeStatus LookAtReplaced(const std::wstring& filePath, const std::optional<FileVersion>& known) {
    UniqueHandle hFile;
    const Win32Error error = TryForAMoment([&] {
        hFile = OwnHandle(::CreateFileW(PlatformPath(filePath).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        const bool isBeingWritten = !hFile && GetLastError() == ERROR_SHARING_VIOLATION;
        return isBeingWritten ? LastWin32Error() : Win32Error::None;
    });
    if (error != Win32Error::None)
        return VSS_SharingViolation;
    const std::optional<FileVersion> now = hFile ? ReadOpenFileVersion(hFile.Get(), filePath) : ReadFileVersion(filePath);
    return IsStillVersion(known, now) ? VVS_Success : VVS_PathAlreadyExists;
}

VirtualVolumeStatus EncryptOpenFileInternal(const std::wstring& zipFilePath, const std::wstring& virtualFileSpec, const PlainSource& source,
                                            const LastLook& lastLook) {
    QC_TRACE(L"VirtualFile::EncryptOpenFileInternal", L"zipFilePath[%s], virtualFileSpec[%s], srcFilePath[%s]", zipFilePath,
             virtualFileSpec, source.path);
    BY_HANDLE_FILE_INFORMATION fileInfo{};
    QC_CHECK_OR_RETURN(GetFileInformationByHandle(source.hFile, &fileInfo), StatusFromLastError(),
                       L"GetFileInformationByHandle(m_hFile, &fileInfo) =>FALSE%s, ");
    const SYSTEMTIME lastWrite = SystemTimeOf(fileInfo.ftLastWriteTime);
    const SYSTEMTIME lastAccess = SystemTimeOf(fileInfo.ftLastAccessTime);
    const SYSTEMTIME creation = SystemTimeOf(fileInfo.ftCreationTime);
    try {
        const LibraryString zipPath = MakeLibraryString(zipFilePath);
        const LibraryString fileSpec = MakeLibraryString(virtualFileSpec);
        const LibraryString sourcePath = MakeLibraryString(source.path);
        const LibraryPtr<IFileWriter> writer(CallCompanion([&] {
            return Quelcrypt_FileWriterFactory(zipPath.Get(), fileSpec.Get(), sourcePath.Get(), fileInfo.dwFileAttributes, &lastWrite,
                                               &lastAccess, &creation, kWriterMode, file_content::kChunkBytes, nullptr);
        }));
        QC_CHECK_OR_RETURN(static_cast<bool>(writer), VSS_EncryptError, L"writer != 0 =>false%s, ");
        const VirtualVolumeStatus written = WriteAll(*writer.Get(), source);
        if (written != VVS_Success)
            return qcLog.Leave(written);
        QC_CHECK_STATUS_OR_RETURN(lastLook(), L"lastLook() =>%s, ");
        SaveCount count(zipFilePath);
        QC_CHECK_OR_RETURN(CallCompanion([&] { return writer->Finish(true); }), VSS_EncryptError, L"writer->Finish(true) =>false%s, ");
        count.Keep();
        // Again: a version that was read since the first count may still be of the old container.
        SaveCount(zipFilePath).Keep();
        return qcLog.Leave(VVS_Success);
    } catch (const CQuelcryptErrorException& exception) {
        QC_REPORT_STATUS(VSS_EncryptError, L"VSS_EncryptError =>%s,  %s", L"Exception[%s]", exception.GetDescription());
    } catch (...) {
        QC_REPORT_STATUS(VSS_EncryptError, L"VSS_EncryptError =>%s,  %s", L"Exception");
    }
    return qcLog.Leave(VSS_EncryptError);
}

VirtualVolumeStatus EncryptOpenFileLocked(const std::wstring& zipFilePath, const std::wstring& virtualFileSpec, const PlainSource& source,
                                          const LockedFile& dest) {
    QC_TRACE(L"VirtualFile::EncryptOpenFileLocked", L"zipFilePath[%s], virtualFileSpec[%s], srcFilePath[%s]", zipFilePath, virtualFileSpec,
             source.path);
    TempContainer tempZip(PathStripPathStr(zipFilePath));
    QC_CHECK_OR_RETURN(!tempZip.Path().empty(), VVS_GeneralError, kTempNameText);
    // Names the document of this container: for the companion library, which has to find its key, and in case it is left behind.
    const TrackingRecord aside{zipFilePath, ReadFileStamp(zipFilePath).value_or(FileStamp{}), tempZip.Path(), {}, virtualFileSpec};
    if (!WriteTrackingFile(TrackingFilePathStr(tempZip.Path()), aside))
        QC_REPORT(L"WriteTrackingFile(tempZipFilePath) =>false%s, ");
    QC_CHECK_STATUS_OR_RETURN(EncryptOpenFileInternal(tempZip.Path(), virtualFileSpec, source, [] { return VVS_Success; }),
                              kEncryptToTempText);
    UniqueHandle hTempFile;
    QC_CHECK_STATUS_OR_RETURN(
        VirtualItem::CreateFileW(tempZip.Path(), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, hTempFile),
        kOpenTempZipText);
    bool isTorn = true;
    tempZip.Keep(isTorn);  // it may then be the only complete container
    const bool isCopied = file_content::CopyIntoLockedFile(hTempFile.Get(), dest, nullptr, &isTorn);
    const DWORD error = GetLastError();
    tempZip.Keep(isTorn);
    if (isCopied || isTorn)
        SaveCount(zipFilePath).Keep();
    QC_CHECK_OR_RETURN(isCopied, StatusFromWin32(static_cast<Win32Error>(error)), L"CopyFileW(hTempFile, hDestFile) =>false%s, ");
    hTempFile.Reset();
    UpdateLockRecord(qcLog, zipFilePath, virtualFileSpec, source.path);
    return qcLog.Leave(VVS_Success);
}

}  // namespace container_cipher
