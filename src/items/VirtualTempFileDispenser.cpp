#include "items/VirtualTempFileDispenser.h"

#include <list>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

#include <shlobj.h>

#include "diagnostics/Trace.h"
#include "library/Owners.h"
#include "library/Text.h"
#include "policy/HvcUtils.h"

namespace {

constexpr std::size_t kMaximumCopies = 522;
constexpr int kFolderAttempts = 16;

struct CacheEntry {
    std::wstring key;
    RetainedCopy copy;
};
using CacheList = std::list<CacheEntry>;  // oldest first

struct CacheState {
    CriticalSection section;
    CacheList entries;
    std::unordered_map<std::wstring, CacheList::iterator, NoCaseHash, NoCaseEqual> byKey;
    std::size_t savedCount = 0;

    std::optional<RetainedCopy> Take(const std::wstring& key) {
        const auto found = byKey.find(key);
        if (found == byKey.end())
            return std::nullopt;
        RetainedCopy copy = std::move(found->second->copy);
        savedCount -= copy.unsaved ? 0 : 1;
        entries.erase(found->second);
        byKey.erase(found);
        return copy;
    }
    void Put(const std::wstring& key, const RetainedCopy& copy) {
        const auto place = byKey.emplace(key, entries.end()).first;
        try {
            place->second = entries.insert(entries.end(), {key, copy});
        } catch (...) {
            byKey.erase(place);
            throw;
        }
        savedCount += copy.unsaved ? 0 : 1;
    }
    std::optional<RetainedCopy> TakeOldestSaved() {
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
        return true;
    const int errCode = SHCreateDirectoryExW(nullptr, folder.c_str(), nullptr);
    QC_CHECK(errCode == 0 || IsExistingFolder(folder), false, L"errCode == 0L =>false%s, ");
    return qcLog.Leave(true);
}

bool BaseFolder(std::wstring& folder) {
    wchar_t tempPath[MAX_PATH + 1];
    const DWORD length = GetTempPathW(static_cast<DWORD>(std::size(tempPath)), tempPath);
    if (length == 0 || length >= std::size(tempPath))
        return false;
    folder = PathAppendStr(tempPath, L"HalvaneCloud");
    return MakeFolder(folder);
}

// A folder that nobody else has: the platform makes a unique file, which gives way to a folder of its name. When another
// process was quicker in between, creating the folder fails and another name is tried.
bool MakeUniqueFolder(std::wstring& folder) {
    QC_TRACE(L"MakeUniqueFolder");
    std::wstring base;
    if (!BaseFolder(base))
        return qcLog.Leave(false);
    int errCode = ERROR_PATH_NOT_FOUND;
    for (int attempt = 0; attempt < kFolderAttempts; ++attempt) {
        wchar_t name[MAX_PATH + 1];
        if (GetTempFileNameW(base.c_str(), L"hvc", 0, name) == 0)
            break;
        DeleteFileW(name);
        errCode = SHCreateDirectoryExW(nullptr, name, nullptr);
        if (errCode == 0) {
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

bool MayReuse(QuelcryptLog& qcLog, const RetainedCopy& copy, const VirtFindData* findData, const FileStamp* container) {
    QC_LOG(L"Cached temp file is Found[%s], Temp File Path[%s], Its cached Attribs[%s]", L"true", copy.tempFilePath,
           FormatFindDataStr(&copy.findData));
    const bool matched = copy.unsaved || (findData && container && copy.container == *container && Agrees(copy.findData, *findData));
    QC_LOG(L"Attributes Matched[%s]", FormatBoolStr(matched));
    return matched && IsExistingFile(copy.tempFilePath);
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
                                        const FileStamp* container, RetainedCopy& copy) {
    QC_TRACE(L"VirtualTempFileDispenser::Dispense", L"filePathKey[%s], findData[%s]", filePathKey, FormatFindDataStr(findData));
    if (contentWanted) {
        std::optional<RetainedCopy> retained;
        {
            CacheState& state = State();
            const std::lock_guard guard(state.section);
            retained = state.Take(filePathKey);
        }
        if (retained && MayReuse(qcLog, *retained, findData, container)) {
            copy = std::move(*retained);
            return qcLog.Leave(true);
        }
        if (retained && !retained->unsaved)
            DeleteTempFolder(retained->tempFilePath);
    }
    copy = {};
    QC_CHECK(CreateTempFileName(PathStripPathStr(filePathKey), copy.tempFilePath), false,
             L"CreateTempFileName(PathStripPathStr(filePathKey), tempFilePath) =>false%s, ");
    QC_LOG(L"New tepmFilepath[%s] is dispensed", copy.tempFilePath);
    return qcLog.Leave(false);
}

void VirtualTempFileDispenser::Retain(const std::wstring& filePathKey, const RetainedCopy& copy) {
    QC_TRACE(L"VirtualTempFileDispenser::Retain", L"filePathKey[%s], tempFilePath[%s], findData[%s]", filePathKey, copy.tempFilePath,
             FormatFindDataStr(&copy.findData));
    std::vector<RetainedCopy> leaving;
    {
        CacheState& state = State();
        const std::lock_guard guard(state.section);
        const auto earlier = state.byKey.find(filePathKey);
        if (earlier != state.byKey.end() && earlier->second->copy.unsaved && !copy.unsaved) {
            leaving.push_back(copy);  // the edit that waits here counts more
        } else {
            if (auto replaced = state.Take(filePathKey); replaced && !replaced->unsaved)
                leaving.push_back(std::move(*replaced));
            state.Put(filePathKey, copy);
        }
        if (state.savedCount > kMaximumCopies) {
            QC_LOG(L"Maximum entry count is reached. Oldest entry will be removed");
            if (auto oldest = state.TakeOldestSaved())
                leaving.push_back(std::move(*oldest));
        }
    }
    for (const RetainedCopy& left : leaving)
        DeleteTempFolder(left.tempFilePath);
}

bool VirtualTempFileDispenser::HoldsUnsavedEdit(const std::wstring& filePathKey) {
    CacheState& state = State();
    const std::lock_guard guard(state.section);
    const auto found = state.byKey.find(filePathKey);
    return found != state.byKey.end() && found->second->copy.unsaved;
}

void VirtualTempFileDispenser::Remove(const std::wstring& filePathKey, bool deleteFileFromDisk, bool discardUnsaved) {
    QC_TRACE(L"VirtualTempFileDispenser::Remove", L"filePathKey[%s], deleteFileFromDisk[%s]", filePathKey,
             FormatBoolStr(deleteFileFromDisk));
    std::optional<RetainedCopy> copy;
    {
        CacheState& state = State();
        const std::lock_guard guard(state.section);
        const auto found = state.byKey.find(filePathKey);
        if (found != state.byKey.end() && (discardUnsaved || !found->second->copy.unsaved))
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
    CacheState& state = State();
    const std::lock_guard guard(state.section);
    std::vector<std::wstring> keys;
    for (const CacheEntry& entry : state.entries)
        if (IsPathBelow(entry.key, oldFolderPath))
            keys.push_back(entry.key);
    for (const std::wstring& key : keys)
        if (const std::optional<RetainedCopy> copy = state.Take(key))
            state.Put(newFolderPath + key.substr(oldFolderPath.size()), *copy);
}

void VirtualTempFileDispenser::DeleteTempFolder(const std::wstring& tempFilePath) {
    DeleteFileOrFolder(PathRemoveFileSpecStr(tempFilePath));
}
