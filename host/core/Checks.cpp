#include "core/Checks.h"

#include <algorithm>

#include "companion/SettingsFile.h"
#include "core/Companion.h"
#include "core/HostError.h"
#include "core/Text.h"

std::vector<VirtMountInfo> RequireMountFolders(const Volume& volume) {
    std::vector<VirtMountInfo> mounts = volume.MountFolders();
    const std::wstring config = companion::SettingsPath();
    if (!mounts.empty())
        return mounts;
    const bool isThere = GetFileAttributesW(config.c_str()) != INVALID_FILE_ATTRIBUTES;
    throw HostError("no mount folders: the configuration " + ToShown(config) +
                    (isThere ? " has none, or cannot be used" : " does not exist") + "; 'quelvol init FOLDER' protects a folder");
}

void WarnOfReadableConfiguration() {
    using companion::PasswordSource;
    const companion::SettingsFile file(companion::SettingsPath());
    const bool hasPlain = std::any_of(file.Get().passwords.begin(), file.Get().passwords.end(),
                                      [](const auto& password) { return password.second.kind == PasswordSource::Kind::Plain; });
    if (hasPlain && companion::OthersMayRead(file.Path()))
        PrintError("quelvol: others may read the passwords in " + ToShown(file.Path()) + "; 'quelvol key set NAME' stores one safely\n");
}

std::vector<FolderProblem> ProblemsOf(const std::vector<VirtMountInfo>& mounts, bool mayAsk) {
    std::vector<FolderProblem> problems;
    for (const VirtMountInfo& mount : mounts) {
        const std::wstring path(BoundedText(mount.path));
        const std::string name = ToShown(BoundedText(mount.name));
        const DWORD attributes = GetFileAttributesW(path.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
            problems.push_back(
                {mount, name + ": its folder " + ToShown(path) + " is missing; connect its disk, or correct the configuration", false});
            continue;
        }
        const Verdict verdict = CheckFolderPassword(path, mayAsk);
        if (verdict.state == ContainerState::WrongKey)
            problems.push_back({mount, name + ": " + verdict.reason + "; nothing can be stored there", true});
    }
    return problems;
}
