#include "items/ContentCopy.h"

#include <algorithm>
#include <memory>

#include "common/Halves.h"
#include "diagnostics/Trace.h"
#include "files/OpenFile.h"
#include "items/VirtualItem.h"
#include "library/PlatformPath.h"
#include "library/Status.h"
#include "library/Text.h"

namespace {

// Texts of checks.
constexpr wchar_t kPointersSetText[] = L"filePointerSrc.PointerWasSet() && filePointerDest.PointerWasSet() =>false%s, ";
constexpr wchar_t kCreateNewFileText[] = L"CreateFileW(newFilePath, desiredAccess, 0x00000001, 1, 0x80, hNewFile) =>%s, ";

std::wstring CountStr(DWORD count) { return FormatInt64Str(count); }

using Buffer = std::unique_ptr<char[]>;

// Copies the bytes from start to end; the handles' positions stay.
bool CopyRange(HANDLE hFileSrc, HANDLE hFileDest, std::int64_t start, std::int64_t end, const Buffer& buffer) {
    FilePointer filePointerSrc(hFileSrc, start);
    FilePointer filePointerDest(hFileDest, start);
    if (!filePointerSrc.PointerWasSet() || !filePointerDest.PointerWasSet())
        return false;
    for (std::int64_t left = end - start; left > 0;) {
        const DWORD wanted = static_cast<DWORD>(std::min<std::int64_t>(left, file_content::kChunkBytes));
        DWORD done = 0;
        DWORD written = 0;
        if (!::ReadFile(hFileSrc, buffer.get(), wanted, &done, nullptr) || done == 0 ||
            !::WriteFile(hFileDest, buffer.get(), done, &written, nullptr) || written != done)
            return false;
        left -= done;
    }
    return true;
}

std::int64_t SizeOf(HANDLE hFile) {
    LARGE_INTEGER size{};
    return GetFileSizeEx(hFile, &size) ? size.QuadPart : -1;
}

bool CutTo(HANDLE hFile, std::int64_t size) {
    const FilePointer filePointer(hFile, size);
    return filePointer.PointerWasSet() && SetEndOfFile(hFile);
}

}  // namespace

namespace file_content {

bool ReadFile(const std::wstring& filePath, HANDLE hFile, void* buffer, DWORD* bytesRead) {
    QC_TRACE(L"VirtualFile::ReadFile", L"filePath[%s], numOfBytesToRead[%s]", filePath, CountStr(kChunkBytes));
    if (!::ReadFile(hFile, buffer, kChunkBytes, bytesRead, nullptr)) {
        QC_LOG_AT(LogLevel_Error, L"filePath[%s], numOfBytesToRead[%s]. Error[%s]", filePath, CountStr(kChunkBytes),
                  SystemErrorStr(GetLastError()));
        return qcLog.Leave(false);
    }
    QC_LOG(L"numOfBytesRead[%s]", CountStr(*bytesRead));
    return qcLog.Leave(true);
}

bool WriteFile(const std::wstring& filePath, HANDLE hFile, const void* data, DWORD numOfBytesToWrite, DWORD* bytesWritten) {
    QC_TRACE(L"VirtualFile::WriteFile", L"filePath[%s], numOfBytesToWrite[%s]", filePath, CountStr(numOfBytesToWrite));
    if (!::WriteFile(hFile, data, numOfBytesToWrite, bytesWritten, nullptr)) {
        QC_LOG_AT(LogLevel_Error, L"filePath[%s], numOfBytesToWrite[%s]. Error[%s]", filePath, CountStr(numOfBytesToWrite),
                  SystemErrorStr(GetLastError()));
        return qcLog.Leave(false);
    }
    QC_LOG(L"numOfBytesWritten[%s]", CountStr(*bytesWritten));
    return qcLog.Leave(true);
}

bool CopyFileW(HANDLE hFileSrc, HANDLE hFileDest) {
    QC_TRACE(L"VirtualFile::CopyFileW");
    FilePointer filePointerSrc(hFileSrc, 0);
    FilePointer filePointerDest(hFileDest, 0);
    QC_CHECK_OR_RETURN(filePointerSrc.PointerWasSet() && filePointerDest.PointerWasSet(), false, kPointersSetText);
    const auto buffer = std::make_unique<char[]>(kChunkBytes);
    for (;;) {
        DWORD done = 0;
        DWORD written = 0;
        if (!ReadFile({}, hFileSrc, buffer.get(), &done))
            return qcLog.Leave(false);
        if (done == 0)
            return qcLog.Leave(true);
        if (!WriteFile({}, hFileDest, buffer.get(), done, &written) || written != done)
            return qcLog.Leave(false);
    }
}

bool CopyIntoLockedFile(HANDLE hFileSrc, const LockedFile& dest, HANDLE hFileAside, bool* isTorn) {
    QC_TRACE(L"CopyIntoLockedFile");
    const HANDLE hFileDest = dest.hFile.Get();
    const Buffer buffer = std::make_unique<char[]>(kChunkBytes);
    const SectionGuard guard(dest.content->section);
    *isTorn = false;
    const std::int64_t newSize = SizeOf(hFileSrc);
    const std::int64_t oldSize = SizeOf(hFileDest);
    if (newSize < 0 || oldSize < 0 || (hFileAside && !CopyRange(hFileDest, hFileAside, 0, oldSize, buffer)))
        return qcLog.Leave(false);
    if (DeleteUndeleteFile(hFileDest, false) != Win32Error::None)
        return qcLog.Leave(false);
    dest.content->isDeleted = dest.content->isDeletedUnlessWritten = false;
    FILETIME lastWrite{};
    const bool isTimeKnown = GetFileTime(hFileDest, nullptr, nullptr, &lastWrite) != FALSE;
    const bool hasRoom = newSize <= oldSize || CopyRange(hFileSrc, hFileDest, oldSize, newSize, buffer);
    const bool done = hasRoom && CopyRange(hFileSrc, hFileDest, 0, std::min(oldSize, newSize), buffer) && CutTo(hFileDest, newSize) &&
                      FlushFileBuffers(hFileDest);
    dest.content->isWritten = dest.content->isWritten || hasRoom;
    if (done) {
        // Set the time now: the platform may otherwise set it when the lock's handle is closed ("WriteFile", Remarks), which would
        // look like another version.
        FILETIME now{};
        GetSystemTimeAsFileTime(&now);
        FileBasicInformation times{};
        times.lastWriteTime = times.changeTime = static_cast<std::int64_t>(FileTimeNumber(now));
        if (ZwSetInformationFile(hFileDest, &times, sizeof(times), kFileBasicInformation) == Win32Error::None)
            dest.content->isTimeSet = true;
        return qcLog.Leave(true);
    }
    const LastErrorKeeper keeper;
    const bool isPutBack = !hasRoom || (hFileAside && CopyRange(hFileAside, hFileDest, 0, oldSize, buffer));
    *isTorn = !isPutBack || !CutTo(hFileDest, oldSize);
    if (!*isTorn && isTimeKnown && SetFileTime(hFileDest, nullptr, nullptr, &lastWrite))
        dest.content->isTimeSet = true;  // with another time it would look changed by somebody else
    return qcLog.Leave(false);
}

VirtualVolumeStatus CopyToNewFile(HANDLE hSource, const std::wstring& path) {
    QC_TRACE(L"CopyToNewFile", L"destFilePath[%s]", path);
    UniqueHandle hFile;
    QC_CHECK_STATUS_OR_RETURN(VirtualItem::CreateFileW(path, kFullContentAccess, FILE_SHARE_READ, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, hFile),
                              kCreateNewFileText);
    QC_CHECK_OR_RETURN(CopyFileW(hSource, hFile.Get()), StatusFromLastError(), L"CopyFileW(m_hFile, hNewFile) =>false%s, ");
    BY_HANDLE_FILE_INFORMATION info{};
    if (GetFileInformationByHandle(hSource, &info))
        SetFileTime(hFile.Get(), &info.ftCreationTime, &info.ftLastAccessTime, &info.ftLastWriteTime);
    QC_CHECK_OR_RETURN(FlushFileBuffers(hFile.Get()), StatusFromLastError(), L"FlushFileBuffers(hNewFile) =>FALSE%s, ");
    return qcLog.Leave(VVS_Success);
}

Win32Error MoveFileW(const std::wstring& srcFilePath, const std::wstring& destFilePath, DWORD flags) {
    QC_TRACE(L"VirtualFile::MoveFileW", L"srcFilePath[%s], destFilePath[%s]", srcFilePath, destFilePath);
    if (MoveFileExW(PlatformPath(srcFilePath).c_str(), PlatformPath(destFilePath).c_str(), flags))
        return qcLog.Leave(Win32Error::None);
    const Win32Error error = LastWin32Error();
    QC_LOG_AT(LogLevel_Error, L"srcFilePath[%s], destFilePath[%s]. Error[%s]", srcFilePath, destFilePath,
              SystemErrorStr(static_cast<DWORD>(error)));
    return qcLog.Leave(error);
}

}  // namespace file_content
