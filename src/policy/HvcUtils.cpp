#include "policy/HvcUtils.h"

#include <algorithm>
#include <array>

#include <shellapi.h>
#include <shlwapi.h>

#include "diagnostics/Trace.h"
#include "files/OpenFile.h"
#include "library/Disk.h"
#include "library/Owners.h"
#include "library/Paths.h"
#include "library/Patience.h"
#include "library/PlatformPath.h"
#include "library/Text.h"
#include "quelcrypt/QuelcryptExceptions.h"

namespace {

// Texts of checks.
constexpr wchar_t kGetBoxConfigText[] =
    L"Quelcrypt_GetHalvaneBoxConfig( Utf8EncodeStr(folderPath, (DWORD)wcslen(folderPath)), cnfg.GetAddr(), 0, 0) != 0 =>false%s, ";

constexpr std::uint32_t kConfigValueBytes = 120;

// Returns what call returns; when the library throws, logs that and returns otherwise.
template <class Result, class Call>
Result AskLibrary(QuelcryptLog& qcLog, const wchar_t* checkText, Result otherwise, bool* isKnown, Call call) {
    try {
        return call();
    } catch (const CQuelcryptErrorException& exception) {
        QC_REPORT(checkText);
        QC_LOG_AT(LogLevel_Error, L"Exception[%s]", exception.GetDescription());
    } catch (const CQuelcryptException&) {
        QC_REPORT(checkText);
    }
    if (isKnown)
        *isKnown = false;
    return otherwise;
}

// One text of a box configuration as UTF-8; the length that the library returns is not trusted.
std::string ReadConfigText(IHalvaneBoxConfig* config, std::uint32_t (IHalvaneBoxConfig::*getter)(char*, std::uint32_t)) {
    char buffer[kConfigValueBytes] = {};
    const std::uint32_t length = CallCompanion([&] { return (config->*getter)(buffer, kConfigValueBytes); });
    return std::string(buffer, std::min(length, kConfigValueBytes));
}

// Empty, and not known, when it cannot be decoded.
std::wstring DecodeValue(const std::string& text, bool* isKnown = nullptr) {
    try {
        return Utf8DecodeStr(text);
    } catch (const CQuelcryptErrorException&) {
        if (isKnown)
            *isKnown = false;
        return {};
    }
}

// Calls read with the folder's configuration and returns the result, or a default value when there is none. When the path given has
// no policy, or may contain a short name, the configuration of the folder's final path is used if it has a policy.
template <class Result, class Read>
Result WithBoxConfig(QuelcryptLog& qcLog, const std::wstring& folderPath, bool* isKnown, Read read) {
    constexpr const wchar_t* kCheckText = kGetBoxConfigText;
    return AskLibrary(qcLog, kCheckText, Result(), isKnown, [&] {
        LibraryPtr<IHalvaneBoxConfig> config;
        const auto ask = [](const std::wstring& path, LibraryPtr<IHalvaneBoxConfig>& answer) {
            const std::string utf8 = Utf8EncodeStr(path.c_str(), static_cast<DWORD>(path.size()));
            IHalvaneBoxConfig** const place = answer.GetAddr();
            return CallCompanion([&] { return Quelcrypt_GetHalvaneBoxConfig(utf8.c_str(), place, nullptr, nullptr); }) != 0;
        };
        const auto hasPolicy = [](const LibraryPtr<IHalvaneBoxConfig>& answer) {
            return answer && !ReadConfigText(answer.Get(), &IHalvaneBoxConfig::GetPolicy).empty();
        };
        bool isAnswered = ask(folderPath, config);
        if (isAnswered && (folderPath.find(L'~') != folderPath.npos || !hasPolicy(config))) {
            const std::wstring finalPath = FinalPathStr(folderPath);
            LibraryPtr<IHalvaneBoxConfig> finals;
            if (!finalPath.empty() && !EqualNoCase(finalPath, folderPath))
                isAnswered = ask(finalPath, finals);
            if (hasPolicy(finals))
                config = std::move(finals);
        }
        if (!isAnswered) {
            QC_REPORT(kCheckText);
            if (isKnown)
                *isKnown = false;
            return Result();
        }
        return config ? read(config.Get()) : Result();
    });
}

// A policy that cannot be decoded is still a policy: its folder's files must not be stored unencrypted.
bool HasPolicy(QuelcryptLog& qcLog, const std::wstring& folderPath, IHalvaneBoxConfig* config) {
    const std::string policy = ReadConfigText(config, &IHalvaneBoxConfig::GetPolicy);
    if (!policy.empty())
        QC_LOG(L"Folder[%s] Has Policy[%s]", folderPath, DecodeValue(policy));
    return !policy.empty();
}

bool IsExcludedName(QuelcryptLog& qcLog, const std::wstring& fileSpec) {
    if (fileSpec.find(L'.') == fileSpec.npos)
        return true;
    return AskLibrary(qcLog, L"Quelcrypt_GetQuelcryptConfig(0, 0) != 0 =>false%s, ", false, nullptr, [&] {
        const LibraryPtr<IQuelcryptConfig> config(CallCompanion([] { return Quelcrypt_GetQuelcryptConfig(nullptr, nullptr); }));
        const std::string name = Utf8EncodeStr(fileSpec.c_str(), static_cast<DWORD>(fileSpec.size()));
        return config && CallCompanion([&] { return config->IsExcluded(name.c_str(), 0); });
    });
}

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

bool ShouldFileBeEncrypted(const std::wstring& filePath, bool* isKnown) {
    QC_TRACE(L"ShouldFileBeEncrypted", L"filePath[%s]", filePath);
    const std::wstring fileSpec = PathStripPathStr(filePath);
    if (IsReservedName(fileSpec)) {
        QC_LOG(L"fileSpec[%s] Name is Reserved", fileSpec);
        return qcLog.Leave(false);
    }
    if (IsExcludedName(qcLog, fileSpec)) {
        QC_LOG(L"fileSpec[%s] Name is Excluded from encryption", fileSpec);
        return qcLog.Leave(false);
    }
    const std::wstring folderPath = PathRemoveFileSpecStr(filePath);
    if (!DoesFolderHavePolicy(folderPath, isKnown)) {
        QC_LOG(L"folderPath[%s] Does not have policy", folderPath);
        return qcLog.Leave(false);
    }
    QC_LOG(L"filePath[%s] Should be Encryption", filePath);
    return qcLog.Leave(true);
}

bool DoesFolderHavePolicy(const std::wstring& folderPath, bool* isKnown) {
    QC_TRACE(L"DoesFolderHavePolicy", L"folderPath[%s]", folderPath);
    return qcLog.Leave(
        WithBoxConfig<bool>(qcLog, folderPath, isKnown, [&](IHalvaneBoxConfig* config) { return HasPolicy(qcLog, folderPath, config); }));
}

std::wstring GetOwnerId(const std::wstring& folderPath, bool* isKnown) {
    QC_TRACE(L"GetOwnerId", L"folderPath[%s]", folderPath);
    return qcLog.Leave(WithBoxConfig<std::wstring>(qcLog, folderPath, isKnown, [&](IHalvaneBoxConfig* config) {
        std::wstring ownerId = DecodeValue(ReadConfigText(config, &IHalvaneBoxConfig::GetOwnerId), isKnown);
        if (!ownerId.empty())
            QC_LOG(L"Folder[%s] Has OwnerId[%s]", folderPath, ownerId);
        return ownerId;
    }));
}

std::wstring GetFolderTargetKeyId(const std::wstring& folderPath, bool* isKnown) {
    QC_TRACE(L"GetFolderTargetKeyId", L"folderPath[%s]", folderPath);
    return qcLog.Leave(WithBoxConfig<std::wstring>(qcLog, folderPath, isKnown, [&](IHalvaneBoxConfig* config) {
        if (!HasPolicy(qcLog, folderPath, config))
            return std::wstring();
        std::wstring targetId = DecodeValue(ReadConfigText(config, &IHalvaneBoxConfig::GetTargetKeyId), isKnown);
        if (!targetId.empty())
            QC_LOG(L"Folder[%s] Has TragetId[%s]", folderPath, targetId);
        return targetId;
    }));
}

std::wstring ZipPathStr(std::wstring_view filePath) { return PathAddExtensionStr(filePath, kContainerExtension); }

std::wstring ContainerPathStr(const std::wstring& filePath) {
    if (EndsWithNoCase(filePath, kContainerExtension) && IsExistingFile(filePath))
        return filePath;
    return ZipPathStr(filePath);
}

DeleteResult DeleteFileOrFolder(const std::wstring& path) {
    QC_TRACE(L"DeleteFileOrFolder", L"path[%s]", path);
    constexpr const wchar_t* kCheckText = L"deleteResult == 0 =>false%s,  %s";
    QC_CHECK_OR_RETURN(!path.empty() && !PathIsRelativeW(path.c_str()), DeleteResult::Failed, kCheckText, L"path[%s]", path);
    const bool isLongForm = path.starts_with(L"\\\\?\\");
    // The shell would treat these as patterns, and delete everything that matches.
    QC_CHECK_OR_RETURN(path.find_first_of(L"*?<>\"|", isLongForm ? 4 : 0) == path.npos, DeleteResult::Failed, kCheckText, L"path[%s]",
                       path);
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
    QC_CHECK_OR_RETURN(attributes != INVALID_FILE_ATTRIBUTES, DeleteResult::Failed, kCheckText, L"path[%s]", path);
    const bool isFile = !(attributes & FILE_ATTRIBUTE_DIRECTORY);
    ClearReadOnly(path, attributes);
    const bool isTooLong = isLongForm || path.size() >= MAX_PATH;  // for the shell, which deletes trees
    const auto deleteFolder = [&path] { return RemoveDirectoryW(PlatformPath(path).c_str()) && !PathExists(path); };  // or a link to one
    const bool isGone = isFile ? TryForAMoment(deleteFile) == Win32Error::None || !PathExists(path)
                               : deleteFolder() || (!isTooLong && DeleteThroughShell(path));
    QC_CHECK_OR_RETURN(isGone, DeleteResult::Failed, kCheckText, L"path[%s]", path);
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
