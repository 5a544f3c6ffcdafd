#include <optional>
#include <utility>

#include "items/VirtualTempFileDispenser.h"
#include "library/Paths.h"
#include "library/Text.h"
#include "locks/FileLocker.h"
#include "namespace/VirtualFindFile.h"
#include "volume/CatchAll.h"
#include "volume/SearchHandles.h"
#include "volume/VirtualVolumeImpl.h"

namespace {

bool IsMountFolderLevel(const wchar_t* filePath) { return !filePath || !*filePath || *filePath == L'*'; }

// The native path of something below a mount folder; nothing when filePath is the root, a mount folder, or unknown.
std::optional<std::wstring> PathBelowMountFolder(const wchar_t* filePath) {
    MountFolderInfo mountFolderInfo;
    std::wstring relativePath;
    if (IsMountFolderLevel(filePath) || !VirtualMountFolder::GetMountFolderInfoByVirtPath(filePath, mountFolderInfo, relativePath))
        return std::nullopt;
    std::optional<std::wstring> joined = PathJoinBelow(mountFolderInfo.path, relativePath);
    return joined && *joined != mountFolderInfo.path ? joined : std::nullopt;
}

}  // namespace

void* VirtualVolume::FindFirstMountFolder(const wchar_t* searchSpec) {
    QC_TRACE_SLOT(L"VirtualVolume::FindFirstMountFolder", L"folderSearchSpec[%s]", searchSpec);
    return CatchAllOr<void*>(nullptr, QC_SLOT,
                             [&] { return qcLog.Leave(SearchHandles::Add(VirtualMountFolder::FindFirstFolder(searchSpec))); });
}

bool VirtualVolume::FindNextMountFolder(void* hFind, VirtMountInfo* mountInfo) {
    QC_TRACE_SLOT(L"VirtualVolume::FindNextMountFolder", L"hFind[%p]", hFind);
    return CatchAllOr(false, QC_SLOT, [&] {
        using Found = std::optional<bool>;  // nothing: not a search of this kind
        const auto next = [&](VirtFindMountFolderHandle& search) { return Found(VirtualMountFolder::FindNextFolder(search, mountInfo)); };
        const Found found = mountInfo ? SearchHandles::With<VirtFindMountFolderHandle>(hFind, kMountSearchMagic, Found(), next) : Found();
        QC_CHECK_OR_RETURN(found.has_value(), false, L"mountInfo != 0 && IsMountFolderSearch(hFind) =>false%s, ");
        return qcLog.Leave(*found);
    });
}

bool VirtualVolume::FindFile(const wchar_t* filePath, VirtFindData* findData) {
    QC_TRACE_SLOT(L"VirtualVolume::FindFile", L"filePath[%s]", filePath);
    return CatchAllOr(false, QC_SLOT, [&] {
        if (!findData)
            return qcLog.Leave(false);
        if (!filePath || !*filePath) {
            QC_LOG(L"Find root");
            FindRoot(findData);
            return qcLog.Leave(true);
        }
        MountFolderInfo mountFolderInfo;
        std::wstring relativePath;
        if (!VirtualMountFolder::GetMountFolderInfoByVirtPath(filePath, mountFolderInfo, relativePath)) {
            QC_LOG(L"Failed to find MountFolderInfo for filePath[%s]", filePath);
            return qcLog.Leave(false);
        }
        const std::optional<std::wstring> mountedFilePath = PathIn(mountFolderInfo, relativePath);
        VirtFindData found{};
        if (!mountedFilePath || !VirtualFindFile::FindFile(mountedFilePath->c_str(), &found)) {
            QC_LOG(L"Failed to find info for mountedFilePath[%s]", mountedFilePath.value_or(filePath));
            return qcLog.Leave(false);
        }
        if (*mountedFilePath == mountFolderInfo.path) {
            found.itemType = VIT_MountFolder;
            CopyBounded(found.fileName, mountFolderInfo.name);
        }
        VirtualTempFileDispenser::DescribeShownEdit(PathRemoveFileSpecStr(*mountedFilePath), found);
        *findData = found;
        QC_LOG(L"mountedFilePath[%s], virtFindData[%s]", *mountedFilePath, FormatFindDataStr(findData));
        return qcLog.Leave(true);
    });
}

void* VirtualVolume::FindFirstFileW(const wchar_t* filePath, VirtFindData* findData) {
    QC_TRACE_SLOT(L"VirtualVolume::FindFirstFileW", L"filePath[%s]", filePath);
    return CatchAllOr<void*>(nullptr, QC_SLOT, [&]() -> void* {
        if (!findData)
            return qcLog.Leave<void*>(nullptr);
        const std::optional<std::wstring> findFilePath = PathBelowMountFolder(filePath);
        void* hFind = nullptr;
        if (findFilePath) {
            VirtualFindHandlePtr search = VirtualFindFile::FindFirstFileW(findFilePath->c_str(), findData);
            if (search)
                VirtualTempFileDispenser::DescribeShownEdit(search->folderPath, *findData);
            hFind = SearchHandles::Add(std::move(search));
        } else if (!(hFind = SearchHandles::Add(VirtualMountFolder::FindFirstFolder(filePath ? filePath : L"", findData)))) {
            SetLastError(ERROR_FILE_NOT_FOUND);
        }
        if (hFind)
            QC_LOG(L"findFilePath[%s], hFind[%p], virtFindData[%s]", findFilePath.value_or(filePath ? filePath : L""), hFind,
                   FormatFindDataStr(findData));
        else
            QC_LOG(L"Failed to find info for findFilePath[%s]", findFilePath.value_or(filePath ? filePath : L""));
        return qcLog.Leave(hFind);
    });
}

bool VirtualVolume::FindNextFileW(void* hVirtFind, VirtFindData* findData) {
    QC_TRACE_SLOT(L"VirtualVolume::FindNextFileW", L"hVirtFind[%p]", hVirtFind);
    return CatchAllOr(false, QC_SLOT, [&] {
        const auto nextFile = [&](VirtualFindHandle& search) {
            if (!VirtualFindFile::FindNextFileW(search, findData))
                return false;
            VirtualTempFileDispenser::DescribeShownEdit(search.folderPath, *findData);
            return true;
        };
        const auto nextFolder = [&](VirtFindMountFolderHandle& search) {
            const bool isFound = VirtualMountFolder::FindNextFolder(search, findData);
            SetLastError(ERROR_NO_MORE_FILES);
            return isFound;
        };
        SetLastError(ERROR_INVALID_HANDLE);
        const bool found = findData && (SearchHandles::With<VirtualFindHandle>(hVirtFind, kFileSearchMagic, false, nextFile) ||
                                        SearchHandles::With<VirtFindMountFolderHandle>(hVirtFind, kMountSearchMagic, false, nextFolder));
        if (found)
            QC_LOG(L"hFind[%p], virtFindData[%s]", hVirtFind, FormatFindDataStr(findData));
        else
            QC_LOG(L"No next is found");
        return qcLog.Leave(found);
    });
}

bool VirtualVolume::FindClose(void* hVirtFind) {
    QC_TRACE_SLOT(L"VirtualVolume::FindClose", L"hVirtFind[%p]", hVirtFind);
    return CatchAllOr(false, QC_SLOT, [&] { return qcLog.Leave(SearchHandles::Close(hVirtFind)); });
}
