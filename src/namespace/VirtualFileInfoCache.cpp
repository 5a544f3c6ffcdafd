#include "namespace/VirtualFileInfoCache.h"

#include <list>
#include <unordered_map>

#include "common/Halves.h"
#include "diagnostics/Trace.h"
#include "library/Locks.h"
#include "library/Text.h"

namespace {

constexpr std::size_t kMaximumEntries = 1014;

// A record is valid while this is unchanged.
struct EntryStamp {
    DWORD attributes;
    std::uint64_t writeTime;
    DWORD sizeHigh;
    DWORD sizeLow;
    std::uint64_t folderWriteTime;
    bool operator==(const EntryStamp&) const = default;
};

EntryStamp StampOf(const WIN32_FIND_DATAW& raw, std::uint64_t folderWriteTime) {
    return {raw.dwFileAttributes, FileTimeNumber(raw.ftLastWriteTime), raw.nFileSizeHigh, raw.nFileSizeLow, folderWriteTime};
}

using AgeList = std::list<std::wstring>;  // keys, oldest first

struct CacheEntry {
    EntryStamp stamp;
    VirtFindData virtFindData;
    AgeList::iterator age;
};

struct CacheState {
    CriticalSection section{LockOrder::FindData};
    AgeList ages GUARDED_BY(section);
    std::unordered_map<std::wstring, CacheEntry, NoCaseHash, NoCaseEqual> entries GUARDED_BY(section);
};

CacheState& State() {
    static CacheState s_state;
    return s_state;
}

}  // namespace

bool VirtualFileInfoCache::Find(const std::wstring& containerFilePath, const WIN32_FIND_DATAW& rawFindData, std::uint64_t folderWriteTime,
                                VirtFindData* virtFindData) {
    QC_TRACE(L"VirtualFileInfoCache::Find", L"containerFilePath[%s], findData[%s]", containerFilePath, FormatRawFindDataStr(&rawFindData));
    CacheState& state = State();
    const SectionGuard guard(state.section);
    const auto found = state.entries.find(containerFilePath);
    if (found == state.entries.end())
        return qcLog.Leave(false);
    const bool matches = found->second.stamp == StampOf(rawFindData, folderWriteTime);
    QC_LOG(L"Container Find Data Match[%s]", FormatBoolStr(matches));
    if (matches)
        *virtFindData = found->second.virtFindData;
    else
        Remove(containerFilePath);
    return qcLog.Leave(matches);
}

void VirtualFileInfoCache::Add(const std::wstring& containerFilePath, const WIN32_FIND_DATAW& rawFindData, const VirtFindData& virtFindData,
                               std::uint64_t folderWriteTime) {
    QC_TRACE(L"VirtualFileInfoCache::Add", L"containerFilePath[%s]", containerFilePath);
    CacheState& state = State();
    const SectionGuard guard(state.section);
    Remove(containerFilePath);
    if (state.entries.size() >= kMaximumEntries) {
        QC_LOG(L"Maximum entry count is reached. Oldest entry will be removed");
        Remove(std::wstring(state.ages.front()));
    }
    const AgeList::iterator age = state.ages.insert(state.ages.end(), containerFilePath);
    try {
        state.entries.emplace(containerFilePath, CacheEntry{StampOf(rawFindData, folderWriteTime), virtFindData, age});
    } catch (...) {
        state.ages.erase(age);
        throw;
    }
}

void VirtualFileInfoCache::Remove(const std::wstring& containerFilePath) {
    QC_TRACE(L"VirtualFileInfoCache::Remove", L"containerFilePath[%s]", containerFilePath);
    CacheState& state = State();
    const SectionGuard guard(state.section);
    const auto found = state.entries.find(containerFilePath);
    if (found == state.entries.end()) {
        QC_LOG(L"Did not find cached entry");
        return;
    }
    state.ages.erase(found->second.age);
    state.entries.erase(found);
}
