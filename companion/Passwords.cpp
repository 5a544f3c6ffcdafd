#include "Passwords.h"

#include <string>

#include "Boundary.h"
#include "KeyRing.h"
#include "Logger.h"
#include "PasswordProof.h"
#include "Paths.h"
#include "Problem.h"
#include "SettingsStore.h"
#include "Text.h"
#include "WholeFile.h"
#include "common/CharacterSets.h"
#include "common/TrackingText.h"

namespace companion {
namespace {

// The folder of the container that a temp file's tracking file names. When characters of its path are lost, the folder whose path
// lost the same.
std::optional<KeyFolder> TrackedFolder(const Settings& settings, const std::wstring& tempPath) {
    try {
        constexpr std::size_t sizeLimit = 1 << 20;
        const auto record = ParseTrackingText(ReadWholeFile(tempPath + std::wstring(kTrackingExtension), sizeLimit));
        if (!record)
            return std::nullopt;
        const std::wstring container = FullPath(record->sourceName);
        return record->IsSourceKnown() ? settings.KeyFolderOf(container) : settings.KeyFolderOfNarrow(container);
    } catch (const CQuelcryptErrorException&) {
        return std::nullopt;
    }
}

// Nothing: there is no key.
std::optional<KeyFolder> FolderToWrite(const Settings& settings, const std::wstring& containerPath, const std::wstring& sourcePath) {
    if (settings.BoxOf(containerPath))
        return settings.KeyFolderOf(containerPath);
    for (const std::wstring& tempPath : {containerPath, sourcePath})
        if (auto folder = tempPath.empty() ? std::nullopt : TrackedFolder(settings, tempPath))
            return folder;
    if (auto folder = sourcePath.empty() ? std::nullopt : settings.KeyFolderOf(sourcePath))
        return folder;
    return settings.defaultKey.empty() ? std::nullopt : std::optional(KeyFolder{{}, settings.defaultKey, {}});
}

std::optional<Secret> PasswordIfAny(const Settings& settings, const std::string& key, Asking asking) {
    try {
        return PasswordOf(settings, key, asking);
    } catch (const CQuelcryptErrorException& error) {
        NoteProblem(error.GetDescription());
        return std::nullopt;
    }
}

std::nullopt_t NoPassword(const std::wstring& problem, const std::wstring& containerPath) {
    NoteProblem(problem);
    LogLine(LogLevel_Error, problem + L" (needed for " + containerPath + L")");
    return std::nullopt;
}

}  // namespace

void ForPasswordsToRead(const Settings& settings, const std::wstring& containerPath, const TryPassword& tryPassword,
                        const std::function<bool()>& isEnough) {
    const auto folder = settings.KeyFolderOf(containerPath);
    const std::string own = folder ? folder->key : std::string();
    const auto attempt = [&](const std::string& key, Asking asking) {
        if (const auto password = PasswordIfAny(settings, key, asking))
            tryPassword(*password, key);
    };
    const auto isTyped = [&](const PasswordSource& source) { return source.kind == PasswordSource::Kind::Prompt; };
    if (settings.passwords.contains(own))
        attempt(own, Asking::Allowed);
    for (const auto& [key, source] : settings.passwords)
        if (key != own)
            attempt(key, Asking::Forbidden);
    for (const auto& [key, source] : settings.passwords)
        if (key != own && isTyped(source) && !isEnough())
            attempt(key, Asking::Allowed);
}

std::optional<Secret> PasswordToWrite(const Settings& settings, const std::wstring& containerPath, const std::wstring& sourcePath) {
    // What opens the containers must not become one.
    if (EqualNoCase(containerPath, settings.ownPath + std::wstring(kContainerExtension)))
        return NoPassword(L"It is the configuration, which is never encrypted", containerPath);
    const auto folder = FolderToWrite(settings, containerPath, sourcePath);
    if (!folder)
        return NoPassword(L"No key is configured for its folder", containerPath);
    const auto password = PasswordIfAny(settings, folder->key, Asking::Allowed);
    if (!password) {
        const std::wstring problem = LastProblem();
        return NoPassword(problem.empty()
                              ? L"The password of the key \"" + Widened(folder->key, CharacterSet::Utf8) + L"\" would have to be typed"
                              : problem,
                          containerPath);
    }
    if (!folder->path.empty())
        ProvePassword(settings, *folder, *password, containerPath, BeforeWriting::Yes);
    return password;
}

void RequireStillToWrite(const Secret& password, const std::wstring& containerPath, const std::wstring& sourcePath) {
    if (PasswordToWrite(CurrentSettings()->settings, containerPath, sourcePath) != password)
        Fail(L"The password of its folder was changed meanwhile; save it again");
}

}  // namespace companion
