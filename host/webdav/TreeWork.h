// Whole trees of the volume, member by member where the volume does not do it in one step. What fails is collected, and the
// rest goes on.
#pragma once

#include "webdav/Methods.h"

namespace webdav {

// Deletes the item and what is in it. False: some of it stays, and failures says which and why.
bool RemoveTree(const Volume& volume, const Resource& item, std::vector<MemberFailure>& failures);

// Copies a file, in place of the file that is there, or a folder to a place where nothing is. shallow: without its members.
bool CopyTree(const Volume& volume, const Resource& source, const VolumePath& target, bool shallow, std::vector<MemberFailure>& failures);

// Moves a file, in place of the file that is there if it may, or a folder to a place where nothing is. A folder that is moved to
// another key or owner is copied and then removed. What could not be moved is whole where it was.
bool MoveTree(const Volume& volume, const Resource& source, const VolumePath& target, bool mayReplace,
              std::vector<MemberFailure>& failures);

// Gives an item another name or place; the place of a file that is there is taken in one step.
void Rename(const Volume& volume, const VolumePath& from, const VolumePath& to);

// Keeps what stands in the way of a copy or move under another name beside it, and puts it back unless the new item has
// taken its place.
class SetAside {
public:
    SetAside(const Volume& volume, const Resource& item);
    ~SetAside();
    SetAside(const SetAside&) = delete;
    SetAside& operator=(const SetAside&) = delete;
    // Deletes it for good, unless a file came there or changed since that time.
    void Discard(std::uint64_t since);

private:
    void Tell() const;

    const Volume& m_volume;
    VolumePath m_path, m_asidePath;
};

}  // namespace webdav
