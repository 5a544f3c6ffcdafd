// Whole folders: removing, copying and moving them file by file, because the volume does so itself only when they are empty, or stay
// under one key and on one disk.
#pragma once

#include "core/Conflicts.h"

// Deletes the entry, a folder with all that is in it, of a link the link alone, and makes sure that it is gone. Throws
// HostError at the first item that stays; what was deleted before that is gone.
void RemoveTree(const Volume& volume, const Entry& entry);

// Copies a file, or a folder with all that is in it, to target, which must not exist, or be a file when replace is set.
// Throws HostError at the first failure, a link too; what was copied before that stays.
void CopyTree(const Volume& volume, const Entry& source, const VolumePath& target);

// Moves a file, or a folder with all that is in it, to target, which must not exist. Throws HostError at the first failure; each file is
// then in the old place or in the new one.
void MoveTree(const Volume& volume, const Entry& source, const VolumePath& target);
