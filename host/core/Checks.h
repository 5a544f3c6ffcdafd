// Problems of the protected folders, found before anything is done with them.
#pragma once

#include <string>
#include <vector>

#include "core/Volume.h"

// Throws SettingsError when the configuration cannot be used, and HostError, with what to do, when it has no mount folders.
void RequireMountFolders(const Volume& volume);
// What to tell about a configuration that cannot be used; problem is the text of its SettingsError.
std::string UnusableConfiguration(const std::string& problem);

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
