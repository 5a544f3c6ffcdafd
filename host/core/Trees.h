// Deletes, copies and moves whole folders file by file: the volume itself deletes only empty ones, and copies or moves them only under
// one key, and moves them only on one disk.
#pragma once

#include <functional>

#include "core/Conflicts.h"

// Is told about each file after it was copied, moved or deleted, with its new path, which is empty for a deleted one. Not about files in
// a folder that was moved as a whole.
using FileDone = std::function<void(const Entry& file, const VolumePath& target)>;

// Deletes the entry, a folder with everything in it, only the link itself of a link, and checks that it is deleted. Throws
// HostError at the first item that stays; those before it are deleted.
void RemoveTree(const Volume& volume, const Entry& entry, const FileDone& done);

// Copies a file over a file at target, or a folder with everything in it to a target that does not exist.
// Throws HostError at the first failure, which a link is too; what was copied before that stays.
void CopyTree(const Volume& volume, const Entry& source, const VolumePath& target, const FileDone& done);

// Moves a file, or a folder with everything in it, to target, which must not exist. Throws HostError at the first failure; each file is
// then at its old path or at its new one.
void MoveTree(const Volume& volume, const Entry& source, const VolumePath& target, const FileDone& done);
