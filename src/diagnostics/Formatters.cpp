#include "diagnostics/Formatters.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <ctime>
#include <cwchar>
#include <span>

#include <objbase.h>
#include <shlwapi.h>

#include "common/Halves.h"
#include "library/Text.h"

namespace {

struct NamedBits {
    std::uint32_t bits;
    const wchar_t* name;
};
#define QC_NAMED_BITS(constant) \
    NamedBits { constant, L"" #constant }

constexpr std::array kAccessBits{
    QC_NAMED_BITS(FILE_GENERIC_EXECUTE),  QC_NAMED_BITS(FILE_GENERIC_READ),
    QC_NAMED_BITS(FILE_GENERIC_WRITE),    QC_NAMED_BITS(FILE_READ_DATA),
    QC_NAMED_BITS(FILE_LIST_DIRECTORY),   QC_NAMED_BITS(FILE_WRITE_DATA),
    QC_NAMED_BITS(FILE_ADD_FILE),         QC_NAMED_BITS(FILE_APPEND_DATA),
    QC_NAMED_BITS(FILE_ADD_SUBDIRECTORY), QC_NAMED_BITS(FILE_CREATE_PIPE_INSTANCE),
    QC_NAMED_BITS(FILE_READ_EA),          QC_NAMED_BITS(FILE_WRITE_EA),
    QC_NAMED_BITS(FILE_EXECUTE),          QC_NAMED_BITS(FILE_TRAVERSE),
    QC_NAMED_BITS(FILE_DELETE_CHILD),     QC_NAMED_BITS(FILE_READ_ATTRIBUTES),
    QC_NAMED_BITS(FILE_WRITE_ATTRIBUTES), QC_NAMED_BITS(GENERIC_READ),
    QC_NAMED_BITS(GENERIC_WRITE),         QC_NAMED_BITS(DELETE),
};
constexpr std::array kShareBits{QC_NAMED_BITS(FILE_SHARE_READ), QC_NAMED_BITS(FILE_SHARE_WRITE), QC_NAMED_BITS(FILE_SHARE_DELETE)};
constexpr std::array kAttributeBits{
    QC_NAMED_BITS(FILE_ATTRIBUTE_READONLY),
    QC_NAMED_BITS(FILE_ATTRIBUTE_HIDDEN),
    QC_NAMED_BITS(FILE_ATTRIBUTE_SYSTEM),
    QC_NAMED_BITS(FILE_ATTRIBUTE_DIRECTORY),
    QC_NAMED_BITS(FILE_ATTRIBUTE_ARCHIVE),
    QC_NAMED_BITS(FILE_ATTRIBUTE_DEVICE),
    QC_NAMED_BITS(FILE_ATTRIBUTE_NORMAL),
    QC_NAMED_BITS(FILE_ATTRIBUTE_TEMPORARY),
    QC_NAMED_BITS(FILE_ATTRIBUTE_SPARSE_FILE),
    QC_NAMED_BITS(FILE_ATTRIBUTE_REPARSE_POINT),
    QC_NAMED_BITS(FILE_ATTRIBUTE_COMPRESSED),
    QC_NAMED_BITS(FILE_ATTRIBUTE_OFFLINE),
    QC_NAMED_BITS(FILE_ATTRIBUTE_NOT_CONTENT_INDEXED),
    QC_NAMED_BITS(FILE_ATTRIBUTE_ENCRYPTED),
    QC_NAMED_BITS(FILE_ATTRIBUTE_VIRTUAL),
};
#undef QC_NAMED_BITS

struct NamedValue {
    std::uint32_t value;
    const wchar_t* name;
};
#define QC_NAMED_VALUE(constant) \
    NamedValue { static_cast<std::uint32_t>(constant), L"" #constant }

constexpr std::array kDispositions{NamedValue{1, L"CREATE_NEW"}, NamedValue{2, L"CREATE_ALWAYS"}, NamedValue{3, L"OPEN_EXISTING"},
                                   NamedValue{4, L"OPEN_ALWAYS"}, NamedValue{5, L"TRUNCATE_EXISTING"}};
constexpr std::array kItemTypes{QC_NAMED_VALUE(VIT_Root),          QC_NAMED_VALUE(VIT_MountFolder),
                                QC_NAMED_VALUE(VIT_Folder),        QC_NAMED_VALUE(VIT_PlainFile),
                                QC_NAMED_VALUE(VIT_EncryptedFile), QC_NAMED_VALUE(VIT_EncryptedFileInConflict)};
constexpr std::array kFolderTypes{QC_NAMED_VALUE(PFT_Root), QC_NAMED_VALUE(PFT_Dropbox), QC_NAMED_VALUE(PFT_General),
                                  QC_NAMED_VALUE(PFT_Invalid)};
constexpr std::array kStatuses{
    QC_NAMED_VALUE(VVS_Success),
    QC_NAMED_VALUE(VVS_PathNotFound),
    QC_NAMED_VALUE(VVS_PathAlreadyExists),
    QC_NAMED_VALUE(VVS_MountFolderNotFound),
    QC_NAMED_VALUE(VVS_QuelcryptException),
    QC_NAMED_VALUE(VVS_Locked),
    QC_NAMED_VALUE(VVS_LockScopeViolation),
    QC_NAMED_VALUE(VVS_LockTokenNotFound),
    QC_NAMED_VALUE(VVS_FileNotLocked),
    QC_NAMED_VALUE(VVS_Unauthorized),
    QC_NAMED_VALUE(VVS_BadRequest),
    QC_NAMED_VALUE(VVS_PreConditionFailed),
    QC_NAMED_VALUE(VVS_FileNotFound),
    QC_NAMED_VALUE(VVS_AccessDenied),
    QC_NAMED_VALUE(VVS_InvalidParameter),
    QC_NAMED_VALUE(VSS_FileExists),
    QC_NAMED_VALUE(VSS_LockViolation),
    QC_NAMED_VALUE(VSS_SharingViolation),
    QC_NAMED_VALUE(VSS_OutMemory),
    QC_NAMED_VALUE(VSS_NotImplemented),
    QC_NAMED_VALUE(VSS_DecryptError),
    QC_NAMED_VALUE(VSS_EncryptError),
    QC_NAMED_VALUE(VVS_GeneralError),
};
constexpr std::array kHResults{
    QC_NAMED_VALUE(S_OK),          QC_NAMED_VALUE(E_FAIL),        QC_NAMED_VALUE(E_INVALIDARG), QC_NAMED_VALUE(E_NOTIMPL),
    QC_NAMED_VALUE(E_NOINTERFACE), QC_NAMED_VALUE(E_OUTOFMEMORY), QC_NAMED_VALUE(E_UNEXPECTED), QC_NAMED_VALUE(E_ACCESSDENIED),
};
#undef QC_NAMED_VALUE

std::wstring FormatFlags(std::span<const NamedBits> table, std::uint32_t value) {
    std::wstring names;
    std::uint32_t remaining = value;
    for (const NamedBits& flag : table) {
        if ((remaining & flag.bits) == 0)
            continue;
        names.append(names.empty() ? L"" : L"|").append(flag.name);
        remaining &= ~flag.bits;
    }
    const std::wstring unknown = remaining ? FormatStr(L" [Unknown bits:0x%x]", remaining) : std::wstring();
    return FormatStr(L"%s(0x%x%s)", names, value, unknown);
}

const wchar_t* FindName(std::span<const NamedValue> table, std::uint32_t value, const wchar_t* otherwise) {
    for (const NamedValue& entry : table)
        if (entry.value == value)
            return entry.name;
    return otherwise;
}

// A C library may refuse a later year, and a file may have any time.
constexpr int kLatestYear = 9999;

}  // namespace

std::wstring FormatArgs(const wchar_t* format, ...) {
    std::va_list args;
    va_start(args, format);
    std::va_list again;
    va_copy(again, args);
    const int units = _vscwprintf(format, args);
    va_end(args);
    std::wstring text(units > 0 ? static_cast<std::size_t>(units) : 0, L'\0');
    if (units > 0)
        _vsnwprintf(text.data(), text.size(), format, again);
    va_end(again);
    return text;
}

std::wstring FormatAccessMaskStr(std::uint32_t access) { return FormatFlags(kAccessBits, access); }
std::wstring FormatShareModeStr(std::uint32_t shareMode) { return FormatFlags(kShareBits, shareMode); }
std::wstring FormatFileAttributesStr(std::uint32_t attributes) { return FormatFlags(kAttributeBits, attributes); }

std::wstring FormatCreationDispositionStr(std::uint32_t disposition) { return FindName(kDispositions, disposition, L"<Unknown>"); }
std::wstring FormatItemTypeStr(std::uint32_t type) { return FindName(kItemTypes, type, L""); }
std::wstring FormatFolderTypeStr(std::uint32_t type) { return FindName(kFolderTypes, type, L""); }
std::wstring FormatLockScopeStr(std::uint32_t scope) {
    return scope == LockScope_Shared ? L"Shared" : scope == LockScope_Exclusive ? L"Exclusive" : L"<Invalid>";
}
std::wstring FormatLockTypeStr(std::uint32_t type) { return type == LockType_Write ? L"Write" : L"<Invalid>"; }

std::wstring FormatStatusStr(std::uint32_t status) {
    const wchar_t* const name = FindName(kStatuses, status, nullptr);
    return name ? std::wstring(name) : FormatStr(L"<Unknown:%d>", status);
}

std::wstring FormatHResultStr(HRESULT result) {
    const wchar_t* const name = FindName(kHResults, static_cast<std::uint32_t>(result), nullptr);
    return name ? std::wstring(name) : FormatHexStr(static_cast<std::uint32_t>(result), true, true);
}

std::wstring FormatHexStr(std::uint64_t value, bool is64Bit, bool prefix) {
    if (is64Bit)
        return FormatStr(prefix ? L"0x%016I64x" : L"%016I64x", value);
    return FormatStr(prefix ? L"0x%x" : L"%x", static_cast<std::uint32_t>(value));
}

std::wstring FormatInt64Str(std::int64_t value) { return FormatStr(L"%I64d", value); }

std::wstring FormatBoolStr(bool value) { return value ? L"true" : L"false"; }

std::wstring FormatGuidStr(const GUID& guid) {
    wchar_t text[39] = L"";
    StringFromGUID2(guid, text, static_cast<int>(std::size(text)));
    return text;
}

std::wstring FormatTimeStr(const SYSTEMTIME& time, const wchar_t* layout) {
    std::tm parts{};
    if (time.wYear >= 1900) {
        parts.tm_year = std::min<int>(time.wYear, kLatestYear) - 1900;
        parts.tm_mon = time.wMonth - 1;
        parts.tm_mday = time.wDay;
        parts.tm_hour = time.wHour;
        parts.tm_min = time.wMinute;
        parts.tm_sec = time.wSecond;
    } else {
        parts.tm_mday = 1;  // the zero time: the first moment of the first year that the layout can show
    }
    wchar_t text[64] = L"";
    std::wcsftime(text, std::size(text), layout, &parts);
    return text;
}

std::wstring FormatSystemTimeStr(const SYSTEMTIME& time, bool year, bool milliseconds) {
    const std::wstring text = FormatTimeStr(time, year ? L"%m/%d/%y %H:%M:%S" : L"%m/%d %H:%M:%S");
    return milliseconds ? FormatStr(L"%s.%d", text, static_cast<int>(time.wMilliseconds)) : text;
}

std::wstring FormatFileTimeStr(std::uint64_t fileTime) {
    const FILETIME time = FileTimeOf(fileTime);
    SYSTEMTIME systemTime{};
    FileTimeToSystemTime(&time, &systemTime);
    return FormatSystemTimeStr(systemTime);
}

std::wstring FormatFindDataStr(const VirtFindData* findData) {
    if (!findData)
        return L"<NULL>";
    return FormatStr(
        L"Name:%s, Virtual:%s, Size:%s, Attr:%s, Create:%s, Write:%s, Access:%s", std::wstring(BoundedText(findData->fileName)),
        FormatItemTypeStr(findData->itemType), FormatInt64Str(findData->fileSize), FormatFileAttributesStr(findData->fileAttributes),
        FormatFileTimeStr(findData->creationTime), FormatFileTimeStr(findData->lastWriteTime), FormatFileTimeStr(findData->lastAccessTime));
}

std::wstring FormatRawFindDataStr(const WIN32_FIND_DATAW* findData) {
    if (!findData)
        return L"<NULL>";
    const auto size = static_cast<std::int64_t>(Joined(findData->nFileSizeHigh, findData->nFileSizeLow));
    return FormatStr(
        L"Name:%s, Size:%s, Attr:%s, Create:%s, Write:%s, Access:%s", std::wstring(BoundedText(findData->cFileName)), FormatInt64Str(size),
        FormatFileAttributesStr(findData->dwFileAttributes), FormatFileTimeStr(FileTimeNumber(findData->ftCreationTime)),
        FormatFileTimeStr(FileTimeNumber(findData->ftLastWriteTime)), FormatFileTimeStr(FileTimeNumber(findData->ftLastAccessTime)));
}

std::wstring FormatMountInfoStr(std::uint32_t type, const wchar_t* name, const wchar_t* path) {
    return FormatStr(L"Type:%s, Name:%s, Path:%s", FormatFolderTypeStr(type), name, path);
}

std::wstring FormatLockInfoStr(const LockInfo* lockInfo) {
    if (!lockInfo)
        return L"<NULL>";
    const std::wstring token(BoundedText(lockInfo->token));
    const std::wstring owner(BoundedText(lockInfo->owner));
    return FormatStr(L"Token:%s, Owner:%s, Scope:%s, Type:%s, Timeout:%d", token.empty() ? L"Invalid Token" : token.c_str(),
                     owner.empty() ? L"Invalid Owner" : owner.c_str(), FormatLockScopeStr(lockInfo->scope),
                     FormatLockTypeStr(lockInfo->type), lockInfo->timeout);
}
