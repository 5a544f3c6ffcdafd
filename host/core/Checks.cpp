#include "core/Checks.h"

#include <algorithm>

#include "companion/Paths.h"
#include "companion/SettingsFile.h"
#include "core/Companion.h"
#include "core/HostError.h"
#include "core/Interrupt.h"
#include "core/OnDisk.h"
#include "core/Patience.h"
#include "core/Text.h"

void RequireMountFolders(const Volume& volume) {
    if (!volume.MountFolders().empty())
        return;
    const companion::SettingsFile file(companion::SettingsPath());
    const bool isThere = GetFileAttributesW(file.Path().c_str()) != INVALID_FILE_ATTRIBUTES;
    throw HostError("no mount folders: the configuration " + ToShown(file.Path()) + (isThere ? " has none" : " does not exist") +
                    "; 'quelvol init FOLDER' protects a folder");
}

std::string UnusableConfiguration(const std::string& problem) {
    const std::size_t comma = problem.find(','), end = problem.find(')');  // "(line,column): reason"
    return "the configuration cannot be used: " + ToShown(companion::SettingsPath()) + ", line " + problem.substr(1, comma - 1) +
           ", column " + problem.substr(comma + 1, end - comma - 1) + problem.substr(end + 1) +
           "; correct it there, or rename the file and protect the folders again with 'quelvol init'";
}

UniqueHandle LockOutOthers() {
    const std::wstring path = companion::SettingsPath() + kBusyExtension;
    UniqueHandle file;
    DWORD error = 0;
    TryForAMoment([&] {
        file = OwnHandle(CreateFileW(companion::OpenablePath(path).c_str(), GENERIC_WRITE | DELETE, 0, nullptr, OPEN_ALWAYS,
                                     FILE_FLAG_DELETE_ON_CLOSE | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        error = file ? 0 : GetLastError();
        return static_cast<bool>(file);
    });
    StopIfInterrupted();
    if (error == ERROR_SHARING_VIOLATION)
        throw HostError("another 'quelvol encrypt', 'decrypt' or 'rekey' is running; wait until it has ended");
    if (!file)
        throw LocalError(path, error);
    return file;
}

void WarnOfReadableConfiguration() {
    using companion::PasswordSource;
    const companion::SettingsFile file(companion::SettingsPath());
    const bool hasPlain = std::any_of(file.Get().passwords.begin(), file.Get().passwords.end(),
                                      [](const auto& password) { return password.second.kind == PasswordSource::Kind::Plain; });
    if (hasPlain && companion::OthersMayRead(file.Path()))
        PrintError("quelvol: others may read the passwords in " + ToShown(file.Path()) + "; 'quelvol key set NAME' stores one safely\n");
}

std::string MissingText(const VirtMountInfo& mount) {
    const std::wstring path(BoundedText(mount.path));
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY))
        return {};
    return ToShown(BoundedText(mount.name)) + ": its folder " + ToShown(path) +
           " is missing; connect its disk, or correct the configuration";
}

std::vector<FolderProblem> ProblemsOf(const std::vector<VirtMountInfo>& mounts, bool mayAsk) {
    std::vector<FolderProblem> problems;
    for (const VirtMountInfo& mount : mounts) {
        if (const std::string missing = MissingText(mount); !missing.empty()) {
            problems.push_back({mount, missing, false});
            continue;
        }
        const Verdict verdict = CheckFolderPassword(std::wstring(BoundedText(mount.path)), mayAsk);
        if (verdict.state == ContainerState::WrongKey)
            problems.push_back({mount, ToShown(BoundedText(mount.name)) + ": " + verdict.reason + "; nothing can be stored there", true});
    }
    return problems;
}
