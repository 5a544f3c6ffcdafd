#include "core/Conflicts.h"

#include <algorithm>

#include "core/HostError.h"

VolumePath OrdinaryPath(const Entry& conflict) {
    const std::wstring container = conflict.path.Name();
    return conflict.path.Parent().Child(container.substr(0, container.rfind(L'.')));
}

// In two steps: to the volume the copy already has the name of its container, so that one step would change nothing.
void MakeOrdinary(const Volume& volume, const Entry& conflict) {
    const VolumePath target = OrdinaryPath(conflict), aside = target.Aside();
    const FileHandle file = volume.Open(conflict.path, GENERIC_READ | DELETE, c_shareAll, OPEN_EXISTING);
    volume.Rename(file, aside);
    try {
        volume.Rename(file, target);
    } catch (const StatusError& error) {
        throw HostError(error.what() + std::string("; the copy is named ") + aside.Shown() + " now");
    }
}

VolumePath CopyTarget(const Volume& volume, const VolumePath& folder, const Entry& entry) {
    if (!entry.IsConflict())
        return folder.Child(entry.Name());
    const std::wstring name = OrdinaryPath(entry).Name();
    if (!volume.Find(folder.Child(name)))
        return folder.Child(name);
    const std::size_t dot = std::min(name.rfind(L'.'), name.size());
    return folder.Child(name.substr(0, dot) + L" (conflict)" + name.substr(dot));
}
