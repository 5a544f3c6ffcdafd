// Bringing an edit that was left behind back into the volume. Its copy is deleted only when the volume was asked for the
// document and the container, decrypted anew, gave exactly the copy's content.
#pragma once

#include <functional>
#include <optional>

#include "core/LeftBehind.h"
#include "core/Volume.h"

// The document that the edit belongs to. Nothing: unknown, or in no mount folder.
std::optional<VolumePath> DocumentOf(const Volume& volume, const LeftEdit& edit);

// Hands the edit's content to take, part by part. Throws HostError when it cannot all be read.
void ReadEdit(const Volume& volume, const LeftEdit& edit, const std::function<void(const char*, std::size_t)>& take);

// Does the container of the file at path, decrypted anew, give exactly the edit's content? No file may be open. Throws
// HostError when either cannot be read.
bool HasContent(const Volume& volume, const VolumePath& path, const LeftEdit& edit);

// Where the volume holds exactly the edit's content: in the document itself, or in a conflict copy of it that the volume
// made. Nothing: nowhere there, or it could not be read.
std::optional<VolumePath> FindSaved(const Volume& volume, const LeftEdit& edit);

// Stores the edit and returns where: in given, or else in its document, but under the conflict name when the container
// changed since the copy was made or the edit is an upload that was broken off. What is there is replaced only in given and
// in a document that did not change. The copy stays. Throws HostError.
VolumePath SaveEdit(const Volume& volume, const LeftEdit& edit, const std::optional<VolumePath>& given);
