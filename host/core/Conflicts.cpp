#include "core/Conflicts.h"

#include <algorithm>

#include "core/HostError.h"
#include "core/Storage.h"

VolumePath OrdinaryPath(const Entry& conflict) {
    const std::wstring container = conflict.path.Name();
    return conflict.path.Parent().Child(container.substr(0, container.rfind(L'.')));
}

// In two steps: for the volume the copy already has its container's name, so that a single rename would change nothing.
void MakeOrdinary(const Volume& volume, const Entry& conflict) {
    const VolumePath target = OrdinaryPath(conflict), aside = target.Aside();
    const FileHandle file = volume.Open(conflict.path, GENERIC_READ | DELETE, kShareAll, OPEN_EXISTING);
    volume.Rename(file, aside);
    try {
        volume.Rename(file, target);
    } catch (const StatusError& error) {
        throw HostError(error.what() + std::string("; the copy is now named ") + aside.Shown());
    }
}

VolumePath CopyTarget(const Volume& volume, const VolumePath& folder, const Entry& entry) {
    if (!entry.IsConflict())
        return folder.Child(entry.Name());
    const std::wstring name = OrdinaryPath(entry).Name();
    if (Storage(volume, folder).Exposes(name))  // its container may have been renamed by somebody who cannot open it
        throw HostError(entry.ListedPath().Shown() + ": a copy would be named " + folder.Child(name).Shown() +
                        ", and not be encrypted under that name; rename its container, or copy it under another name");
    const std::size_t dot = std::min(name.rfind(L'.'), name.size());
    VolumePath target = folder.Child(name);
    for (int number = 1; volume.Find(target); ++number)
        target = folder.Child(name.substr(0, dot) + (number == 1 ? L" (conflict)" : L" (conflict " + std::to_wstring(number) + L")") +
                              name.substr(dot));
    return target;
}

VolumePath FreeTarget(const Volume& volume, const VolumePath& folder, const Entry& entry) {
    const VolumePath target = CopyTarget(volume, folder, entry);
    if (volume.Find(target))
        throw StatusError(target.Shown(), VVS_PathAlreadyExists);
    return target;
}
