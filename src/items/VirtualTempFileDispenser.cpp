#include "items/VirtualTempFileDispenser.h"

#include <algorithm>
#include <cstddef>
#include <list>
#include <optional>
#include <unordered_map>
#include <vector>

#include <sddl.h>
#include <shlobj.h>

#include "diagnostics/Trace.h"
#include "files/Deletion.h"
#include "items/TrackingFile.h"
#include "library/Disk.h"
#include "library/Locks.h"
#include "library/Paths.h"
#include "library/Patience.h"
#include "library/PlatformPath.h"
#include "library/Text.h"
#include "library/Win32Error.h"
#include "policy/HvcUtils.h"

namespace {

// Texts of checks.
constexpr wchar_t kTempNameText[] = L"CreateTempFileName(PathStripPathStr(filePathKey), tempFilePath) =>false%s, ";

constexpr std::size_t kMaximumCopies = 522;
constexpr int kFolderAttempts = 16;

struct CacheEntry {
    std::wstring key;
    RetainedCopy copy;
};
using CacheList = std::list<CacheEntry>;  // oldest first

struct CacheState {
    CriticalSection section{LockOrder::TempFiles};
    CacheList entries GUARDED_BY(section);
    std::unordered_map<std::wstring, CacheList::iterator, NoCaseHash, NoCaseEqual> byKey GUARDED_BY(section);
    std::size_t savedCount GUARDED_BY(section) = 0;
    // Unsaved edits that open items have now: temp file, item.
    std::unordered_map<std::wstring, std::wstring, NoCaseHash, NoCaseEqual> takenOut GUARDED_BY(section);
    std::vector<std::wstring> leftFiles GUARDED_BY(section);  // that others had open when they were deleted

    const RetainedCopy* Find(const std::wstring& key) REQUIRES(section) {
        const auto found = byKey.find(key);
        return found == byKey.end() ? nullptr : &found->second->copy;
    }
    std::optional<RetainedCopy> Take(const std::wstring& key) REQUIRES(section) {
        const auto found = byKey.find(key);
        if (found == byKey.end())
            return std::nullopt;
        RetainedCopy copy = std::move(found->second->copy);
        savedCount -= copy.unsaved ? 0 : 1;
        entries.erase(found->second);
        byKey.erase(found);
        return copy;
    }
    // Returns a copy that the caller must delete: the earlier one, or this one when an unsaved edit is kept instead.
    std::optional<RetainedCopy> Put(const std::wstring& key, const RetainedCopy& copy) REQUIRES(section) {
        const RetainedCopy* const earlier = Find(key);
        if (earlier && earlier->unsaved && !copy.unsaved)
            return copy;
        CacheList fresh{{key, copy}};  // before any change, because it needs memory
        std::optional<RetainedCopy> replaced;
        if (earlier) {
            const CacheList::iterator old = byKey.find(key)->second;
            savedCount -= old->copy.unsaved ? 0 : 1;
            if (!old->copy.unsaved)
                replaced = std::move(old->copy);
            entries.erase(old);
            byKey.find(key)->second = fresh.begin();
        } else {
            byKey.emplace(key, fresh.begin());
        }
        entries.splice(entries.end(), fresh);
        savedCount += copy.unsaved ? 0 : 1;
        return replaced;
    }
    std::optional<RetainedCopy> TakeOldestSaved() REQUIRES(section) {
        for (const CacheEntry& entry : entries)
            if (!entry.copy.unsaved)
                return Take(std::wstring(entry.key));
        return std::nullopt;
    }
};

CacheState& State() {
    static CacheState s_state;
    return s_state;
}

bool MakeFolder(const std::wstring& folder) {
    QC_TRACE(L"MakeFolder");
    if (IsExistingFolder(folder))
        return qcLog.Leave(true);
    const int errCode = SHCreateDirectoryExW(nullptr, folder.c_str(), nullptr);
    QC_CHECK_OR_RETURN(errCode == 0 || IsExistingFolder(folder), false, L"errCode == 0L =>false%s, ");
    return qcLog.Leave(true);
}

bool BaseFolder(std::wstring& folder) {
    wchar_t tempPath[MAX_PATH + 1];
    const DWORD length = GetTempPathW(static_cast<DWORD>(std::size(tempPath)), tempPath);
    if (length == 0 || length >= std::size(tempPath))
        return false;
    folder = PathAppendStr(tempPath, kCopiesFolderName);
    return MakeFolder(folder);
}

// Deletes the files whose names are known, which works with paths of any length.
bool DeleteNow(const std::wstring& tempFilePath) {
    DeleteFileW(PlatformPath(tempFilePath).c_str());
    DeleteFileW(PlatformPath(TrackingFilePathStr(tempFilePath)).c_str());
    const std::wstring folder = PathRemoveFileSpecStr(tempFilePath);
    return RemoveDirectoryW(PlatformPath(folder).c_str()) || !PathExists(folder);
}

// Tries again to delete files that others had open.
void DeleteLeftFiles() {
    CacheState& state = State();
    std::vector<std::wstring> files;
    {
        const SectionGuard guard(state.section);
        files.swap(state.leftFiles);
    }
    std::erase_if(files, DeleteNow);
    const SectionGuard guard(state.section);
    state.leftFiles.insert(state.leftFiles.end(), files.begin(), files.end());
}

// Access rights to a folder for this user and the system only: several users, such as services, may share a temp folder, and another
// one may have made the folder above. Null when they cannot be made; the folder then inherits its rights.
class OwnRights {
public:
    OwnRights() {
        UniqueHandle token;
        if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.GetAddr()) &&
            !OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.GetAddr()))
            return;
        alignas(TOKEN_USER) std::byte user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
        DWORD size = 0;
        wchar_t* sid = nullptr;
        if (!GetTokenInformation(token.Get(), TokenUser, user, sizeof(user), &size) ||
            !ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user)->User.Sid, &sid))
            return;
        const std::wstring rights = FormatStr(L"D:P(A;OICI;FA;;;%s)(A;OICI;FA;;;SY)", sid);
        LocalFree(sid);
        ConvertStringSecurityDescriptorToSecurityDescriptorW(rights.c_str(), SDDL_REVISION_1, &m_attributes.lpSecurityDescriptor, nullptr);
    }
    ~OwnRights() { LocalFree(m_attributes.lpSecurityDescriptor); }
    OwnRights(const OwnRights&) = delete;
    OwnRights& operator=(const OwnRights&) = delete;

    SECURITY_ATTRIBUTES* Get() { return m_attributes.lpSecurityDescriptor ? &m_attributes : nullptr; }

private:
    SECURITY_ATTRIBUTES m_attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
};

// Makes a folder that nobody else uses: the platform makes a unique file, which is replaced by a folder of its name. When another
// process was quicker in between, creating the folder fails and another name is tried.
bool MakeUniqueFolder(std::wstring& folder) {
    QC_TRACE(L"MakeUniqueFolder");
    DeleteLeftFiles();
    std::wstring base;
    if (!BaseFolder(base))
        return qcLog.Leave(false);
    OwnRights rights;
    for (int attempt = 0; attempt < kFolderAttempts; ++attempt) {
        wchar_t name[MAX_PATH + 1];
        if (GetTempFileNameW(base.c_str(), L"hvc", 0, name) == 0)
            break;
        DeleteFileW(name);
        // Not through the shell, which looks into every folder above.
        if (CreateDirectoryW(name, rights.Get())) {
            folder = name;
            return qcLog.Leave(true);
        }
    }
    QC_REPORT(L"errCode == 0L =>false%s, ");
    return qcLog.Leave(false);
}

bool Agrees(const VirtFindData& left, const VirtFindData& right) {
    return left.fileAttributes == right.fileAttributes && left.lastWriteTime == right.lastWriteTime && left.fileSize == right.fileSize;
}

bool MayReuse(QuelcryptLog& qcLog, const RetainedCopy& copy, const VirtFindData* findData, const std::optional<FileVersion>& container) {
    QC_LOG(L"Cached temp file is Found[%s], Temp File Path[%s], Its cached Attribs[%s]", L"true", copy.tempFilePath,
           FormatFindDataStr(&copy.findData));
    const bool isOfVersion =
        copy.unsaved ? IsStillVersion(copy.container, container) : container && copy.container && *container == *copy.container;
    const bool matched = isOfVersion && (copy.unsaved || (findData && Agrees(copy.findData, *findData)));
    QC_LOG(L"Attributes Matched[%s]", FormatBoolStr(matched));
    const std::optional<FileStamp> now = ReadFileStamp(copy.tempFilePath);
    // Indexing and backup change attribute bits of the copy.
    const bool isAsKept = now && now->writeTime == copy.temp.writeTime && now->size == copy.temp.size;
    return matched && now && (copy.unsaved || isAsKept);
}

// Until it is given back or deleted. Without memory, it does not count for the folder that it is in.
void NoteTakenOut(const std::wstring& filePathKey, const RetainedCopy& copy) {
    if (!copy.unsaved)
        return;
    CacheState& state = State();
    const SectionGuard guard(state.section);
    try {
        state.takenOut[copy.tempFilePath] = filePathKey;
    } catch (const std::bad_alloc&) {
    }
}

}  // namespace

bool VirtualTempFileDispenser::CreateTempFileName(const std::wstring& fileName, std::wstring& tempFilePath) {
    QC_TRACE(L"VirtualTempFileDispenser::CreateTempFileName");
    std::wstring folder;
    if (!MakeUniqueFolder(folder))
        return qcLog.Leave(false);
    tempFilePath = PathAppendStr(folder, fileName);
    return qcLog.Leave(true);
}

bool VirtualTempFileDispenser::Dispense(const std::wstring& filePathKey, bool contentWanted, const VirtFindData* findData,
                                        const std::optional<FileVersion>& container, RetainedCopy& copy) {
    QC_TRACE(L"VirtualTempFileDispenser::Dispense", L"filePathKey[%s], findData[%s]", filePathKey, FormatFindDataStr(findData));
    if (contentWanted) {
        std::optional<RetainedCopy> retained;
        {
            CacheState& state = State();
            const SectionGuard guard(state.section);
            const RetainedCopy* const found = state.Find(filePathKey);
            const bool waitsOn =
                found && found->unsaved && !IsStillVersion(found->container, container);  // somebody else stored another version
            if (!waitsOn)
                retained = state.Take(filePathKey);
        }
        if (retained && MayReuse(qcLog, *retained, findData, container)) {
            NoteTakenOut(filePathKey, *retained);
            copy = std::move(*retained);
            return qcLog.Leave(true);
        }
        if (retained && !retained->unsaved)
            DeleteTempFolder(retained->tempFilePath);
    }
    copy = {};
    QC_CHECK_OR_RETURN(CreateTempFileName(PathStripPathStr(filePathKey), copy.tempFilePath), false, kTempNameText);
    QC_LOG(L"New tepmFilepath[%s] is dispensed", copy.tempFilePath);
    return qcLog.Leave(false);
}

void VirtualTempFileDispenser::Retain(const std::wstring& filePathKey, const RetainedCopy& copy) {
    QC_TRACE(L"VirtualTempFileDispenser::Retain", L"filePathKey[%s], tempFilePath[%s], findData[%s]", filePathKey, copy.tempFilePath,
             FormatFindDataStr(&copy.findData));
    std::optional<RetainedCopy> replaced;
    std::optional<RetainedCopy> oldest;
    {
        CacheState& state = State();
        const SectionGuard guard(state.section);
        replaced = state.Put(filePathKey, copy);
        state.takenOut.erase(copy.tempFilePath);
        if (state.savedCount > kMaximumCopies) {
            QC_LOG(L"Maximum entry count is reached. Oldest entry will be removed");
            oldest = state.TakeOldestSaved();
        }
    }
    for (const std::optional<RetainedCopy>& leaving : {replaced, oldest})
        if (leaving)
            DeleteTempFolder(leaving->tempFilePath);
}

bool VirtualTempFileDispenser::HoldsUnsavedEdit(const std::wstring& filePathKey) {
    CacheState& state = State();
    const SectionGuard guard(state.section);
    const RetainedCopy* const copy = state.Find(filePathKey);
    return copy && copy->unsaved;
}

bool VirtualTempFileDispenser::HoldsUnsavedEditBelow(const std::wstring& folderPath) {
    CacheState& state = State();
    const SectionGuard guard(state.section);
    return std::ranges::any_of(state.entries,
                               [&](const CacheEntry& entry) { return entry.copy.unsaved && IsPathBelow(entry.key, folderPath); }) ||
           std::ranges::any_of(state.takenOut, [&](const auto& taken) { return IsPathBelow(taken.second, folderPath); });
}

bool VirtualTempFileDispenser::TakeOvertakenEdit(const std::wstring& filePathKey, const std::optional<FileVersion>& container,
                                                 RetainedCopy& copy) {
    CacheState& state = State();
    const SectionGuard guard(state.section);
    const RetainedCopy* const waiting = state.Find(filePathKey);
    if (!waiting || !waiting->unsaved || IsStillVersion(waiting->container, container))
        return false;
    copy = *state.Take(filePathKey);
    return true;
}

std::optional<RetainedCopy> VirtualTempFileDispenser::ShownEdit(const std::wstring& filePathKey,
                                                                const std::optional<FileVersion>& container) {
    CacheState& state = State();
    const SectionGuard guard(state.section);
    const RetainedCopy* const copy = state.Find(filePathKey);
    return copy && copy->unsaved && IsStillVersion(copy->container, container) ? std::optional(*copy) : std::nullopt;
}

void VirtualTempFileDispenser::DescribeShownEdit(const std::wstring& folderPath, VirtFindData& record) {
    if (record.itemType != VIT_EncryptedFile)
        return;
    const std::wstring filePathKey = PathAppendStr(folderPath, record.fileName);
    if (!HoldsUnsavedEdit(filePathKey))  // the common case, without access to the disk
        return;
    const std::optional<RetainedCopy> edit = ShownEdit(filePathKey, ReadFileVersion(ZipPathStr(filePathKey)));
    if (!edit)
        return;
    record.fileSize = edit->temp.size;
    record.lastWriteTime = static_cast<std::uint64_t>(edit->temp.writeTime);
}

void VirtualTempFileDispenser::Remove(const std::wstring& filePathKey, bool deleteFileFromDisk,
                                      const std::optional<RetainedCopy>& deletedEdit) {
    QC_TRACE(L"VirtualTempFileDispenser::Remove", L"filePathKey[%s], deleteFileFromDisk[%s]", filePathKey,
             FormatBoolStr(deleteFileFromDisk));
    std::optional<RetainedCopy> copy;
    {
        CacheState& state = State();
        const SectionGuard guard(state.section);
        const RetainedCopy* const found = state.Find(filePathKey);
        const auto isDeleted = [&] {
            return deletedEdit && found->tempFilePath == deletedEdit->tempFilePath && found->temp == deletedEdit->temp;
        };
        if (found && (!found->unsaved || isDeleted()))
            copy = state.Take(filePathKey);
    }
    if (!copy) {
        QC_LOG(L"Did not find cached entry");
        return;
    }
    if (deleteFileFromDisk)
        DeleteTempFolder(copy->tempFilePath);
}

void VirtualTempFileDispenser::MoveFolder(const std::wstring& oldFolderPath, const std::wstring& newFolderPath) {
    std::vector<CacheEntry> moved;
    std::vector<RetainedCopy> leaving;
    {
        CacheState& state = State();
        const SectionGuard guard(state.section);
        for (const CacheEntry& entry : state.entries)
            if (IsPathBelow(entry.key, oldFolderPath))
                moved.push_back(entry);
        for (CacheEntry& entry : moved) {
            std::wstring newKey = newFolderPath + entry.key.substr(oldFolderPath.size());
            state.Take(entry.key);
            entry.key = std::move(newKey);
            if (entry.copy.container)
                entry.copy.container = AtOtherPath(*entry.copy.container, ZipPathStr(entry.key));
            if (std::optional<RetainedCopy> left = state.Put(entry.key, entry.copy))
                leaving.push_back(std::move(*left));
        }
    }
    for (const RetainedCopy& left : leaving)
        DeleteTempFolder(left.tempFilePath);
    for (const CacheEntry& entry : moved)
        if (entry.copy.unsaved)
            WriteTrackingFile(TrackingFilePathStr(entry.copy.tempFilePath),
                              {ZipPathStr(entry.key), entry.copy.container.value_or(FileVersion{}).stamp, entry.copy.tempFilePath,
                               ReadFileStamp(entry.copy.tempFilePath).value_or(FileStamp{}), PathStripPathStr(entry.key)});
}

// First the files whose names are known, then anything else.
void VirtualTempFileDispenser::DeleteTempFolder(const std::wstring& tempFilePath) {
    const Win32Error deleted =
        TryForAMoment([&] { return DeleteNow(tempFilePath) ? Win32Error::None : static_cast<Win32Error>(ERROR_SHARING_VIOLATION); });
    const bool isGone = deleted == Win32Error::None || DeleteFileOrFolder(PathRemoveFileSpecStr(tempFilePath)) == DeleteResult::Deleted;
    CacheState& state = State();
    const SectionGuard guard(state.section);
    state.takenOut.erase(tempFilePath);
    if (!isGone)
        state.leftFiles.push_back(tempFilePath);
}
