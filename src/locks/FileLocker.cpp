#include "locks/FileLocker.h"

#include <algorithm>
#include <atomic>
#include <string>
#include <unordered_map>
#include <vector>

#include <objbase.h>

#include "diagnostics/Trace.h"
#include "files/OpenFile.h"
#include "library/Paths.h"
#include "library/PlatformPath.h"
#include "library/Status.h"
#include "library/Text.h"
#include "library/Win32Error.h"
#include "quelcrypt/QuelcryptExceptions.h"

namespace {

// Texts of checks.
constexpr wchar_t kSharedLockText[] = L"lockInfoDataMapPair->m_value.lockInfoArray[0].lockScope == LockScope_Shared =>false%s, ";
constexpr wchar_t kTokenFitsText[] = L"guidStr.GetLength() < (sizeof(*RtlpNumberOf(lockInfo->lockToken))) =>false%s, ";
constexpr wchar_t kNoWriteAccessText[] =
    L"(((0x40000000L) | ((((0x00020000L)) | ( 0x0002 ) | ( 0x0100 ) | ( 0x0010 ) | ( 0x0004 ) | (0x00100000L)) - (((0x00020000L)) | ( "
    L"0x0002 ) | ( 0x0100 ) | ( 0x0010 ) | ( 0x0004 ) | (0x00100000L)))) & desiredAccess) == 0 =>false%s, ";
constexpr wchar_t kDuplicateHandleText[] =
    L"DuplicateHandle(GetCurrentProcess(), fileHandleInfo.hFile, GetCurrentProcess(), &hFile.m_h, desiredAccess, 0, 0) =>FALSE%s, ";

// Everything that a holder may do with the file, except changing its owner or permissions.
constexpr DWORD kLockAccess = FILE_READ_DATA | FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_READ_EA | FILE_WRITE_EA | FILE_READ_ATTRIBUTES |
                              FILE_WRITE_ATTRIBUTES | DELETE | READ_CONTROL | SYNCHRONIZE;
static_assert(kLockAccess == 0x13019F);

struct LockRecord {
    std::uint32_t timeout;
    LockScope scope;
    LockType type;
    std::wstring owner;
    std::wstring token;
};
using LockArray = std::vector<LockRecord>;

// Exactly one of the flags is set once the file is open.
struct FileHandleInfo {
    UniqueHandle hFile;
    bool created = false;
    bool existed = false;
};

struct LockEntry {
    LockArray lockInfoArray;
    FileHandleInfo fileHandleInfo;
    bool hasEncryptedInfo = false;
    VirtFindData encryptedInfo{};
    std::shared_ptr<LockedContent> content = std::make_shared<LockedContent>();
};

struct LockSearchHandle {
    std::uint32_t magic = kLockSearchMagic;
    LockArray lockInfoArray;
    std::size_t next = 1;
};

struct LockTable {
    CriticalSection section{LockOrder::Locks};
    std::unordered_map<std::wstring, LockEntry, NoCaseHash, NoCaseEqual> entries GUARDED_BY(section);
    std::atomic<std::size_t> count{0};  // of entries; read without the section to find out whether there are any

    LockEntry* Find(const wchar_t* filePath) REQUIRES(section) {
        const auto found = entries.find(std::wstring_view(filePath));
        return found == entries.end() ? nullptr : &found->second;
    }
    LockEntry* Insert(const wchar_t* filePath, LockEntry&& made) REQUIRES(section) {
        LockEntry* const entry = &entries.emplace(filePath, std::move(made)).first->second;
        count = entries.size();
        return entry;
    }
    void Erase(const wchar_t* filePath) REQUIRES(section) {
        entries.erase(entries.find(std::wstring_view(filePath)));
        count = entries.size();
    }
    std::shared_ptr<LockedContent> ContentOf(const wchar_t* filePath) {
        const SectionGuard guard(section);
        const LockEntry* const entry = Find(filePath);
        return entry ? entry->content : nullptr;
    }
};

LockTable& Table() {
    static LockTable s_table;
    return s_table;
}

VirtualVolumeStatus CreateAndLockFile(const wchar_t* filePath, FileHandleInfo& info) {
    QC_TRACE(L"CreateAndLockFile", L"filePath[%s]", filePath);
    const HANDLE hFile =
        ::CreateFileW(PlatformPath(filePath).c_str(), kLockAccess, FILE_SHARE_READ, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    const DWORD error = GetLastError();
    if (hFile == INVALID_HANDLE_VALUE) {
        QC_REPORT(L"hFile != ((HANDLE)(LONG_PTR)-1) =>false%s, ");
        if (error == ERROR_ACCESS_DENIED)
            return qcLog.Leave(VVS_Unauthorized);
        if (error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION)
            return qcLog.Leave(VVS_Locked);
        return qcLog.Leave(StatusFromWin32(static_cast<Win32Error>(error)));
    }
    info.hFile.Reset(hFile);
    info.existed = error == ERROR_ALREADY_EXISTS;
    info.created = !info.existed;
    return qcLog.Leave(VVS_Success);
}

std::ptrdiff_t FindToken(const LockArray& locks, std::wstring_view token) {
    for (std::size_t index = 0; index < locks.size(); ++index)
        if (locks[index].token == token)
            return static_cast<std::ptrdiff_t>(index);
    return -1;
}

// An array is empty when its token could not be made; to ask it for a lock is then an error of the caller.
const LockRecord& FirstRecord(const LockArray& locks) {
    if (locks.empty())
        throw CQuelcryptInvalidArgumentException();
    return locks.front();
}

void StoreRecord(const LockRecord& record, LockInfo* lockInfo) {
    lockInfo->timeout = record.timeout;
    lockInfo->scope = record.scope;
    lockInfo->type = record.type;
    CopyBounded(lockInfo->owner, record.owner);
    CopyBounded(lockInfo->token, record.token);
}

bool IsEmptyFile(HANDLE hFile) {
    LARGE_INTEGER size{};
    return GetFileSizeEx(hFile, &size) && size.QuadPart == 0;
}

LockSearchHandle* AsSearchHandle(void* hFind) {
    auto* const search = static_cast<LockSearchHandle*>(hFind);
    return search && search->magic == kLockSearchMagic ? search : nullptr;
}

// A lock that cannot be taken leaves no file behind.
void DropCreated(const FileHandleInfo& info) {
    if (info.created)
        DeleteUndeleteFile(info.hFile.Get(), true);
}

// Returns the token, empty when the record has no room for it. Without memory, an entry that has no other lock is removed with its
// file's handle.
std::wstring MakeRecord(LockTable& table, const wchar_t* filePath, LockEntry& entry, const LockInfo& lockInfo, const GUID& guid)
    REQUIRES(table.section) {
    try {
        std::wstring token = FormatGuidStr(guid);
        if (token.size() >= std::size(lockInfo.token))
            return {};
        entry.lockInfoArray.push_back({lockInfo.timeout, lockInfo.scope, lockInfo.type, std::wstring(BoundedText(lockInfo.owner)), token});
        return token;
    } catch (...) {
        if (entry.lockInfoArray.empty()) {
            DropCreated(entry.fileHandleInfo);
            table.Erase(filePath);
        }
        throw;
    }
}

bool HasToken(const wchar_t* lockToken) { return lockToken && *lockToken; }

}  // namespace

VirtualVolumeStatus FileLocker::Lock(const wchar_t* filePath, const VirtFindData* encryptedInfo, LockInfo* lockInfo) {
    QC_TRACE(L"FileLocker::Lock", L"filePath[%s], lockInfo[%s]", filePath, FormatLockInfoStr(lockInfo));
    QC_CHECK_OR_RETURN(filePath != nullptr && lockInfo != nullptr, VVS_InvalidParameter, L"filePath != 0 && lockInfo != 0 =>false%s, ");

    LockTable& table = Table();
    const SectionGuard guard(table.section);
    LockEntry* entry = table.Find(filePath);
    if (!entry) {
        LockEntry made;
        made.lockInfoArray.reserve(1);
        table.entries.reserve(table.entries.size() + 1);
        QC_CHECK_STATUS_OR_RETURN(CreateAndLockFile(filePath, made.fileHandleInfo),
                                  L"CreateAndLockFile(filePath, lockInfoData.fileHandleInfo) =>%s, ");
        made.encryptedInfo = encryptedInfo ? *encryptedInfo : VirtFindData{};
        made.hasEncryptedInfo = encryptedInfo != nullptr;
        try {
            entry = table.Insert(filePath, std::move(made));
        } catch (...) {
            DropCreated(made.fileHandleInfo);
            throw;
        }
    } else {
        QC_CHECK_OR_RETURN(lockInfo->scope == LockScope_Shared, VVS_LockScopeViolation,
                           L"lockInfo->lockScope == LockScope_Shared =>false%s, ");
        QC_CHECK_OR_RETURN(FirstRecord(entry->lockInfoArray).scope == LockScope_Shared, VVS_LockScopeViolation, kSharedLockText);
    }

    GUID guid{};
    const HRESULT created = CoCreateGuid(&guid);
    if (FAILED(created)) {
        qcLog.LogFailedCheck(
            L"CoCreateGuid(&guid) =>%s, ", [&] { return FormatHResultStr(created); }, [] { return L""; });
        return qcLog.Leave(VVS_GeneralError);
    }
    const std::wstring token = MakeRecord(table, filePath, *entry, *lockInfo, guid);
    QC_CHECK_OR_RETURN(!token.empty(), VVS_GeneralError, kTokenFitsText);
    CopyBounded(lockInfo->token, token);
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus FileLocker::Unlock(const wchar_t* filePath, const wchar_t* lockToken) {
    QC_TRACE(L"FileLocker::Unlock", L"filePath[%s], lockInfo[%s]", filePath, lockToken);
    QC_CHECK_OR_RETURN(filePath != nullptr && HasToken(lockToken), VVS_InvalidParameter, L"filePath != 0 && lockToken != 0 =>false%s, ");

    LockTable& table = Table();
    const std::shared_ptr<LockedContent> content = table.ContentOf(filePath);
    if (!content)
        return qcLog.Leave(VVS_FileNotLocked);
    const SectionGuard contentGuard(content->section);  // nobody may write between the check of the content and the mark
    const SectionGuard guard(table.section);
    LockEntry* const entry = table.Find(filePath);
    if (!entry)
        return qcLog.Leave(VVS_FileNotLocked);
    const std::ptrdiff_t foundIdx = FindToken(entry->lockInfoArray, lockToken);
    QC_CHECK_OR_RETURN(foundIdx >= 0, VVS_LockTokenNotFound, L"foundIdx >= 0 =>false%s, ");
    entry->lockInfoArray.erase(entry->lockInfoArray.begin() + foundIdx);
    if (!entry->lockInfoArray.empty())
        return qcLog.Leave(VVS_Success);

    const FileHandleInfo& info = entry->fileHandleInfo;
    if (info.created && !content->isWritten && IsEmptyFile(info.hFile.Get()) &&
        DeleteUndeleteFile(info.hFile.Get(), true) == Win32Error::None)
        content->isDeletedUnlessWritten = true;
    table.Erase(filePath);
    return qcLog.Leave(VVS_Success);
}

bool FileLocker::IsLocked(const std::wstring& filePath) {
    LockInfo lockInfo{};
    return FindLock(filePath.c_str(), nullptr, &lockInfo) == VVS_Success;
}

bool FileLocker::IsLockedByAnother(const std::wstring& filePath, const wchar_t* lockToken) {
    LockInfo lockInfo{};
    return FindLock(filePath.c_str(), lockToken, &lockInfo) == VVS_LockTokenNotFound;
}

VirtualVolumeStatus FileLocker::FindLock(const wchar_t* filePath, const wchar_t* lockToken, LockInfo* lockInfo) {
    QC_TRACE(L"FileLocker::FindLock", L"filePath[%s], lockToken[%s]", filePath, lockToken);
    QC_CHECK_OR_RETURN(filePath != nullptr && lockInfo != nullptr, VVS_InvalidParameter, L"filePath != 0 =>false%s, ");

    LockTable& table = Table();
    if (table.count == 0)  // the common case, asked twice at every open
        return qcLog.Leave(VVS_FileNotLocked);
    const SectionGuard guard(table.section);
    const LockEntry* const entry = table.Find(filePath);
    if (!entry)
        return qcLog.Leave(VVS_FileNotLocked);
    if (HasToken(lockToken)) {
        const std::ptrdiff_t foundIdx = FindToken(entry->lockInfoArray, lockToken);
        QC_CHECK_OR_RETURN(foundIdx >= 0, VVS_LockTokenNotFound, L"foundIdx >= 0 =>false%s, ");
        StoreRecord(entry->lockInfoArray[static_cast<std::size_t>(foundIdx)], lockInfo);
    } else {
        StoreRecord(FirstRecord(entry->lockInfoArray), lockInfo);
    }
    QC_LOG(L"lockInfo[%s]", FormatLockInfoStr(lockInfo));
    return qcLog.Leave(VVS_Success);
}

VirtualVolumeStatus FileLocker::FindFirstLock(const wchar_t* filePath, void** hFind, LockInfo* lockInfo) {
    QC_TRACE(L"FileLocker::FindFirstLock", L"filePath[%s]", filePath);
    QC_CHECK_OR_RETURN(filePath != nullptr && hFind != nullptr && lockInfo != nullptr, VVS_InvalidParameter,
                       L"filePath != 0 && hFind != 0 && lockInfo != 0 =>false%s, ");
    *hFind = nullptr;

    LockTable& table = Table();
    const SectionGuard guard(table.section);
    const LockEntry* const entry = table.Find(filePath);
    if (!entry) {
        QC_LOG(L"No locks are found for filePath[%s]", filePath);
        return qcLog.Leave(VVS_FileNotLocked);
    }
    QC_CHECK_OR_RETURN(!entry->lockInfoArray.empty(), VVS_GeneralError, L"lockInfoArray.GetCount() > 0 =>false%s, ");
    StoreRecord(entry->lockInfoArray.front(), lockInfo);
    auto search = std::make_unique<LockSearchHandle>();
    search->lockInfoArray = entry->lockInfoArray;
    *hFind = search.release();
    QC_LOG(L"hFind[0x%x], lockInfo[%s]", *hFind, FormatLockInfoStr(lockInfo));
    return qcLog.Leave(VVS_Success);
}

bool FileLocker::FindNextLock(void* hFind, LockInfo* lockInfo) {
    QC_TRACE(L"FileLocker::FindNextLock", L"hFind[0x%x]", hFind);
    LockSearchHandle* const search = AsSearchHandle(hFind);
    QC_CHECK_OR_RETURN(search != nullptr && lockInfo != nullptr, false, L"( 0 != hFind && *(DWORD*)hFind == 'MLFF') =>false%s, ");
    if (search->next >= search->lockInfoArray.size()) {
        QC_LOG(L"No more locks found");
        return qcLog.Leave(false);
    }
    StoreRecord(search->lockInfoArray[search->next++], lockInfo);
    QC_LOG(L"hFind[0x%x], lockInfo[%s]", hFind, FormatLockInfoStr(lockInfo));
    return qcLog.Leave(true);
}

bool FileLocker::FindClose(void* hFind) {
    QC_TRACE(L"FileLocker::FindClose", L"hFind[0x%x]", hFind);
    LockSearchHandle* const search = AsSearchHandle(hFind);
    QC_CHECK_OR_RETURN(search != nullptr, false, L"( 0 != hFind && *(DWORD*)hFind == 'MLFF') =>false%s, ");
    search->magic = 0;
    delete search;
    return qcLog.Leave(true);
}

bool FileLocker::HoldsLockBelow(const std::wstring& folderPath) {
    LockTable& table = Table();
    const SectionGuard guard(table.section);
    return std::any_of(table.entries.begin(), table.entries.end(), [&](const auto& entry) { return IsPathBelow(entry.first, folderPath); });
}

void FileLocker::GetEncryptedInfo(const wchar_t* filePath, bool* hasInfo, VirtFindData* findData) {
    QC_TRACE(L"FileLocker::GetEncryptedInfo", L"filePath[%s]", filePath);
    if (!filePath) {
        QC_REPORT(L"filePath != 0 =>false%s, ");
        return;
    }
    LockTable& table = Table();
    if (table.count == 0)  // the common case, asked once for every container of a listing
        return;
    const SectionGuard guard(table.section);
    const LockEntry* const entry = table.Find(filePath);
    if (!entry)
        return;
    if (hasInfo)
        *hasInfo = entry->hasEncryptedInfo;
    if (findData && entry->hasEncryptedInfo)
        *findData = entry->encryptedInfo;
}

void FileLocker::SetEncryptedInfo(const wchar_t* filePath, const VirtFindData& findData) {
    QC_TRACE(L"FileLocker::SetEncryptedInfo", L"filePath[%s]", filePath);
    if (!filePath) {
        QC_REPORT(L"filePath != 0 =>false%s, ");
        return;
    }
    LockTable& table = Table();
    const SectionGuard guard(table.section);
    if (LockEntry* const entry = table.Find(filePath)) {
        entry->hasEncryptedInfo = true;
        entry->encryptedInfo = findData;
    }
}

VirtualVolumeStatus FileLocker::GetLockedFile(const wchar_t* filePath, std::uint32_t desiredAccess, std::uint32_t extraAccess,
                                              const wchar_t* lockToken, LockedFile* lockedFile) {
    QC_TRACE(L"FileLocker::GetLockedFile", L"filePath[%s], lockToken[%s]", filePath, lockToken);
    QC_CHECK_OR_RETURN(filePath != nullptr, VVS_InvalidParameter, L"filePath != 0 =>false%s, ");
    *lockedFile = {};

    LockTable& table = Table();
    const SectionGuard guard(table.section);
    const LockEntry* const entry = table.Find(filePath);
    if (!entry)
        return qcLog.Leave(VVS_Success);
    if (!HasToken(lockToken)) {
        QC_CHECK_OR_RETURN((desiredAccess & GENERIC_WRITE) == 0, VVS_Locked, kNoWriteAccessText);
        return qcLog.Leave(VVS_Success);
    }
    QC_CHECK_OR_RETURN(FindToken(entry->lockInfoArray, lockToken) >= 0, VVS_Locked, L"foundIdx >= 0 =>false%s, ");

    UniqueHandle hFile;
    if (!DuplicateHandle(GetCurrentProcess(), entry->fileHandleInfo.hFile.Get(), GetCurrentProcess(), hFile.GetAddr(),
                         desiredAccess | extraAccess, FALSE, 0)) {
        const DWORD error = GetLastError();
        QC_REPORT(kDuplicateHandleText);
        const bool isHeld =
            error == ERROR_SUCCESS || error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION;
        return qcLog.Leave(isHeld ? VVS_Locked : StatusFromWin32(static_cast<Win32Error>(error)));
    }
    lockedFile->locked = true;
    lockedFile->hFile = std::move(hFile);
    lockedFile->content = entry->content;
    return qcLog.Leave(VVS_Success);
}
