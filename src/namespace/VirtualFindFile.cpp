#include "namespace/VirtualFindFile.h"

#include <optional>

#include "common/Halves.h"
#include "common/Placeholder.h"
#include "diagnostics/Trace.h"
#include "library/Disk.h"
#include "library/FileVersion.h"
#include "library/Owners.h"
#include "library/Paths.h"
#include "library/Patience.h"
#include "library/PlatformPath.h"
#include "library/Text.h"
#include "library/Win32Error.h"
#include "locks/FileLocker.h"
#include "namespace/VirtualFileInfoCache.h"
#include "policy/HvcUtils.h"
#include "quelcrypt/QuelcryptExceptions.h"

namespace {

constexpr DWORD kFetchBytes = 1 << 16;

// The folder whose entries become records, and what was read of it for all of them.
struct FolderView {
    const std::wstring& folderPath;
    std::uint64_t& folderWriteTime;  // 0: not read yet
    PlainNameFilter* plainNames;     // null when a single name is asked for: a look-up is faster then
    bool namesAreFromDisk = true;    // false: names have the letter case of the path that was asked for
    bool showsLocked = true;         // a locked container is described by its lock
};

bool HasContainerName(std::wstring_view name) {
    return name.size() > kContainerExtension.size() && EndsWithNoCase(name, kContainerExtension);
}

bool IsFolder(const WIN32_FIND_DATAW& raw) { return raw.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY; }

std::uint64_t ReadFolderWriteTime(const std::wstring& folderPath) {
    const std::optional<FileStamp> stamp = ReadFileStamp(folderPath);
    return stamp ? static_cast<std::uint64_t>(stamp->writeTime) : 0;
}

bool ShouldEnumerateFindData(const WIN32_FIND_DATAW& raw) {
    const std::wstring_view name = raw.cFileName;
    if (name == L"." || name == L"..")
        return false;
    // A container is checked by the name that it would be shown under.
    const bool isContainer = HasContainerName(name) && !IsFolder(raw);
    if (!IsReservedName(isContainer ? WithoutContainerExtension(name) : name))
        return true;
    QC_TRACE(L"ShouldEnumerateFindData", L"fileName[%s]", raw.cFileName);
    QC_LOG(L"fileName[%s] is Reserved and will be Skipped in current enumeration", raw.cFileName);
    return qcLog.Leave(false);
}

// Skips entries that are not shown, beginning with the current one.
bool ShouldEnumerateFindData(const VirtualFindHandle& handle, WIN32_FIND_DATAW& raw) {
    // The extra search also finds other files, by their short names ("k.zipx"), which the first one has shown.
    const auto wasShown = [&] { return !HasContainerName(raw.cFileName) || handle.shownContainers.contains(raw.cFileName); };
    while (!ShouldEnumerateFindData(raw) || (handle.extraZipSearch && wasShown()))
        if (!::FindNextFileW(handle.find.Get(), &raw))
            return false;
    return true;
}

bool ShouldSearchForExtraZip(const std::wstring& filePathSearch, std::wstring& newSearch) {
    const std::wstring spec = PathStripPathStr(filePathSearch);
    if (spec == L"*" || spec == L"*.*" || EqualNoCase(spec, L"*.zip"))
        return false;
    newSearch = PathAddExtensionStr(filePathSearch, kContainerExtension);
    return true;
}

bool PlainNameExists(const FolderView& view, const std::wstring& plainPath, const std::wstring& stem) {
    return (!view.plainNames || view.plainNames->MayContain(view.folderPath, stem)) && PathExists(plainPath);
}

// True: the stored name is shown. False: name is the conflict name. Throws for a container without a stem.
bool GetVirtualFileNameWithConflictResolved(const FolderView& view, const std::wstring& containerFilePath, std::wstring& name,
                                            const std::wstring& storedName) {
    QC_TRACE(L"GetVirtualFileNameWithConflictResolved", L"containerFilePath[%s], storedName[%s]", containerFilePath, storedName);
    name = storedName;
    const std::wstring plainPath = PathRemoveExtensionStr(containerFilePath);
    const std::wstring stem = PathStripPathStr(plainPath);
    if (stem.empty())
        throw CQuelcryptErrorException(FormatHResultStr(E_FAIL).c_str());
    if (EqualNoCase(name, stem) && !PlainNameExists(view, plainPath, stem))
        return qcLog.Leave(true);
    QC_LOG(L"Virtual fileName[%s] is in conflict, zipFilePath[%s]", name, containerFilePath);
    name = stem;
    name += kConflictExtension;
    if (name.size() >= std::size(VirtFindData{}.fileName))  // it would be cut; the container's own name also opens it
        name = PathStripPathStr(containerFilePath);
    return qcLog.Leave(false);
}

struct ContainerInfo {
    std::wstring storedName;
    std::uint64_t plainSize = 0;
    SYSTEMTIME lastWrite{};
    SYSTEMTIME lastAccess{};
    SYSTEMTIME creation{};
};

// An exception of the library is a failure: the container is then shown as a plain file, not hidden.
bool GetFileInformation(QuelcryptLog& qcLog, const std::wstring& containerFilePath, const WIN32_FIND_DATAW& raw, ContainerInfo& info) {
    bool succeeded = false;
    try {
        const std::string path = Utf8EncodeStr(containerFilePath.c_str(), static_cast<DWORD>(containerFilePath.size()));
        LibraryPtr<IHvcStringW> storedName;
        IHvcStringW** const place = storedName.GetAddr();
        succeeded = CallCompanion([&] {
                        return Quelcrypt_GetFileInformation(path.c_str(), place, &info.plainSize, &raw, &info.lastWrite, &info.lastAccess,
                                                            &info.creation, nullptr);
                    }) == 1;
        succeeded = succeeded && storedName;
        const wchar_t* const name = succeeded ? CallCompanion([&] { return storedName->GetString(); }) : nullptr;
        info.storedName = name ? name : L"";  // an empty one is null
    } catch (const CQuelcryptErrorException& exception) {
        succeeded = false;
        QC_LOG_AT(LogLevel_Error, L"Exception[%s], containerFilePath[%s]", exception.GetDescription(), containerFilePath);
    } catch (...) {  // one container must not end a listing
        succeeded = false;
    }
    QC_LOG(L"Getting File Info from Quelcrypt File succeeded[%s]", FormatBoolStr(succeeded));
    return succeeded;
}

VirtualItemType GetHalvaneFileData(const FolderView& view, bool containerFlag, const std::wstring& containerFilePath,
                                   WIN32_FIND_DATAW& raw) {
    QC_TRACE(L"GetHalvaneFileData", L"containerFlag[%s], containerFilePath[%s]", FormatBoolStr(containerFlag),
             PathAppendStr(view.folderPath, raw.cFileName));
    ContainerInfo info;
    if (!containerFlag || !GetFileInformation(qcLog, containerFilePath, raw, info))
        return qcLog.Leave(VIT_PlainFile);
    std::wstring name;
    const bool noConflict = GetVirtualFileNameWithConflictResolved(view, containerFilePath, name, info.storedName);
    raw.nFileSizeHigh = static_cast<DWORD>(info.plainSize >> 32);
    raw.nFileSizeLow = static_cast<DWORD>(info.plainSize);
    SystemTimeToFileTime(&info.lastWrite, &raw.ftLastWriteTime);
    SystemTimeToFileTime(&info.lastAccess, &raw.ftLastAccessTime);
    SystemTimeToFileTime(&info.creation, &raw.ftCreationTime);
    CopyBounded(raw.cFileName, name);
    QC_LOG(L"findData[%s]", FormatRawFindDataStr(&raw));
    return qcLog.Leave(noConflict ? VIT_EncryptedFile : VIT_EncryptedFileInConflict);
}

bool FindKnownContainer(const FolderView& view, const std::wstring& containerFilePath, const WIN32_FIND_DATAW& raw,
                        VirtFindData* virtFindData) {
    bool hasInfo = false;
    if (view.showsLocked)
        FileLocker::GetEncryptedInfo(containerFilePath.c_str(), &hasInfo, virtFindData);
    if (hasInfo)
        return true;
    if (view.folderWriteTime == 0)
        view.folderWriteTime = ReadFolderWriteTime(view.folderPath);
    return VirtualFileInfoCache::Find(containerFilePath, raw, view.folderWriteTime, virtFindData);
}

// All but the type.
void StoreRecord(const WIN32_FIND_DATAW& raw, VirtFindData* virtFindData) {
    virtFindData->fileAttributes = raw.dwFileAttributes;
    virtFindData->creationTime = FileTimeNumber(raw.ftCreationTime);
    virtFindData->lastAccessTime = FileTimeNumber(raw.ftLastAccessTime);
    virtFindData->lastWriteTime = FileTimeNumber(raw.ftLastWriteTime);
    virtFindData->fileSize = static_cast<std::int64_t>(Joined(raw.nFileSizeHigh, raw.nFileSizeLow));
    CopyBounded(virtFindData->fileName, raw.cFileName);
}

void BuildVirtFindData(const FolderView& view, bool containerFlag, const WIN32_FIND_DATAW& rawOnDisk, VirtFindData* virtFindData) {
    QC_TRACE(L"BuildVirtFindData", L"folderPath[%s], containerFlag[%s], fileName[%s]", view.folderPath, FormatBoolStr(containerFlag),
             rawOnDisk.cFileName);
    // In many folders most entries are not containers, and need no path.
    const std::wstring containerFilePath = containerFlag ? PathAppendStr(view.folderPath, rawOnDisk.cFileName) : std::wstring();
    if (containerFlag && FindKnownContainer(view, containerFilePath, rawOnDisk, virtFindData))
        return;
    WIN32_FIND_DATAW raw = rawOnDisk;
    virtFindData->itemType = IsFolder(raw) ? VIT_Folder : GetHalvaneFileData(view, containerFlag, containerFilePath, raw);
    StoreRecord(raw, virtFindData);
    const bool isRealName = view.namesAreFromDisk || virtFindData->itemType == VIT_EncryptedFile;
    if (containerFlag && virtFindData->itemType != VIT_PlainFile && isRealName)
        VirtualFileInfoCache::Add(containerFilePath, rawOnDisk, *virtFindData, view.folderWriteTime);
}

bool ReadRawEntry(const std::wstring& path, WIN32_FIND_DATAW& raw) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(PlatformPath(path).c_str(), GetFileExInfoStandard, &data))
        return false;
    raw.dwFileAttributes = data.dwFileAttributes;
    raw.ftCreationTime = data.ftCreationTime;
    raw.ftLastAccessTime = data.ftLastAccessTime;
    raw.ftLastWriteTime = data.ftLastWriteTime;
    raw.nFileSizeHigh = data.nFileSizeHigh;
    raw.nFileSizeLow = data.nFileSizeLow;
    CopyBounded(raw.cFileName, PathStripPathStr(path));
    return true;
}

// Did the search end because nothing more matches, and not because reading the folder failed?
bool IsSearchDone() { return GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_NO_MORE_FILES; }

// After a search that found everything, begins the search for "<spec>.zip".
bool StartExtraZipSearch(VirtualFindHandle& handle, WIN32_FIND_DATAW& raw) {
    std::wstring newSearch;
    if (!IsSearchDone() || handle.extraZipSearch || !ShouldSearchForExtraZip(handle.filePathSearch, newSearch))
        return false;
    handle.extraZipSearch = true;
    handle.containerFlag = true;
    handle.filePathSearch = newSearch;
    handle.find.Reset(::FindFirstFileW(PlatformPath(newSearch).c_str(), &raw));
    if (!handle.find && GetLastError() == ERROR_INVALID_NAME)  // with ".zip" the name is too long, so there is no such container
        SetLastError(ERROR_FILE_NOT_FOUND);
    return handle.find && ShouldEnumerateFindData(handle, raw);
}

void StoreEntry(VirtualFindHandle& handle, const WIN32_FIND_DATAW& raw, VirtFindData* virtFindData) {
    *virtFindData = {};
    std::wstring newSearch;
    if (!handle.extraZipSearch && HasContainerName(raw.cFileName) && ShouldSearchForExtraZip(handle.filePathSearch, newSearch))
        handle.shownContainers.insert(raw.cFileName);
    PlainNameFilter* const plainNames = handle.isPattern ? &handle.plainNames : nullptr;
    BuildVirtFindData({handle.folderPath, handle.folderWriteTime, plainNames}, handle.containerFlag, raw, virtFindData);
}

// Waits while others hold a file for a moment, and reads the whole file if it is a placeholder, because a sync client may fetch only
// what is read.
void MakeReadable(const std::wstring& path, bool isPlaceholder) {
    UniqueHandle file;
    TryForAMoment([&] {
        file = OwnHandle(CreateFileW(PlatformPath(path).c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
        return file ? Win32Error::None : LastWin32Error();
    });
    if (!file || !isPlaceholder)
        return;
    const auto buffer = std::make_unique<char[]>(kFetchBytes);
    DWORD done = 0;
    while (ReadFile(file.Get(), buffer.get(), kFetchBytes, &done, nullptr) && done > 0) {
    }
}

}  // namespace

bool VirtualFindFile::FindFile(const wchar_t* filePath, VirtFindData* virtFindData) {
    QC_TRACE(L"VirtualFindFile::FindFile", L"filePath[%s]", filePath);
    std::wstring path = filePath ? filePath : L"";
    WIN32_FIND_DATAW raw{};
    bool containerFlag = false;
    if (path.empty() || !ReadRawEntry(path, raw)) {
        path = PathAddExtensionStr(path, kContainerExtension);
        containerFlag = true;
        // A folder "y.zip" is not a container: it must not be opened, moved or deleted instead of a missing "y".
        if (!filePath || !ReadRawEntry(path, raw) || IsFolder(raw)) {
            QC_LOG(L"filePath[%s] is Not Found", filePath);
            return qcLog.Leave(false);
        }
    } else {
        containerFlag = !IsFolder(raw) && HasContainerName(raw.cFileName);
    }
    *virtFindData = {};
    // For a container that is not remembered yet, the plain name is looked up after the folder's time was read: a plain file that is
    // created later changes the time, so the remembered record is not used any more.
    std::uint64_t folderWriteTime = 0;
    BuildVirtFindData({PathRemoveFileSpecStr(path), folderWriteTime, nullptr, false}, containerFlag, raw, virtFindData);
    return qcLog.Leave(true);
}

bool VirtualFindFile::FindFileToOpen(const wchar_t* filePath, VirtFindData* virtFindData) {
    if (!FindFile(filePath, virtFindData))
        return false;
    if (virtFindData->itemType != VIT_PlainFile || !HasContainerName(virtFindData->fileName))
        return true;
    MakeReadable(PathAppendStr(PathRemoveFileSpecStr(filePath), virtFindData->fileName), IsPlaceholder(virtFindData->fileAttributes));
    return FindFile(filePath, virtFindData);
}

bool VirtualFindFile::DescribeOnDisk(const std::wstring& path, VirtualItemType itemType, VirtFindData* virtFindData) {
    QC_TRACE(L"VirtualFindFile::DescribeOnDisk", L"filePath[%s]", path);
    WIN32_FIND_DATAW raw{};
    if (!ReadRawEntry(path, raw))
        return qcLog.Leave(false);
    *virtFindData = {};
    virtFindData->itemType = itemType;
    StoreRecord(raw, virtFindData);
    return qcLog.Leave(true);
}

bool VirtualFindFile::FindContainerOnDisk(const std::wstring& containerPath, VirtFindData* virtFindData) {
    QC_TRACE(L"VirtualFindFile::FindContainerOnDisk", L"filePath[%s]", containerPath);
    WIN32_FIND_DATAW raw{};
    if (!ReadRawEntry(containerPath, raw))
        return qcLog.Leave(false);
    *virtFindData = {};
    std::uint64_t folderWriteTime = 0;
    BuildVirtFindData({PathRemoveFileSpecStr(containerPath), folderWriteTime, nullptr, false, false}, !IsFolder(raw), raw, virtFindData);
    return qcLog.Leave(true);
}

VirtualFindHandlePtr VirtualFindFile::FindFirstFileW(const wchar_t* filePathSearch, VirtFindData* virtFindData) {
    QC_TRACE(L"VirtualFindFile::FindFirstFileW", L"filePathSearch[%s]", filePathSearch);
    VirtualFindHandlePtr handle(new VirtualFindHandle);
    handle->filePathSearch = filePathSearch;
    handle->isPattern = PathStripPathStr(filePathSearch).find_first_of(L"*?") != std::wstring::npos;
    handle->folderPath = PathRemoveFileSpecStr(filePathSearch);
    *virtFindData = {};
    WIN32_FIND_DATAW raw{};
    handle->find.Reset(::FindFirstFileW(PlatformPath(filePathSearch).c_str(), &raw));
    QC_CHECK_OR_RETURN(handle->find || GetLastError() == ERROR_FILE_NOT_FOUND, nullptr,
                       L"hFind != ((HANDLE)(LONG_PTR)-1) || GetLastError() == 2L =>FALSE%s,  %s", L"filePathSearch[%s]. Error[%s]",
                       filePathSearch, SystemErrorStr(GetLastError()));
    if (handle->find && ShouldEnumerateFindData(*handle, raw)) {
        QC_LOG(L"filePathSearch[%s] is Found on first try", filePathSearch);
        handle->containerFlag = !IsFolder(raw) && HasContainerName(raw.cFileName);
    } else {
        const bool found = StartExtraZipSearch(*handle, raw);
        if (handle->extraZipSearch)
            QC_LOG(L"In second try searched for filePathSearch[%s]", handle->filePathSearch);
        if (!found)
            return qcLog.Leave(VirtualFindHandlePtr());
        QC_LOG(L"filePathSearch[%s] is Found on second try searching for extra zip", handle->filePathSearch);
    }
    StoreEntry(*handle, raw, virtFindData);
    QC_LOG(L"findData[%s]", FormatFindDataStr(virtFindData));
    return qcLog.Leave(std::move(handle));
}

bool VirtualFindFile::FindNextFileW(VirtualFindHandle& handle, VirtFindData* virtFindData) {
    QC_TRACE(L"VirtualFindFile::FindNextFileW", L"Next search for filePathSearch[%s]", handle.filePathSearch);
    *virtFindData = {};
    WIN32_FIND_DATAW raw{};
    SetLastError(ERROR_NO_MORE_FILES);  // also of a second search that found nothing
    const bool found = handle.find && ::FindNextFileW(handle.find.Get(), &raw) && ShouldEnumerateFindData(handle, raw);
    if (!found && !StartExtraZipSearch(handle, raw))
        return qcLog.Leave(false);
    // A folder that is named like a container has the flag too, but is shown as a folder.
    handle.containerFlag = HasContainerName(raw.cFileName);
    StoreEntry(handle, raw, virtFindData);
    QC_LOG(L"findData[%s]", FormatFindDataStr(virtFindData));
    return qcLog.Leave(true);
}
