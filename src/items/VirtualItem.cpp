#include "items/VirtualItem.h"

#include <cstddef>
#include <cwchar>
#include <memory>

#include "diagnostics/Trace.h"
#include "files/OpenFile.h"
#include "library/Paths.h"
#include "library/Patience.h"
#include "library/PlatformPath.h"
#include "library/Status.h"
#include "library/Text.h"
#include "library/Win32Error.h"

namespace {

// Texts of checks.
constexpr wchar_t kReadFileText[] =
    L"::ReadFile(hFile, data, (DWORD)dataSize, &bytesRead, (offset != 0xFFFFFFFF ? &overlapped : 0)) =>FALSE%s, ";
constexpr wchar_t kWriteFileText[] =
    L"::WriteFile(hFile, data, (DWORD)dataSize, &bytesWritten, (offset != 0xFFFFFFFF ? &overlapped : 0)) =>FALSE%s, ";
constexpr wchar_t kOpenNewFolderText[] =
    L"CreateFileW( newFileFolderPath, (0x80000000L) | ( 0x0100 ), (0x00000001 | 0x00000002 | 0x00000004), 3, 0x02000000, hFolder) =>%s, ";
constexpr wchar_t kSetRenameText[] = L"ZwSetInformationFile( m_hFile, fileRenameInfo.get(), len, ((FILE_INFORMATION_CLASS)10)) =>%s, ";
constexpr wchar_t kSetBasicInfoText[] = L"ZwSetInformationFile(m_hFile, &fileInfo, sizeof(fileInfo), ((FILE_INFORMATION_CLASS)4)) =>%s, ";

constexpr std::uint64_t kLargestOffset = INT64_MAX;  // for the platform, some larger numbers mean the end or the position
constexpr std::uint32_t kKeepAttributes = 0xFFFFFFFF;

OVERLAPPED PositionAt(std::uint64_t offset) {
    OVERLAPPED overlapped{};
    overlapped.Offset = static_cast<DWORD>(offset);
    overlapped.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return overlapped;
}

std::int64_t ChosenTime(std::uint64_t wanted, std::uint64_t current) { return static_cast<std::int64_t>(wanted ? wanted : current); }

}  // namespace

VirtualVolumeStatus VirtualItem::CreateFileW(const std::wstring& file, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                             std::uint32_t creationDisposition, std::uint32_t flagsAndAttributes, UniqueHandle& hFile) {
    QC_TRACE(L"VirtualItem::CreateFileW", L"file[%s], desiredAccess[%s], shareMode[%s], creationDisposition[%s]", file,
             FormatAccessMaskStr(desiredAccess), FormatShareModeStr(shareMode), FormatCreationDispositionStr(creationDisposition));
    const HANDLE hFileTmp =
        ::CreateFileW(PlatformPath(file).c_str(), desiredAccess, shareMode, nullptr, creationDisposition, flagsAndAttributes, nullptr);
    QC_CHECK_OR_RETURN(hFileTmp != INVALID_HANDLE_VALUE, StatusFromLastError(), L"hFileTmp != ((HANDLE)(LONG_PTR)-1) =>false%s,  %s",
                       L"file[%s], desiredAccess[%s], shareMode[%s], creationDisposition[%s]. Error[%s]", file,
                       FormatAccessMaskStr(desiredAccess), FormatShareModeStr(shareMode), FormatCreationDispositionStr(creationDisposition),
                       SystemErrorStr(GetLastError()));
    const DWORD alreadyExists = GetLastError();
    hFile.Reset(hFileTmp);
    SetLastError(alreadyExists);
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualItem::CreateFileInAMoment(const std::wstring& file, std::uint32_t desiredAccess, std::uint32_t shareMode,
                                                     std::uint32_t creationDisposition, std::uint32_t flagsAndAttributes,
                                                     UniqueHandle& hFile) {
    VirtualVolumeStatus status = VVS_Success;
    TryForAMoment([&] {
        status = CreateFileW(file, desiredAccess, shareMode, creationDisposition, flagsAndAttributes, hFile);
        return status == VSS_SharingViolation ? LastWin32Error() : Win32Error::None;
    });
    return status;
}

VirtualVolumeStatus VirtualItem::ReadFile(HANDLE hFile, std::uint64_t offset, void* data, std::uint32_t dataSize,
                                          std::uint32_t* bytesRead) {
    QC_TRACE(L"VirtualItem::ReadFile");
    QC_CHECK_OR_RETURN(offset <= kLargestOffset, VVS_InvalidParameter, L"offset <= kLargestOffset =>false%s, ");
    OVERLAPPED overlapped = PositionAt(offset);
    DWORD count = 0;
    const bool done = ::ReadFile(hFile, data, dataSize, &count, offset != kCurrentPosition ? &overlapped : nullptr);
    QC_CHECK_OR_RETURN(done || GetLastError() == ERROR_HANDLE_EOF, StatusFromLastError(), kReadFileText);
    if (bytesRead)
        *bytesRead = done ? count : 0;
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualItem::WriteFile(HANDLE hFile, std::uint64_t offset, const void* data, std::uint32_t dataSize,
                                           std::uint32_t* bytesWritten) {
    QC_TRACE(L"VirtualItem::WriteFile");
    QC_CHECK_OR_RETURN(offset <= kLargestOffset, VVS_InvalidParameter, L"offset <= kLargestOffset =>false%s, ");
    OVERLAPPED overlapped = PositionAt(offset);
    DWORD count = 0;
    QC_CHECK_OR_RETURN(::WriteFile(hFile, data, dataSize, &count, offset != kCurrentPosition ? &overlapped : nullptr),
                       StatusFromLastError(), kWriteFileText);
    if (bytesWritten)
        *bytesWritten = count;
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualItem::CheckDeletable(const std::wstring& path) {
    UniqueHandle hFile;
    return CreateFileInAMoment(path, DELETE, FILE_SHARE_READ | FILE_SHARE_DELETE, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, hFile);
}

VirtualVolumeStatus VirtualItem::SetFileSize(HANDLE hFile, std::uint64_t size) {
    QC_TRACE(L"VirtualItem::SetFileSize");
    FilePointer filePointer(hFile, static_cast<std::int64_t>(size));
    QC_CHECK_OR_RETURN(filePointer.PointerWasSet(), StatusFromLastError(), L"filePointer.PointerWasSet() =>false%s, ");
    QC_CHECK_OR_RETURN(SetEndOfFile(hFile), StatusFromLastError(), L"SetEndOfFile(hFile) =>FALSE%s, ");
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualItem::RenameItem(HANDLE hFile, ItemState& state, const std::wstring& newFilePath,
                                            const std::function<VirtualVolumeStatus()>& lastLook) {
    QC_TRACE(L"VirtualItem::RenameItem", L"in:newFilePath[%s], this:itemFullPath[%s]", newFilePath, state.Path());
    const std::wstring newName = PathStripPathStr(newFilePath);
    UniqueHandle hFolder;
    QC_CHECK_STATUS_OR_RETURN(CreateFileW(PathRemoveFileSpecStr(newFilePath), GENERIC_READ | FILE_WRITE_ATTRIBUTES, kShareAll,
                                          OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, hFolder),
                              kOpenNewFolderText);

    const std::size_t nameBytes = newName.size() * sizeof(wchar_t);
    const ULONG len = static_cast<ULONG>(nameBytes + 26);
    const auto block = std::unique_ptr<std::byte[]>(new (std::nothrow) std::byte[len]());
    QC_CHECK_OR_RETURN(block != nullptr, VSS_OutMemory, L"fileRenameInfo.get() != 0 =>false%s, ");
    auto* const info = reinterpret_cast<FileRenameInformation*>(block.get());
    info->replaceIfExists = TRUE;
    info->rootDirectory = hFolder.Get();
    info->fileNameLength = static_cast<ULONG>(nameBytes);
    std::wmemcpy(info->fileName, newName.c_str(), newName.size() + 1);
    VirtualVolumeStatus looked = VVS_Success;
    const Win32Error error = TryForAMoment([&] {
        looked = lastLook ? lastLook() : VVS_Success;
        return looked == VVS_Success ? ZwSetInformationFile(hFile, info, len, kFileRenameInformation) : Win32Error::None;
    });
    QC_CHECK_STATUS_OR_RETURN(looked, L"lastLook() =>%s, ");
    QC_CHECK_STATUS_OR_RETURN(StatusOfCall(error), kSetRenameText);
    state.findData.reset();
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualItem::SetFileInfo(const VirtFindData* virtFindData) {
    QC_TRACE_THIS(L"VirtualItem::SetFileInfo", L"this:itemFullPath[%s]", m_state.Path());
    m_state.findData.reset();  // what is kept must be read from the item as it is now
    VirtFindData current{};
    QC_CHECK_OR_RETURN(GetFileInfo(&current), VVS_GeneralError, L"GetFileInfo(&current) =>false%s, ");
    FileBasicInformation info{};
    info.creationTime = ChosenTime(virtFindData->creationTime, current.creationTime);
    info.lastAccessTime = ChosenTime(virtFindData->lastAccessTime, current.lastAccessTime);
    info.lastWriteTime = ChosenTime(virtFindData->lastWriteTime, current.lastWriteTime);
    info.changeTime = info.lastWriteTime;
    info.fileAttributes = virtFindData->fileAttributes != kKeepAttributes ? virtFindData->fileAttributes : current.fileAttributes;
    const Win32Error error = ZwSetInformationFile(WorkingFile(), &info, sizeof(info), kFileBasicInformation);
    QC_CHECK_STATUS_OR_RETURN(StatusOfCall(error), kSetBasicInfoText);
    m_state.findData.reset();
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus VirtualItem::Flush() {
    QC_TRACE_THIS(L"VirtualItem::Flush", L"this:itemFullPath[%s]", m_state.Path());
    QC_CHECK_OR_RETURN(FlushFileBuffers(WorkingFile()), VVS_GeneralError, L"FlushFileBuffers(m_hFile) =>FALSE%s, ");
    return qcLog.Leave(VVS_Success);
}
