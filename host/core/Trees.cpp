#include "core/Trees.h"

#include "core/HostError.h"
#include "core/Interrupt.h"

void RemoveTree(const Volume& volume, const Entry& entry) {
    StopIfInterrupted();
    if (entry.IsFolder())
        for (const Entry& child : SortedEntries(volume, entry.path))
            RemoveTree(volume, child);
    {
        const FileHandle file = volume.Open(entry.path, DELETE, c_shareAll, OPEN_EXISTING);
        Check(volume->Delete(file.Get(), nullptr), entry.path);
    }
    // The deletion happens at the close, which reports nothing.
    if (volume.FindAgain(entry))
        throw HostError(entry.path.Shown() + ": it could not be deleted; another program may hold it");
}

void CopyTree(const Volume& volume, const Entry& source, const VolumePath& target) {
    StopIfInterrupted();
    if (!source.IsFolder())
        return Check(volume->CopyFileW(source.path.Str(), target.Str(), nullptr), target);
    volume.Open(target, GENERIC_READ, c_shareAll, CreateNewFolder);
    for (const Entry& child : SortedEntries(volume, source.path))
        CopyTree(volume, child, CopyTarget(volume, target, child));
}
