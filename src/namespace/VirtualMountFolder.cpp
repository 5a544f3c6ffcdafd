#include "namespace/VirtualMountFolder.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cwchar>
#include <memory>
#include <vector>

#include <shlwapi.h>

#include "diagnostics/Trace.h"
#include "library/Disk.h"
#include "library/Locks.h"
#include "library/Owners.h"
#include "library/Text.h"
#include "namespace/VirtualFindFile.h"
#include "quelcrypt/QuelcryptExceptions.h"

namespace {

// Texts of checks.
constexpr wchar_t kRecordHasRoomText[] =
    L"sizeof(virtMountInfo->name) > wcslen(mountFolderInfo.name) && sizeof(virtMountInfo->path) > wcslen(mountFolderInfo.path) =>false%s, ";

// Buckets of a hash over names; the order of buckets, then of chains, is the order in which folders are visited.
class FolderTable {
public:
    const MountFolderInfo* Find(std::wstring_view name) const {
        for (const MountFolderInfo& folder : m_buckets[BucketOf(name)])
            if (EqualNoCase(folder.name, name))
                return &folder;
        return nullptr;
    }
    void Store(MountFolderInfo folder) {
        std::vector<MountFolderInfo>& chain = m_buckets[BucketOf(folder.name)];
        for (MountFolderInfo& stored : chain)
            if (EqualNoCase(stored.name, folder.name)) {
                stored = std::move(folder);
                return;
            }
        chain.push_back(std::move(folder));
    }
    std::vector<const MountFolderInfo*> InOrder() const {
        std::vector<const MountFolderInfo*> folders;
        for (const auto& chain : m_buckets)
            for (const MountFolderInfo& folder : chain)
                folders.push_back(&folder);
        return folders;
    }

private:
    static std::size_t BucketOf(std::wstring_view name) { return NoCaseHash()(name) % kBuckets; }

    static constexpr std::size_t kBuckets = 17;
    std::array<std::vector<MountFolderInfo>, kBuckets> m_buckets;
};

struct MountFolderState {
    CriticalSection section{LockOrder::MountFolders};
    FolderTable table GUARDED_BY(section);
    std::atomic<bool> loaded{false};                      // also read without the section, so that nobody waits without need
    std::uint32_t changeCounter GUARDED_BY(section) = 0;  // as last read from the library; 0: none yet
};

MountFolderState& State() {
    static MountFolderState s_state;
    return s_state;
}

// One text of a protected folder; empty when it is absent or cannot be decoded.
std::wstring ReadFolderText(IProtectedFolder* folder, bool (IProtectedFolder::*getter)(IQuelcryptText**)) {
    LibraryPtr<IQuelcryptText> text;
    IQuelcryptText** const place = text.GetAddr();
    const bool isThere = CallCompanion([&] { return (folder->*getter)(place); });
    if (!isThere || !text || !CallCompanion([&] { return text->HasText(0); }))
        return {};
    const char* const utf8 = CallCompanion([&] { return text->GetText(0); });
    try {
        return utf8 ? Utf8DecodeStr(utf8) : std::wstring();
    } catch (const CQuelcryptErrorException&) {
        return {};
    }
}

FolderTable ReadFolders(QuelcryptLog& qcLog, IProtectedFolderEnum* protectedFolders) {
    FolderTable table;
    LibraryPtr<IProtectedFolder> folder;
    const auto next = [&] {
        IProtectedFolder** const place = folder.GetAddr();
        return CallCompanion([&] { return protectedFolders->Next(place); }) != 0;
    };
    while (next()) {
        if (!folder)
            throw CQuelcryptErrorException(L"A protected folder is missing");  // the table stays as it was
        ProtectedFolderRecord record{PFT_Invalid};
        CallCompanion([&] { folder->GetRecord(&record); });
        MountFolderInfo info{static_cast<ProtectedFolderType>(record.type), ReadFolderText(folder.Get(), &IProtectedFolder::GetName),
                             ReadFolderText(folder.Get(), &IProtectedFolder::GetPath)};
        if (!info.name.empty() && !info.path.empty())
            table.Store(std::move(info));
        else
            QC_LOG_AT(LogLevel_Warning, L"A protected folder without name[%s] or path[%s] is left out", info.name, info.path);
    }
    return table;
}

// Throws what the library throws.
void Reload(QuelcryptLog& qcLog, MountFolderState& state) REQUIRES(state.section) {
    LibraryPtr<IProtectedFolderEnum> protectedFolders;
    IProtectedFolderEnum** const place = protectedFolders.GetAddr();
    const bool asked = CallCompanion([&] { return Quelcrypt_GetProtectedFolderEnum(0, place); }) != 0;
    if (!asked || !protectedFolders) {
        QC_REPORT(L"protectedFolders.Ptr() != 0 =>false%s, ");
        return;
    }
    const std::uint32_t changeCounter = CallCompanion([&] { return protectedFolders->GetChangeCounter(); });
    if (state.changeCounter != 0 && state.changeCounter == changeCounter)
        return;
    state.table = ReadFolders(qcLog, protectedFolders.Get());
    state.changeCounter = changeCounter;
    state.loaded = true;
    const auto count = static_cast<int>(state.table.InOrder().size());
    QC_LOG(L"The table has %d mount folders, change counter[%d]", count, changeCounter);
}

bool CopyByName(MountFolderState& state, const std::wstring& name, MountFolderInfo& mountFolderInfo) {
    const SectionGuard guard(state.section);
    const MountFolderInfo* const found = state.table.Find(name);
    if (found)
        mountFolderInfo = *found;
    return found != nullptr;
}

// Is path the folder, or below it?
bool Contains(std::wstring_view folder, std::wstring_view path) {
    folder = folder.substr(0, folder.find_last_not_of(L"\\/") + 1);  // "D:\\" has the separator already
    const std::size_t length = folder.size();
    return path.size() >= length && EqualNoCase(path.substr(0, length), folder) && (path.size() == length || path[length] == L'\\');
}

// Looks for the first folder from position `start` on that store(folder) accepts; nextName becomes the name after it.
template <class Store>
bool MatchFrom(const std::vector<const MountFolderInfo*>& folders, std::size_t start, std::wstring& nextName, Store store) {
    for (std::size_t index = start; index < folders.size(); ++index)
        if (store(*folders[index])) {
            nextName = index + 1 < folders.size() ? folders[index + 1]->name : std::wstring();
            return true;
        }
    nextName.clear();
    return false;
}

template <class Store>
bool MatchNext(VirtFindMountFolderHandle& handle, Store store) {
    if (handle.nextName.empty())
        return false;
    MountFolderState& state = State();
    const SectionGuard guard(state.section);
    const std::vector<const MountFolderInfo*> folders = state.table.InOrder();
    for (std::size_t start = 0; start < folders.size(); ++start)
        if (folders[start]->name == handle.nextName)
            return MatchFrom(folders, start, handle.nextName, store);
    return false;
}

bool MatchesSpec(QuelcryptLog& qcLog, const wchar_t* searchSpec, const MountFolderInfo& folder) {
    if (PathMatchSpecW(folder.name.c_str(), searchSpec))
        return true;
    QC_LOG(L"Mount folder[%s] does not match search spec[%s]", folder.name, searchSpec);
    return false;
}

const wchar_t* SpecOrAll(const wchar_t* searchSpec) { return searchSpec ? searchSpec : L"*"; }

}  // namespace

void VirtualMountFolder::LoadFolders(bool force) {
    QC_TRACE(L"VirtualMountFolder::LoadFolders", L"force[%s]", FormatBoolStr(force));
    MountFolderState& state = State();
    if (state.loaded && !force)
        return;
    const SectionGuard guard(state.section);
    if (state.loaded && !force)  // meanwhile
        return;
    try {
        Reload(qcLog, state);
    } catch (const CQuelcryptErrorException& exception) {
        QC_REPORT(L"protectedFolders.Ptr() != 0 =>false%s, ");
        QC_LOG_AT(LogLevel_Error, L"Exception[%s]", exception.GetDescription());
    } catch (const CQuelcryptException&) {
        QC_REPORT(L"protectedFolders.Ptr() != 0 =>false%s, ");
    }
}

bool VirtualMountFolder::IsValidVirtualVolumePath(const wchar_t* path) {
    QC_TRACE(L"VirtualMountFolder::IsValidVirtualVolumePath", L"path[%s]", path);
    if (path && *path && !std::wcschr(path, L':') && path[0] != L'\\' && path[1] != L'\\')
        return qcLog.Leave(true);
    QC_LOG(L"File path[%s] is not valid virtual volume path", path);
    return qcLog.Leave(false);
}

bool VirtualMountFolder::ParseFilePath(const wchar_t* path, std::wstring& mountFolderPart, std::wstring& relativePath) {
    QC_TRACE(L"VirtualMountFolder::ParseFilePath", L"path[%s]", path);
    relativePath.clear();
    QC_CHECK_OR_RETURN(path != nullptr, false, L"mountFolderPartBuf != 0 =>false%s, ");
    const wchar_t* const separator = std::wcschr(path, L'\\');
    if (separator) {
        mountFolderPart.assign(path, separator);
        relativePath = separator + 1;
    } else {
        mountFolderPart = path;
    }
    return qcLog.Leave(true);
}

bool VirtualMountFolder::GetMountFolderInfoByVirtPath(const wchar_t* virtFilePath, MountFolderInfo& mountFolderInfo,
                                                      std::wstring& relativePath) {
    QC_TRACE(L"VirtualMountFolder::GetMountFolderInfoByVirtPath", L"virtFilePath[%s]", virtFilePath);
    LoadFolders(false);
    std::wstring mountFolderPart;
    if (!IsValidVirtualVolumePath(virtFilePath) || !ParseFilePath(virtFilePath, mountFolderPart, relativePath))
        return qcLog.Leave(false);
    MountFolderState& state = State();
    if (!CopyByName(state, mountFolderPart, mountFolderInfo)) {
        LoadFolders(true);  // the mount folder may be new
        if (!CopyByName(state, mountFolderPart, mountFolderInfo)) {
            QC_LOG(L"virtFilePath[%s], relativePath[%s]", virtFilePath, relativePath);
            return qcLog.Leave(false);
        }
    }
    QC_LOG(L"virtFilePath[%s], relativePath[%s], mountFolderInfo[%s]", virtFilePath, relativePath,
           FormatMountInfoStr(mountFolderInfo.type, mountFolderInfo.name.c_str(), mountFolderInfo.path.c_str()));
    return qcLog.Leave(true);
}

bool VirtualMountFolder::GetMountFolderInfoByNativePath(const wchar_t* nativeFilePath, MountFolderInfo& mountFolderInfo,
                                                        std::wstring& relativePath) {
    QC_TRACE(L"VirtualMountFolder::GetMountFolderInfoByNativePath", L"nativeFilePath[%s]", nativeFilePath);
    LoadFolders(true);
    QC_CHECK_OR_RETURN(nativeFilePath != nullptr, false, L"nativeFilePath != 0 && &nativeFilePath =>false%s, ");
    const std::wstring_view nativePath = nativeFilePath;
    MountFolderState& state = State();
    const SectionGuard guard(state.section);
    for (const MountFolderInfo* folder : state.table.InOrder())
        if (Contains(folder->path, nativePath)) {
            mountFolderInfo = *folder;
            relativePath = nativePath.substr(std::min(folder->path.size() + 1, nativePath.size()));
            return qcLog.Leave(true);
        }
    return qcLog.Leave(false);
}

bool VirtualMountFolder::HoldsMountFolder(const std::wstring& nativePath) {
    QC_TRACE(L"VirtualMountFolder::HoldsMountFolder", L"nativeFilePath[%s]", nativePath);
    LoadFolders(true);
    MountFolderState& state = State();
    const SectionGuard guard(state.section);
    const auto folders = state.table.InOrder();
    return qcLog.Leave(std::any_of(folders.begin(), folders.end(), [&](const auto* folder) { return Contains(nativePath, folder->path); }));
}

VirtFindMountFolderHandlePtr VirtualMountFolder::FindFirstFolder(const wchar_t* folderSearchSpec) {
    QC_TRACE(L"VirtualMountFolder::FindFirstFolder", L"folderSearchSpec[%s]", folderSearchSpec);
    LoadFolders(true);
    auto handle = std::make_unique<VirtFindMountFolderHandle>();
    handle->folderSearchSpec = SpecOrAll(folderSearchSpec);
    MountFolderState& state = State();
    const SectionGuard guard(state.section);
    VirtMountInfo fitting{};  // a folder that does not fit the record does not match
    for (const MountFolderInfo* folder : state.table.InOrder())
        if (GetMatchedMountFolderVirtMountInfo(handle->folderSearchSpec.c_str(), *folder, &fitting)) {
            handle->nextName = folder->name;
            return qcLog.Leave(std::move(handle));
        }
    return qcLog.Leave(VirtFindMountFolderHandlePtr());
}

VirtFindMountFolderHandlePtr VirtualMountFolder::FindFirstFolder(const wchar_t* folderSearchSpec, VirtFindData* virtFindData) {
    QC_TRACE(L"VirtualMountFolder::FindFirstFolder", L"folderSearchSpec[%s]", folderSearchSpec);
    LoadFolders(true);
    auto handle = std::make_unique<VirtFindMountFolderHandle>();
    handle->folderSearchSpec = SpecOrAll(folderSearchSpec);
    MountFolderState& state = State();
    const SectionGuard guard(state.section);
    const bool found = MatchFrom(state.table.InOrder(), 0, handle->nextName, [&](const MountFolderInfo& folder) {
        return GetMatchedMountFolderVirtFindData(handle->folderSearchSpec.c_str(), folder, virtFindData);
    });
    return qcLog.Leave(found ? std::move(handle) : nullptr);
}

bool VirtualMountFolder::FindNextFolder(VirtFindMountFolderHandle& handle, VirtMountInfo* virtMountInfo) {
    QC_TRACE(L"VirtualMountFolder::FindNextFolder", L"folderSearchSpec[%s], nextName[%s]", handle.folderSearchSpec, handle.nextName);
    return qcLog.Leave(MatchNext(handle, [&](const MountFolderInfo& folder) {
        return GetMatchedMountFolderVirtMountInfo(handle.folderSearchSpec.c_str(), folder, virtMountInfo);
    }));
}

bool VirtualMountFolder::FindNextFolder(VirtFindMountFolderHandle& handle, VirtFindData* virtFindData) {
    QC_TRACE(L"VirtualMountFolder::FindNextFolder", L"folderSearchSpec[%s], nextName[%s]", handle.folderSearchSpec, handle.nextName);
    return qcLog.Leave(MatchNext(handle, [&](const MountFolderInfo& folder) {
        return GetMatchedMountFolderVirtFindData(handle.folderSearchSpec.c_str(), folder, virtFindData);
    }));
}

bool VirtualMountFolder::GetMatchedMountFolderVirtMountInfo(const wchar_t* searchSpec, const MountFolderInfo& mountFolderInfo,
                                                            VirtMountInfo* virtMountInfo) {
    QC_TRACE(L"VirtualMountFolder::GetMatchedMountFolderVirtMountInfo", L"searchSpec[%s], name[%s]", searchSpec, mountFolderInfo.name);
    if (!MatchesSpec(qcLog, searchSpec, mountFolderInfo))
        return qcLog.Leave(false);
    // A name may have up to twice as many units as the record has room for, and is cut; a path is never cut.
    QC_CHECK_OR_RETURN(
        mountFolderInfo.name.size() < sizeof(virtMountInfo->name) && mountFolderInfo.path.size() < std::size(virtMountInfo->path), false,
        kRecordHasRoomText);
    CopyBounded(virtMountInfo->name, mountFolderInfo.name);
    CopyBounded(virtMountInfo->path, mountFolderInfo.path);
    virtMountInfo->type = mountFolderInfo.type;
    return qcLog.Leave(true);
}

bool VirtualMountFolder::GetMatchedMountFolderVirtFindData(const wchar_t* searchSpec, const MountFolderInfo& mountFolderInfo,
                                                           VirtFindData* virtFindData) {
    QC_TRACE(L"VirtualMountFolder::GetMatchedMountFolderVirtFindData", L"searchSpec[%s], name[%s]", searchSpec, mountFolderInfo.name);
    if (searchSpec && *searchSpec && !MatchesSpec(qcLog, searchSpec, mountFolderInfo))
        return qcLog.Leave(false);
    // A container of that name beside the mount folder is another entry.
    QC_CHECK_OR_RETURN(IsExistingFolder(mountFolderInfo.path) && VirtualFindFile::FindFile(mountFolderInfo.path.c_str(), virtFindData),
                       false, L"VirtualFindFile::FindFile(mountFolderInfo.path, virtFindData) =>false%s, ");
    QC_LOG(L"Mount folder[%s] matches search spec[%s]", mountFolderInfo.name, searchSpec);
    QC_CHECK_OR_RETURN(mountFolderInfo.name.size() < sizeof(virtFindData->fileName), false,
                       L"sizeof(virtFindData->fileName) > wcslen(mountFolderInfo.name) =>false%s, ");
    CopyBounded(virtFindData->fileName, mountFolderInfo.name);
    virtFindData->itemType = VIT_MountFolder;
    return qcLog.Leave(true);
}
