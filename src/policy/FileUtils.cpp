#include "policy/FileUtils.h"

#include <algorithm>
#include <vector>

#include <objbase.h>

#include "diagnostics/Trace.h"
#include "library/Owners.h"
#include "library/Patience.h"
#include "library/PlatformPath.h"
#include "library/Text.h"

namespace {

using NtStatus = LONG;
struct IoStatusBlock {
    union {
        NtStatus status;
        void* pointer;
    };
    ULONG_PTR information;
};
using ZwSetInformationFileFunc = NtStatus(NTAPI*)(HANDLE, IoStatusBlock*, void*, ULONG, int);
using RtlNtStatusToDosErrorFunc = ULONG(NTAPI*)(NtStatus);

template <class Function>
Function NtdllFunction(const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name)));
}

bool IsSeparator(wchar_t unit) { return unit == L'\\' || unit == L'/'; }

std::size_t LastSeparator(std::wstring_view path) { return path.find_last_of(L"\\/"); }

DWORD AttributesOf(const std::wstring& path) { return GetFileAttributesW(PlatformPath(path).c_str()); }

}  // namespace

VirtualVolumeStatus StatusFromWin32(Win32Error error) {
    switch (static_cast<DWORD>(error)) {
        case ERROR_FILE_NOT_FOUND: return VVS_FileNotFound;
        case ERROR_PATH_NOT_FOUND:
        case ERROR_INVALID_DRIVE:
        case ERROR_BAD_NETPATH:
        case ERROR_BAD_NET_NAME:
        case ERROR_BAD_PATHNAME: return VVS_PathNotFound;
        case ERROR_ACCESS_DENIED:
        case ERROR_WRITE_PROTECT: return VVS_AccessDenied;
        case ERROR_NOT_ENOUGH_MEMORY:
        case ERROR_OUTOFMEMORY: return VSS_OutMemory;
        case ERROR_SHARING_VIOLATION: return VSS_SharingViolation;
        case ERROR_LOCK_VIOLATION: return VSS_LockViolation;
        case ERROR_NOT_SUPPORTED:
        case ERROR_CALL_NOT_IMPLEMENTED: return VSS_NotImplemented;
        case ERROR_FILE_EXISTS: return VSS_FileExists;
        case ERROR_INVALID_PARAMETER:
        case ERROR_INVALID_NAME: return VVS_InvalidParameter;
        case ERROR_ALREADY_EXISTS: return VVS_PathAlreadyExists;
        default: return VVS_GeneralError;
    }
}

Win32Error ZwSetInformationFile(HANDLE hFile, const void* info, ULONG length, int fileInformationClass) {
    QC_TRACE(L"ZwSetInformationFile", L"hFile[0x%p], fileInformationClass[%d]", hFile, fileInformationClass);
    static const auto s_func = NtdllFunction<ZwSetInformationFileFunc>("ZwSetInformationFile");
    static const auto s_toDosError = NtdllFunction<RtlNtStatusToDosErrorFunc>("RtlNtStatusToDosError");
    QC_CHECK_OR_RETURN(s_func != nullptr && s_toDosError != nullptr, static_cast<Win32Error>(ERROR_PROC_NOT_FOUND),
                       L"s_func != 0 =>false%s,  %s", L"fileInformationClass[%s]. Error[%s]", FormatInt64Str(fileInformationClass),
                       SystemErrorStr(GetLastError()));

    IoStatusBlock ioStatus{};
    const NtStatus status = s_func(hFile, &ioStatus, const_cast<void*>(info), length, fileInformationClass);
    if (status >= 0 && ioStatus.status >= 0)
        return qcLog.Leave(Win32Error::None);
    const ULONG error = s_toDosError(status < 0 ? status : ioStatus.status);
    QC_REPORT(L"(((NTSTATUS)(status)) >= 0) && (((NTSTATUS)(IoStatusBlock.Status)) >= 0) =>false%s,  %s",
              L"fileInformationClass[%d]. Status[0x%x], IoStatusBlock.Status[0x%x]. %s", fileInformationClass, status, ioStatus.status,
              SystemErrorStr(error));
    return qcLog.Leave(static_cast<Win32Error>(error));
}

Win32Error DeleteUndeleteFile(HANDLE hFile, bool deleteFile) {
    QC_TRACE(L"DeleteUndeleteFile", L"hFile[0x%p], deleteFile[%s]", hFile, FormatBoolStr(deleteFile));
    const BOOLEAN fileDispositionInfo = deleteFile;
    const Win32Error error = ZwSetInformationFile(hFile, &fileDispositionInfo, sizeof(fileDispositionInfo), kFileDispositionInformation);
    if (error != Win32Error::None)
        qcLog.LogFailedCheck(
            L"ZwSetInformationFile(hFile, &fileDispositionInfo, sizeof(fileDispositionInfo), ((FILE_INFORMATION_CLASS)13)) =>%s, ",
            [&] { return SystemErrorStr(static_cast<DWORD>(error)); }, [] { return L""; });
    return qcLog.Leave(error);
}

FilePointer::FilePointer(HANDLE hFile, std::int64_t newPosition) : m_hFile(hFile) {
    QC_TRACE_THIS(L"FilePointer::FilePointer", L"hFile[0x%p], newPosition[%I64d]", hFile, newPosition);
    LARGE_INTEGER origPos{};
    if (!SetFilePointerEx(hFile, LARGE_INTEGER{}, &origPos, FILE_CURRENT)) {
        QC_LOG_AT(LogLevel_Error, L"Cannot get current position. Eror[%d]", GetLastError());
        return;
    }
    m_origPos = origPos.QuadPart;
    LARGE_INTEGER target{};
    target.QuadPart = newPosition;
    if (!SetFilePointerEx(hFile, target, nullptr, FILE_BEGIN)) {
        QC_LOG_AT(LogLevel_Error, L"Cannot move to new position. Error[%d]", GetLastError());
        return;
    }
    m_pointerWasSet = true;
}

void FilePointer::Restore() {
    if (!m_pointerWasSet)
        return;
    m_pointerWasSet = false;
    const LastErrorKeeper keeper;
    QC_TRACE_THIS(L"FilePointer::Restore", L"m_origPos[%I64d]", m_origPos);
    LARGE_INTEGER origPos{};
    origPos.QuadPart = m_origPos;
    if (!SetFilePointerEx(m_hFile, origPos, nullptr, FILE_BEGIN))
        QC_REPORT(L"::SetFilePointerEx(m_hFile, m_origPos, 0, 0) != 0 =>false%s, ");
}

std::wstring SidePathStr(const std::wstring& filePath) {
    GUID guid{};
    if (FAILED(CoCreateGuid(&guid)))
        guid.Data1 = GetTickCount();
    return PathAppendStr(PathRemoveFileSpecStr(filePath), L"~" + FormatGuidStr(guid) + L".tmp");
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
        const HANDLE handle =
            ::CreateFileW(dest.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        const UniqueHandle hFile(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
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

std::wstring FinalPathStr(const std::wstring& path) {
    const HANDLE handle = ::CreateFileW(PlatformPath(path).c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                                        FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    const UniqueHandle hItem(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
    if (!hItem) {
        const std::wstring parent = PathRemoveFileSpecStr(path);
        const std::wstring finalParent = parent.size() < path.size() && !parent.empty() ? FinalPathStr(parent) : std::wstring();
        return finalParent.empty() ? finalParent : PathAppendStr(finalParent, PathStripPathStr(path));
    }
    std::wstring finalPath(GetFinalPathNameByHandleW(hItem.Get(), nullptr, 0, VOLUME_NAME_DOS), L'\0');
    finalPath.resize(GetFinalPathNameByHandleW(hItem.Get(), finalPath.data(), static_cast<DWORD>(finalPath.size()), VOLUME_NAME_DOS));
    if (finalPath.starts_with(L"\\\\?\\UNC\\"))
        return L"\\" + finalPath.substr(7);
    const bool hasDrive = finalPath.starts_with(L"\\\\?\\") && finalPath.size() > 6 && finalPath[5] == L':';
    return hasDrive ? TidyPathStr(finalPath.substr(4)) : std::wstring();
}

std::wstring WithLongNameStr(const std::wstring& path) {
    const std::wstring name = PathStripPathStr(path);
    WIN32_FIND_DATAW entry{};
    if (name.find(L'~') == name.npos)
        return path;
    const UniqueFindHandle find(::FindFirstFileW(PlatformPath(path).c_str(), &entry));
    return find && !EqualNoCase(entry.cFileName, name) ? PathAppendStr(PathRemoveFileSpecStr(path), entry.cFileName) : path;
}

bool AreSameFile(const std::wstring& left, const std::wstring& right) {
    const std::optional<FileVersion> rightVersion = ReadFileVersion(right);
    const std::optional<FileVersion> leftVersion = rightVersion ? ReadFileVersion(left) : std::nullopt;
    const std::optional<bool> isOne = leftVersion ? AreOneFile(*leftVersion, *rightVersion) : std::optional(false);
    if (isOne || EqualNoCase(left, right))
        return isOne.value_or(true);
    const std::wstring finalLeft = FinalPathStr(left);
    return !finalLeft.empty() && EqualNoCase(finalLeft, FinalPathStr(right));
}

bool ForEachEntry(const std::wstring& folder, const std::function<bool(const std::wstring&, const WIN32_FIND_DATAW&)>& visit) {
    WIN32_FIND_DATAW entry{};
    const UniqueFindHandle find(::FindFirstFileW(PlatformPath(PathAppendStr(folder, L"*")).c_str(), &entry));
    if (!find)
        return false;
    do {
        const std::wstring_view name = entry.cFileName;
        if (name != L"." && name != L".." && !visit(PathAppendStr(folder, name), entry))
            return false;
    } while (::FindNextFileW(find.Get(), &entry));
    return GetLastError() == ERROR_NO_MORE_FILES;
}

bool PathExists(const std::wstring& path) { return AttributesOf(path) != INVALID_FILE_ATTRIBUTES; }

bool IsExistingFile(const std::wstring& path) {
    const DWORD attributes = AttributesOf(path);
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool IsExistingFolder(const std::wstring& path) {
    const DWORD attributes = AttributesOf(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool IsLink(const std::wstring& path) {
    const DWORD attributes = AttributesOf(path);
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_REPARSE_POINT))
        return false;
    WIN32_FIND_DATAW entry{};
    const UniqueFindHandle find(::FindFirstFileW(PlatformPath(path).c_str(), &entry));
    const bool isTagKnown = find && (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) && entry.dwReserved0 != 0;
    return !isTagKnown || IsReparseTagNameSurrogate(entry.dwReserved0);
}

std::wstring PathStripPathStr(std::wstring_view path) {
    const std::size_t separator = LastSeparator(path);
    return std::wstring(separator == path.npos ? path : path.substr(separator + 1));
}

std::wstring PathRemoveFileSpecStr(std::wstring_view path) {
    const std::size_t separator = LastSeparator(path);
    if (separator == path.npos)
        return {};
    const bool isRoot = separator == 0 || (separator == 2 && path[1] == L':');
    return std::wstring(path.substr(0, isRoot ? separator + 1 : separator));
}

std::wstring PathAddExtensionStr(std::wstring_view path, std::wstring_view extension) {
    std::wstring extended;
    extended.reserve(path.size() + extension.size());
    return extended.append(path).append(extension);
}

std::wstring PathRemoveExtensionStr(std::wstring_view path) {
    const std::size_t dot = path.rfind(L'.');
    const std::size_t separator = LastSeparator(path);
    if (dot == path.npos || (separator != path.npos && dot < separator))
        return std::wstring(path);
    return std::wstring(path.substr(0, dot));
}

std::wstring PathAppendStr(std::wstring_view folder, std::wstring_view name) {
    std::wstring path;
    path.reserve(folder.size() + 1 + name.size());
    path.append(folder);
    if (!path.empty() && !IsSeparator(path.back()))
        path += L'\\';
    return path.append(name);
}

std::wstring TidyPathStr(std::wstring_view path) {
    const bool isLongForm = path.starts_with(L"\\\\?\\");
    std::wstring tidy;
    tidy.reserve(path.size());
    for (const wchar_t unit : path) {
        const bool isDoubled = IsSeparator(unit) && tidy.size() > 1 && tidy.back() == L'\\';
        if (isLongForm)
            tidy += unit;
        else if (!isDoubled)
            tidy += IsSeparator(unit) ? L'\\' : unit;
    }
    const auto isRoot = [&] { return tidy.ends_with(L":\\") || (isLongForm && tidy.ends_with(L"}\\")); };  // "C:\", "\\?\Volume{...}\"
    while (tidy.size() > 1 && tidy.back() == L'\\' && !isRoot())
        tidy.pop_back();
    return tidy;
}

bool IsPathBelow(std::wstring_view path, std::wstring_view folder) {
    return path.size() > folder.size() && IsSeparator(path[folder.size()]) && EqualNoCase(path.substr(0, folder.size()), folder);
}

std::optional<std::wstring> PathJoinBelow(std::wstring_view folder, std::wstring_view relativePath) {
    const std::size_t relativeUnits = relativePath.size();
    std::vector<std::wstring_view> components;
    components.reserve(8);
    while (!relativePath.empty()) {
        const std::size_t end = std::min(relativePath.find_first_of(L"\\/"), relativePath.size());
        std::wstring_view component = relativePath.substr(0, end);
        relativePath.remove_prefix(std::min(end + 1, relativePath.size()));
        if (component == L"..") {
            if (components.empty())
                return std::nullopt;
            components.pop_back();
            continue;
        }
        component = component.substr(0, component.find_last_not_of(L". ") + 1);
        if (IsDeviceName(component))
            return std::nullopt;
        if (!component.empty())
            components.push_back(component);
    }
    if (components.empty())
        return std::wstring(folder);  // unchanged: the separator is a part of "C:\"
    std::wstring path;
    path.reserve(folder.size() + 1 + relativeUnits);
    path.append(folder.substr(0, folder.find_last_not_of(L"\\/") + 1));
    for (const std::wstring_view component : components)
        path.append(L"\\").append(component);
    return path;
}

bool NamesDevice(std::wstring_view path) {
    while (!path.empty()) {
        const std::size_t end = std::min(path.find_first_of(L"\\/"), path.size());
        if (IsDeviceName(path.substr(0, end)))
            return true;
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return false;
}
