#include "core/Trees.h"

#include "core/HostError.h"
#include "core/Interrupt.h"

namespace {

void RefuseTooDeep(const VolumePath& path) {
    if (path.Depth() > kMaxPathComponents)
        throw HostError(path.Shown() + ": too many folders in each other");
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
    {
        const FileHandle file = volume.Open(entry.path, DELETE, kShareAll, OPEN_EXISTING);
        Check(volume->Delete(file.Get(), nullptr), entry.path);
    }
    // The file is deleted at the close, which reports nothing.
    if (!volume.WaitUntilGone(entry))
        throw HostError(entry.path.Shown() + ": it could not be deleted; another program may hold it");
}

}  // namespace

void RemoveTree(const Volume& volume, const Entry& entry) {
    if (entry.IsFolder() && volume.HoldsMountFolder(entry.path))
        throw HostError(entry.path.Shown() + ": a mount folder stands there or inside; it is removed in the configuration");
    Remove(volume, entry);
}

void CopyTree(const Volume& volume, const Entry& source, const VolumePath& target) {
    StopIfInterrupted();
    RefuseTooDeep(target);
    if (!volume.IsItself(source))
        throw HostError(source.path.Shown() + ": a link, which is not followed");
    if (!source.IsFolder())
        return volume.Copy(source.path, target);
    volume.Open(target, GENERIC_READ, kShareAll, CreateNewFolder);
    Search search(volume, source.path);
    for (Entry child; search.Next(child);)
        CopyTree(volume, child, FreeTarget(volume, target, child));
}
