// Problems of the protected folders, found before anything is done with them.
#pragma once

#include <string>
#include <vector>

#include "core/Volume.h"

// Throws SettingsError when the configuration cannot be used, and HostError, with what to do, when it has no mount folders.
void RequireMountFolders(const Volume& volume);
// What to tell about a configuration that cannot be used; problem is the text of its SettingsError.
std::string UnusableConfiguration(const std::string& problem);

// For commands that change the form or the password of many documents: two at once would take each other's changes for edits by users, and
// leave both forms of a document. Until the returned handle is closed or the process ends, nobody else gets one: it is that of an empty
// file beside the configuration, named like it with this extension. Throws HostError.
inline constexpr const wchar_t* kBusyExtension = L".busy";
UniqueHandle LockOutOthers();

// Prints a warning on standard error when passwords are in the configuration and others may read it.
void WarnOfReadableConfiguration();

// What to tell about a mount folder that is missing on disk; empty: it is there.
std::string MissingText(const VirtMountInfo& mount);

struct FolderProblem {
    VirtMountInfo mount{};
    std::string text;      // one line
    bool isUsable = true;  // the folder can be served all the same: with a wrong password, nothing can be stored
};
// One for each folder that is missing, or whose password is not available or does not open what is stored there.
std::vector<FolderProblem> ProblemsOf(const std::vector<VirtMountInfo>& mounts, bool mayAsk);
