#include "core/Trees.h"

#include "core/HostError.h"
#include "core/Interrupt.h"

namespace {

void RefuseTooDeep(const VolumePath& path) {
    if (path.Depth() > kMaxPathComponents)
        throw HostError(path.Shown() + ": too many nested folders");
}

void Delete(const Volume& volume, const Entry& entry) {
    {
        const FileHandle file = volume.Open(entry.path, DELETE, kShareAll, OPEN_EXISTING);
        Check(volume->Delete(file.Get(), nullptr), entry.path);
    }
    // The file is deleted at the close, which reports nothing.
    if (!volume.WaitUntilGone(entry))
        throw HostError(entry.path.Shown() + ": it could not be deleted; another program may hold it");
}

void Remove(const Volume& volume, const Entry& entry) {
    StopIfInterrupted();
    RefuseTooDeep(entry.path);
    if (!volume.IsItself(entry) && volume.RemoveLink(entry.path))
        return;
    if (entry.IsFolder()) {
        Search search(volume, entry.path);
        for (Entry child; search.Next(child);)
            Remove(volume, child);
        volume.RemoveReserved(entry.path);
    }
    Delete(volume, entry);
}

void RefuseLink(const Volume& volume, const Entry& entry) {
    if (!volume.IsItself(entry))
        throw HostError(entry.path.Shown() + ": a link, which is not followed");
}

// Makes the folder, and calls transfer with each child of source and a free path for it in the new folder.
template <class Transfer>
void TransferChildren(const Volume& volume, const Entry& source, const VolumePath& target, Transfer transfer) {
    volume.Open(target, GENERIC_READ, kShareAll, CreateNewFolder);
    Search search(volume, source.path);
    for (Entry child; search.Next(child);)
        transfer(volume, child, FreeTarget(volume, target, child));
}

}  // namespace

void RemoveTree(const Volume& volume, const Entry& entry) {
    if (entry.IsFolder() && volume.HoldsMountFolder(entry.path))
        throw HostError(entry.path.Shown() + ": it is a mount folder or contains one; remove that from the configuration first");
    Remove(volume, entry);
}

void CopyTree(const Volume& volume, const Entry& source, const VolumePath& target) {
    StopIfInterrupted();
    RefuseTooDeep(target);
    RefuseLink(volume, source);
    if (!source.IsFolder())
        return volume.Copy(source.path, target);
    TransferChildren(volume, source, target, CopyTree);
}

void MoveTree(const Volume& volume, const Entry& source, const VolumePath& target) {
    StopIfInterrupted();
    RefuseTooDeep(target);
    RefuseLink(volume, source);
    try {
        return volume.Move(source.path, target);
    } catch (const StatusError& error) {
        // The volume does not move a folder to another key, owner or disk.
        if (!source.IsFolder() || error.Status() != VVS_GeneralError)
            throw;
    }
    TransferChildren(volume, source, target, MoveTree);
    volume.RemoveReserved(source.path);
    Delete(volume, source);
}
