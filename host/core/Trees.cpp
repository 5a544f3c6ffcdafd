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

void Remove(const Volume& volume, const Entry& entry, const FileDone& done) {
    StopIfInterrupted();
    RefuseTooDeep(entry.path);
    if (!volume.IsItself(entry) && volume.RemoveLink(entry.path))
        return;
    if (entry.IsFolder()) {
        ForEachEntry(volume, entry.path, [&](const Entry& child) {
            Remove(volume, child, done);
            return true;
        });
        volume.RemoveReserved(entry.path);
    }
    Delete(volume, entry);
    if (!entry.IsFolder())
        done(entry, {});
}

void RefuseLink(const Volume& volume, const Entry& entry) {
    if (!volume.IsItself(entry))
        throw HostError(entry.path.Shown() + ": a link, which is not followed");
}

// Makes the folder, and calls transfer with each child of source and a free path for it in the new folder.
template <class Transfer>
void TransferChildren(const Volume& volume, const Entry& source, const VolumePath& target, const FileDone& done, Transfer transfer) {
    volume.Open(target, GENERIC_READ, kShareAll, CreateNewFolder);
    ForEachEntry(volume, source.path, [&](const Entry& child) {
        transfer(volume, child, FreeTarget(volume, target, child), done);
        return true;
    });
}

void Copy(const Volume& volume, const Entry& source, const VolumePath& target, const FileDone& done, bool mayReplace) {
    StopIfInterrupted();
    RefuseTooDeep(target);
    RefuseLink(volume, source);
    if (source.IsFolder())  // the copy is new, and so is what is put in it
        return TransferChildren(volume, source, target, done, [](auto&&... item) { Copy(item..., true); });
    mayReplace ? volume.Copy(source.path, target) : volume.CopyToFree(source.path, target);
    done(source, target);
}

}  // namespace

void RemoveTree(const Volume& volume, const Entry& entry, const FileDone& done) {
    if (entry.IsFolder() && volume.HoldsMountFolder(entry.path))
        throw HostError(entry.path.Shown() + ": it is a mount folder or contains one; remove that from the configuration first");
    Remove(volume, entry, done);
}

void CopyTree(const Volume& volume, const Entry& source, const VolumePath& target, const FileDone& done) {
    Copy(volume, source, target, done, volume.Find(target).has_value());
}

void MoveTree(const Volume& volume, const Entry& source, const VolumePath& target, const FileDone& done) {
    StopIfInterrupted();
    RefuseTooDeep(target);
    RefuseLink(volume, source);
    try {
        volume.Move(source.path, target);
        return source.IsFolder() ? void() : done(source, target);
    } catch (const StatusError& error) {
        // The volume does not move a folder to another key, owner or disk.
        if (!source.IsFolder() || error.Status() != VVS_GeneralError)
            throw;
    }
    TransferChildren(volume, source, target, done, MoveTree);
    volume.MoveReserved(source.path, target);
    Delete(volume, source);
}
