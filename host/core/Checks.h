// Problems of the protected folders, found before anything is done with them.
#pragma once

#include <string>
#include <vector>

#include "core/Volume.h"

// The mount folders. Throws HostError, with what to do, when there are none.
std::vector<VirtMountInfo> RequireMountFolders(const Volume& volume);

// Prints a warning on standard error when passwords are in the configuration and others may read it.
void WarnOfReadableConfiguration();

struct FolderProblem {
    VirtMountInfo mount{};
    std::string text;      // one line
    bool isUsable = true;  // the folder can be served all the same: with a wrong password, nothing can be stored
};
// One for each folder that is missing, or whose password is not available or does not open what is stored there.
std::vector<FolderProblem> ProblemsOf(const std::vector<VirtMountInfo>& mounts, bool mayAsk);
