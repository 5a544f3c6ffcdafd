// Saving an edit that was left behind. Its copy is deleted only after the stored document was decrypted again and had
// exactly the copy's content.
#pragma once

#include <functional>
#include <optional>

#include "core/LeftBehind.h"
#include "core/Volume.h"

// The document that the edit belongs to. Nothing: unknown, or in no mount folder.
std::optional<VolumePath> DocumentOf(const Volume& volume, const LeftEdit& edit);

// Calls take with each part of the edit's content. Throws HostError when not all can be read.
void ReadEdit(const Volume& volume, const LeftEdit& edit, const std::function<void(const char*, std::size_t)>& take);

// Has the file at path, decrypted again, exactly the edit's content? No file may be open. Throws
// HostError when either cannot be read.
bool HasContent(const Volume& volume, const VolumePath& path, const LeftEdit& edit);

// The document with exactly the edit's content: the edit's own, or a conflicted edit beside it. Nothing: neither, or it could not be
// read.
std::optional<VolumePath> FindSaved(const Volume& volume, const LeftEdit& edit);

// Stores the edit and returns its path: given, or else its document, but under a conflict name when the container
// changed since the copy was made or the edit is an upload that was broken off. Replaces only given and
// a document that did not change. The copy stays. Throws HostError.
VolumePath SaveEdit(const Volume& volume, const LeftEdit& edit, const std::optional<VolumePath>& given);
