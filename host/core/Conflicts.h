// Conflict copies. The volume lists them under a name that no file can have, so they need another one wherever they are moved or copied.
#pragma once

#include "core/Volume.h"

// The path under which a conflict copy would be an ordinary file: that of its container without ".zip".
VolumePath OrdinaryPath(const Entry& conflict);

// Makes the conflict copy an ordinary file at OrdinaryPath, which must be free. Throws HostError; the copy is then
// unchanged, or has the name in the message.
void MakeOrdinary(const Volume& volume, const Entry& conflict);

// The path for a copy of entry in folder: its own name, or for a conflict copy its container's, with " (conflict)" when that is taken.
VolumePath CopyTarget(const Volume& volume, const VolumePath& folder, const Entry& entry);
// The same for an entry of a tree, in a folder that was just made: nothing is replaced there. Two children may get
// the same name, by their letter case, as a short name, or as a conflict copy (VVS_PathAlreadyExists).
VolumePath FreeTarget(const Volume& volume, const VolumePath& folder, const Entry& entry);
