#include "policy/HvcUtils.h"

#include <algorithm>
#include <array>

#include <shlwapi.h>

#include "diagnostics/Trace.h"
#include "library/Disk.h"
#include "library/Owners.h"
#include "library/Paths.h"
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
    return AskLibrary(qcLog, kGetBoxConfigText, Result(), isKnown, [&] {
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
            QC_REPORT(kGetBoxConfigText);
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
