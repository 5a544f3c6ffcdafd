#include "webdav/TreeWork.h"

#include <optional>

#include "core/HostError.h"
#include "core/Interrupt.h"
#include "core/Patience.h"
#include "core/Storage.h"
#include "core/Text.h"
#include "core/Trees.h"
#include "webdav/Limits.h"

namespace webdav {

namespace {

// Makes one step for one item, and records a failure.
template <class Step>
bool Try(const Resource& item, TreeResult& result, Step step) {
    try {
        step();
        return true;
    } catch (const StatusError& error) {
        result.failures.push_back({item.Url(), HttpStatus(error.Status())});
    } catch (const HostError& error) {
        result.failures.push_back({item.Url(), error.Code() == Exit_Interrupted ? 503 : 403});  // a rule is against it
    }
    return false;
}

// The answer has the URL of each failed entry, so a tree in which everything fails is given up.
bool HasFailedTooOften(const TreeResult& result) { return result.failures.size() >= limits::treeFailures; }

// The item is deleted at the close, which reports nothing, so this must be checked afterwards.
void Delete(const Volume& volume, const Entry& item) {
    const FileHandle file = volume.Open(item.path, DELETE, kShareAll, OPEN_EXISTING);
    Check(volume->Delete(file.Get(), nullptr), item.path);
}

void DeleteAndVerify(const Volume& volume, const Entry& item) {
    Delete(volume, item);
    if (!volume.WaitUntilGone(item))
        throw StatusError(item.path.Shown(), VVS_Locked);
}

void RemoveLink(const Volume& volume, const Entry& link) {
    try {
        volume.RemoveLink(link.path);
    } catch (const HostError&) {
        throw StatusError(link.path.Shown(), VVS_AccessDenied);
    }
}

// A link is neither followed nor copied: a failure.
bool IsLink(const Volume& volume, const Resource& item, TreeResult& result) {
    if (volume.IsItself(*item.entry))
        return false;
    result.failures.push_back({item.Url(), 403});
    return true;
}

// Deeper than a client's path can be: a failure, so that deep folders do not exhaust the stack.
bool IsTooDeep(const Resource& item, TreeResult& result, const VolumePath& target = {}) {
    if (item.path.Depth() <= limits::pathComponents && target.Depth() <= limits::pathComponents)
        return false;
    result.failures.push_back({item.Url(), 403});
    return true;
}

// Calls take with each entry of the folder, one at a time, because all of them may not fit into memory. True: take returned true for
// all.
template <class Take>
bool ForEachMember(const Volume& volume, const Resource& folder, TreeResult& result, Take take) {
    bool whole = true;
    const bool wasListed = Try(folder, result, [&] {
        ForEachEntry(volume, folder.entry->path, [&](const Entry& member) {
            StopIfInterrupted();
            whole = take(Listed(folder, member)) && whole;
            return !HasFailedTooOften(result);
        });
    });
    return wasListed && whole && !HasFailedTooOften(result);
}

bool IsEmpty(const Volume& volume, const Resource& folder) {
    Entry member;
    try {
        return !Search(volume, folder.entry->path).Next(member);
    } catch (const StatusError&) {
        return false;  // deleting the folder will report the error
    }
}

bool Empty(const Volume& volume, const Resource& folder, TreeResult& result) {
    const bool areDeleted = ForEachMember(volume, folder, result, [&](const Resource& item) {
        if (item.IsFolder() || !volume.IsItself(*item.entry))
            return RemoveTree(volume, item, result);
        return Try(item, result, [&] { Delete(volume, *item.entry); });
    });
    if (!areDeleted || TryForAMoment([&] { return IsEmpty(volume, folder); }))
        return areDeleted;
    return ForEachMember(volume, folder, result, [&](const Resource& left) {
        result.failures.push_back({left.Url(), HttpStatus(VVS_Locked)});
        return false;
    });
}

bool MoveFile(const Volume& volume, const Resource& source, const VolumePath& target, bool mayReplace, TreeResult& result) {
    // A file that stays plain is only renamed, and needs no room.
    const bool isWritten = source.entry->data.itemType != VIT_PlainFile || Storage(volume, target.Parent()).HasPolicy();
    if (isWritten && !volume.HasRoomFor(static_cast<std::uint64_t>(source.entry->data.fileSize), target.Parent())) {
        result.failures.push_back({source.Url(), 507});
        return false;
    }
    return Try(source, result, [&] {
        if (mayReplace)
            Rename(volume, source.entry->path, target);
        else  // not even a file that another program creates at this moment
            volume.Move(source.entry->path, target);
        result.exposed.Note(volume, *source.entry, target);
    });
}

// Calls transfer with the item's path in a folder that was just made, unless something else was created there meanwhile.
template <class Transfer>
bool ToFreePlace(const Volume& volume, const Resource& item, const VolumePath& folder, TreeResult& result, Transfer transfer) {
    std::optional<VolumePath> place;
    if (HasFailedTooOften(result) || !Try(item, result, [&] { place = FreeTarget(volume, folder, *item.entry); }))
        return false;
    return transfer(*place);
}

// Was a file or folder added or changed since that time? What is added may be older; but it gives its folder another write time, which
// the folder's own renaming does not.
bool HasChanged(const Volume& volume, const Resource& item, std::uint64_t since) {
    const DiskVersion version = volume.VersionOf(*item.entry);
    if (!item.IsFolder() || !volume.IsItself(*item.entry))
        return version.changed > since;
    bool changed = item.path.Depth() > limits::pathComponents || version.written > since;
    TreeResult ignored;
    return !ForEachMember(volume, item, ignored, [&](const Resource& member) {
        changed = changed || HasChanged(volume, member, since);
        return !changed;
    });
}

}  // namespace

bool RemoveTree(const Volume& volume, const Resource& item, TreeResult& result) {
    if (IsTooDeep(item, result))
        return false;
    if (!volume.IsItself(*item.entry))
        return Try(item, result, [&] { RemoveLink(volume, *item.entry); });
    if (item.IsFolder() && !Empty(volume, item, result))
        return false;
    if (item.IsFolder())
        volume.RemoveReserved(item.entry->path);
    return Try(item, result, [&] { DeleteAndVerify(volume, *item.entry); });
}

bool CopyTree(const Volume& volume, const Resource& source, const VolumePath& target, bool shallow, bool mayReplace, TreeResult& result) {
    if (IsTooDeep(source, result, target) || IsLink(volume, source, result))
        return false;
    if (!source.IsFolder() && !volume.HasRoomFor(static_cast<std::uint64_t>(source.entry->data.fileSize), target.Parent())) {
        result.failures.push_back({source.Url(), 507});
        return false;
    }
    if (!source.IsFolder())
        return Try(source, result, [&] {
            mayReplace ? volume.Copy(source.entry->path, target) : volume.CopyToFree(source.entry->path, target);
            result.exposed.Note(volume, *source.entry, target);
        });
    if (!Try(source, result, [&] { volume.Open(target, GENERIC_READ, kShareAll, CreateNewFolder); }))
        return false;
    return shallow || ForEachMember(volume, source, result, [&](const Resource& item) {
               return ToFreePlace(volume, item, target, result,
                                  [&](const VolumePath& place) { return CopyTree(volume, item, place, false, true, result); });
           });
}

bool MoveTree(const Volume& volume, const Resource& source, const VolumePath& target, bool mayReplace, TreeResult& result) {
    if (IsTooDeep(source, result, target) || IsLink(volume, source, result))
        return false;
    if (!source.IsFolder())
        return MoveFile(volume, source, target, mayReplace, result);
    try {
        volume.Move(source.entry->path, target);
        return true;
    } catch (const StatusError&) {
        // For another key or owner each file is encrypted again.
    }
    if (!Try(source, result, [&] { volume.Open(target, GENERIC_READ, kShareAll, CreateNewFolder); }))
        return false;
    const bool whole = ForEachMember(volume, source, result, [&](const Resource& item) {
        return ToFreePlace(volume, item, target, result,
                           [&](const VolumePath& place) { return MoveTree(volume, item, place, false, result); });
    });
    return whole && Try(source, result, [&] {
               volume.MoveReserved(source.entry->path, target);
               DeleteAndVerify(volume, *source.entry);
           });
}

void Rename(const Volume& volume, const VolumePath& from, const VolumePath& to) {
    // Through a handle, because that replaces an existing file in one step.
    const FileHandle file = volume.Open(from, GENERIC_READ | DELETE, kShareAll, OPEN_EXISTING);
    volume.Rename(file, to);
    volume.RequireInPlace(to, file.Get());
}

SetAside::SetAside(const Volume& volume, const Resource& item)
    : m_volume(volume), m_path(item.entry->path), m_asidePath(item.entry->path.Aside()) {
    Rename(volume, m_path, m_asidePath);
}

SetAside::~SetAside() {
    if (m_asidePath.IsRoot())
        return;
    try {
        if (!m_volume.Find(m_path)) {
            Rename(m_volume, m_asidePath, m_path);
            return;
        }
    } catch (const HostError&) {
        // It is complete under the other name, which is reported below.
    }
    Tell();
}

void SetAside::Tell() const { PrintError("quelvol: what was at " + m_path.Shown() + " is kept at " + m_asidePath.Shown() + "\n"); }

void SetAside::Discard(std::uint64_t since) {
    TreeResult result;
    const Resource item = Locate(m_volume, m_asidePath);
    const bool hasChanged = item.IsFolder() && HasChanged(m_volume, item, since);  // for a file, the renaming counts as a change
    if (item.Exists() && (hasChanged || !RemoveTree(m_volume, item, result)))
        Tell();
    m_asidePath = VolumePath();
}

}  // namespace webdav
