#include "files/Deletion.h"

#include <shellapi.h>
#include <shlwapi.h>

#include "diagnostics/Trace.h"
#include "files/OpenFile.h"
#include "library/Disk.h"
#include "library/Owners.h"
#include "library/Patience.h"
#include "library/PlatformPath.h"

namespace {

// The shell's file operation does not delete read-only files, and on some systems does not report that.
void ClearReadOnly(const std::wstring& path, DWORD attributes) {
    if (attributes & FILE_ATTRIBUTE_READONLY)
        SetFileAttributesW(PlatformPath(path).c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) && !IsLink(path))
        ForEachEntry(path, [](const std::wstring& child, const WIN32_FIND_DATAW& entry) {
            ClearReadOnly(child, entry.dwFileAttributes);
            return true;
        });
}

// Returns whether path is free afterwards: a file that others have open may stay, or stay until they close it.
bool DeleteThroughShell(const std::wstring& path) {
    const std::wstring doublyTerminated = path + L'\0';
    return TryForAMoment([&] {
               SHFILEOPSTRUCTW operation{};
               operation.wFunc = FO_DELETE;
               operation.pFrom = doublyTerminated.c_str();
               // Without the last flag, the shell would also delete "page_files" with "page.htm" ("SHFILEOPSTRUCT").
               operation.fFlags = FOF_SILENT | FOF_NOCONFIRMATION | FOF_NOERRORUI | FOF_NO_CONNECTED_ELEMENTS;
               SHFileOperationW(&operation);
               return PathExists(path) ? static_cast<Win32Error>(ERROR_SHARING_VIOLATION) : Win32Error::None;
           }) == Win32Error::None;
}

constexpr auto kAnotherVersion = static_cast<Win32Error>(ERROR_FILE_INVALID);

// Through one handle, which lets nobody write meanwhile: a file that somebody else puts in its place stays, and what a network share
// says of a path may be some seconds old.
template <class May>
Win32Error DeleteFileIf(const std::wstring& path, May may) {
    const LastErrorKeeper keeper;
    UniqueHandle hFile;
    const Win32Error error = TryForAMoment([&] {
        hFile = OwnHandle(::CreateFileW(PlatformPath(path).c_str(), DELETE | FILE_READ_DATA | FILE_READ_ATTRIBUTES,
                                        FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                        FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
        return hFile ? Win32Error::None : LastWin32Error();
    });
    if (!hFile)
        return error;
    return may(hFile.Get()) ? DeleteUndeleteFile(hFile.Get(), true) : kAnotherVersion;
}

bool IsMissing(Win32Error error) {
    return error == static_cast<Win32Error>(ERROR_FILE_NOT_FOUND) || error == static_cast<Win32Error>(ERROR_PATH_NOT_FOUND);
}

}  // namespace

DeleteResult DeleteFileOrFolder(const std::wstring& path) {
    QC_TRACE(L"DeleteFileOrFolder", L"path[%s]", path);
    constexpr const wchar_t* checkText = L"deleteResult == 0 =>false%s,  %s";
    QC_CHECK_OR_RETURN(!path.empty() && !PathIsRelativeW(path.c_str()), DeleteResult::Failed, checkText, L"path[%s]", path);
    const bool isLongForm = path.starts_with(L"\\\\?\\");
    // The shell would treat these as patterns, and delete everything that matches.
    QC_CHECK_OR_RETURN(path.find_first_of(L"*?<>\"|", isLongForm ? 4 : 0) == path.npos, DeleteResult::Failed, checkText, L"path[%s]", path);
    const auto deleteFile = [&path] {
        if (!DeleteFileW(PlatformPath(path).c_str()))
            return LastWin32Error();
        return PathExists(path) ? static_cast<Win32Error>(ERROR_SHARING_VIOLATION) : Win32Error::None;
    };
    if (deleteFile() == Win32Error::None)  // nearly always an ordinary file
        return qcLog.Leave(DeleteResult::Deleted);
    const DWORD attributes = GetFileAttributesW(PlatformPath(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES && IsMissing(LastWin32Error()))
        return qcLog.Leave(DeleteResult::Deleted);
    QC_CHECK_OR_RETURN(attributes != INVALID_FILE_ATTRIBUTES, DeleteResult::Failed, checkText, L"path[%s]", path);
    const bool isFile = !(attributes & FILE_ATTRIBUTE_DIRECTORY);
    ClearReadOnly(path, attributes);
    const bool isTooLong = isLongForm || path.size() >= MAX_PATH;  // for the shell, which deletes trees
    const auto deleteFolder = [&path] { return RemoveDirectoryW(PlatformPath(path).c_str()) && !PathExists(path); };  // or a link to one
    const bool isGone = isFile ? TryForAMoment(deleteFile) == Win32Error::None || !PathExists(path)
                               : deleteFolder() || (!isTooLong && DeleteThroughShell(path));
    QC_CHECK_OR_RETURN(isGone, DeleteResult::Failed, checkText, L"path[%s]", path);
    return qcLog.Leave(DeleteResult::Deleted);
}

DeleteResult DeleteFileOrFolder(const std::wstring& path, const std::optional<FileVersion>& known) {
    QC_TRACE(L"DeleteFileOrFolder", L"path[%s]", path);
    std::optional<FileVersion> found;
    const Win32Error error = DeleteFileIf(path, [&](HANDLE hFile) {
        found = ReadOpenFileVersion(hFile, path);
        const bool isIt = found && IsStillVersion(known, found);
        if (isIt)
            ClearReadOnly(path, found->stamp.attributes);
        return isIt;
    });
    if (error == kAnotherVersion)
        return qcLog.Leave(DeleteResult::Replaced);
    const auto isGone = [&] {  // others who have it open may keep it until they close it
        const std::optional<FileVersion> now = ReadFileVersion(path);
        return now ? !(*now == *found) : IsMissing(LastWin32Error());
    };
    QC_CHECK_OR_RETURN(IsMissing(error) || (error == Win32Error::None && RepeatForAMoment(isGone)), DeleteResult::Failed,
                       L"deleteResult == 0 =>false%s,  %s", L"path[%s]", path);
    return qcLog.Leave(DeleteResult::Deleted);
}

void DeleteIfEmpty(const std::wstring& path) {
    DeleteFileIf(path, [&](HANDLE hFile) {
        const std::optional<FileStamp> stamp = ReadOpenFileStamp(hFile);
        return stamp && stamp->size == 0 && !(stamp->attributes & FILE_ATTRIBUTE_DIRECTORY);
    });
}

void DeleteIfVersion(const std::wstring& path, const FileVersion& version) {
    DeleteFileIf(path, [&](HANDLE hFile) {
        const std::optional<FileVersion> now = ReadOpenFileVersion(hFile, path);
        const bool isIt = now && *now == version;
        if (isIt)
            ClearReadOnly(path, now->stamp.attributes);
        return isIt;
    });
}
