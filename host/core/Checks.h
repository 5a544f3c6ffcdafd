// What is wrong with the protected folders before anything is done with them.
#pragma once

#include <string>
#include <vector>

#include "core/Volume.h"

// The mount folders. Throws HostError, with what to do, when there are none.
std::vector<VirtMountInfo> RequireMountFolders(const Volume& volume);

// On standard error, when passwords stand in the configuration and others may read it.
void WarnOfReadableConfiguration();

struct FolderProblem {
    VirtMountInfo mount{};
    std::string text;      // one line
    bool isUsable = true;  // with it, the folder can be served: reading goes on under a wrong password
};
// One for each folder that is missing, or whose password cannot be had or does not open what is there.
std::vector<FolderProblem> ProblemsOf(const std::vector<VirtMountInfo>& mounts, bool mayAsk);
