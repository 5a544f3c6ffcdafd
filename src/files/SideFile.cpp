#include "files/SideFile.h"

#include <objbase.h>

#include "diagnostics/Trace.h"
#include "library/Owners.h"
#include "library/Paths.h"
#include "library/Patience.h"
#include "library/PlatformPath.h"
#include "library/Text.h"

std::wstring SidePathStr(const std::wstring& filePath) {
    GUID guid{};
    if (FAILED(CoCreateGuid(&guid)))
        guid.Data1 = GetTickCount();
    return PathAppendStr(PathRemoveFileSpecStr(filePath), std::wstring(kSideFileStart) + FormatGuidStr(guid) + std::wstring(kSideFileEnd));
}

void DeleteSideFile(const std::wstring& sidePath) {
    const LastErrorKeeper keeper;
    TryForAMoment([&] { return DeleteFileW(PlatformPath(sidePath).c_str()) ? Win32Error::None : LastWin32Error(); });
}

Win32Error PutInPlace(const std::wstring& sidePath, const std::wstring& filePath, bool failIfExists,
                      const std::optional<FileVersion>* known) {
    QC_TRACE(L"PutInPlace", L"srcFilePath[%s], destFilePath[%s]", sidePath, filePath);
    const DWORD flags = MOVEFILE_WRITE_THROUGH | (failIfExists ? 0 : MOVEFILE_REPLACE_EXISTING);
    bool isOther = false;
    Win32Error error = TryForAMoment([&] {
        isOther = known && !IsStillVersion(*known, ReadFileVersion(filePath));
        const bool isDone = isOther || MoveFileExW(PlatformPath(sidePath).c_str(), PlatformPath(filePath).c_str(), flags);
        return isDone ? Win32Error::None : LastWin32Error();
    });
    if (isOther)
        error = static_cast<Win32Error>(ERROR_SHARING_VIOLATION);
    if (error == Win32Error::None)
        return qcLog.Leave(error);
    SetFileAttributesW(PlatformPath(sidePath).c_str(), FILE_ATTRIBUTE_NORMAL);  // a read-only copy could not be deleted
    DeleteSideFile(sidePath);
    return qcLog.Leave(error);
}

// The platform's copy may be only in memory when the call returns.
Win32Error CopyWholeFile(const std::wstring& srcFilePath, const std::wstring& destFilePath) {
    const PlatformPath dest(destFilePath);
    if (!::CopyFileW(PlatformPath(srcFilePath).c_str(), dest.c_str(), TRUE))
        return LastWin32Error();
    const DWORD attributes = GetFileAttributesW(dest.c_str());
    const bool isReadOnly = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY);
    if (isReadOnly)
        SetFileAttributesW(dest.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
    const Win32Error error = TryForAMoment([&] {
        const UniqueHandle hFile =
            OwnHandle(::CreateFileW(dest.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        return hFile && FlushFileBuffers(hFile.Get()) ? Win32Error::None : LastWin32Error();
    });
    if (isReadOnly)
        SetFileAttributesW(dest.c_str(), attributes);
    return error;
}

Win32Error CopyInPlace(const std::wstring& srcFilePath, const std::wstring& destFilePath, bool failIfExists,
                       const std::optional<FileVersion>* known) {
    const std::wstring sidePath = SidePathStr(destFilePath);
    const Win32Error error = CopyWholeFile(srcFilePath, sidePath);
    if (error == Win32Error::None)
        return PutInPlace(sidePath, destFilePath, failIfExists, known);
    DeleteSideFile(sidePath);
    return error;
}
