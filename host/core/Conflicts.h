// Conflict copies: containers that a sync client renamed beside the original. The volume lists them under a name that no
// file can have, so where they go they need another one.
#pragma once

#include "core/Volume.h"

// The path under which a conflict copy would be an ordinary file: that of its container without ".zip".
VolumePath OrdinaryPath(const Entry& conflict);

// Makes the conflict copy an ordinary file at OrdinaryPath, which nothing else may have. Throws HostError; the copy then
// stands as it was, or where the message says.
void MakeOrdinary(const Volume& volume, const Entry& conflict);

// Where a copy of entry goes in folder: under its own name, or for a conflict copy under that of its container, with
// " (conflict)" when it is taken.
VolumePath CopyTarget(const Volume& volume, const VolumePath& folder, const Entry& entry);
// The same for what a tree holds, into a folder that was just made: nothing that came there before is replaced. Two children may have
// one name there, in two letter cases, as a short name, or as a conflict copy (VVS_PathAlreadyExists).
VolumePath FreeTarget(const Volume& volume, const VolumePath& folder, const Entry& entry);
