// Work on whole trees of the volume, entry by entry where the volume cannot do it in one step. Failures are collected, and the
// work continues.
#pragma once

#include "core/Storage.h"
#include "webdav/Methods.h"

namespace webdav {

struct TreeResult {
    std::vector<MemberFailure> failures;
    Exposed exposed;
};

// Deletes the item and what is in it. False: something is left, and result says what and why.
bool RemoveTree(const Volume& volume, const Resource& item, TreeResult& result);

// Copies a file, over a file there if mayReplace, or a folder to a free path that nobody else knows. shallow: without its content.
bool CopyTree(const Volume& volume, const Resource& source, const VolumePath& target, bool shallow, bool mayReplace, TreeResult& result);

// Moves a file, over a file there if mayReplace, or a folder to a free path. A folder that is moved to
// another key or owner is moved file by file. What could not be moved is still complete at its old path.
bool MoveTree(const Volume& volume, const Resource& source, const VolumePath& target, bool mayReplace, TreeResult& result);

// Gives an item another path; a file there is replaced in one step.
void Rename(const Volume& volume, const VolumePath& from, const VolumePath& to);

// Renames the target of a copy or move until the new item is in place, and gives it its name back if that fails.
class SetAside {
public:
    SetAside(const Volume& volume, const Resource& item);
    ~SetAside();
    SetAside(const SetAside&) = delete;
    SetAside& operator=(const SetAside&) = delete;
    // Deletes the old target, unless a file in it was added or changed since that time.
    void Discard(std::uint64_t since);

private:
    void Tell() const;

    const Volume& m_volume;
    VolumePath m_path, m_asidePath;
};

}  // namespace webdav
