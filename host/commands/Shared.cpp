#include "commands/Commands.h"
#include "core/Conflicts.h"
#include "core/Text.h"

VolumePath PathArgument(const std::string& text) { return VolumePath::Parse(ToUtf16(text)); }

const char* TypeWord(VirtualItemType type) {
    switch (type) {
        case VIT_Root: return "root";
        case VIT_MountFolder: return "mount";
        case VIT_Folder: return "folder";
        case VIT_PlainFile: return "plain";
        case VIT_EncryptedFile: return "encrypted";
        case VIT_EncryptedFileInConflict: return "conflict";
    }
    return "unknown";
}

VolumePath TargetFor(const Volume& volume, const VolumePath& target, const std::wstring& name) {
    const std::optional<Entry> entry = volume.Find(target);
    if (!entry)
        return target;
    return entry->IsFolder() ? target.Child(name) : target;
}

VolumePath ResolveTarget(const Volume& volume, const Entry& source, const VolumePath& given, bool replace) {
    std::optional<Entry> existing = volume.Find(given);
    VolumePath target = existing ? existing->path : given;
    if (existing && existing->IsFolder() && !target.Equals(source.path)) {
        target = CopyTarget(volume, target, source);
        existing = volume.Find(target);
    }
    if (target.IsRoot() || target.IsMountFolder())
        throw HostError(target.Shown() + ": a mount folder must be added to the configuration");
    if (target.Shown() == source.path.Shown())
        throw HostError(target.Shown() + ": it has this path already");
    if (volume.Key(target).IsInside(volume.Key(source.path)))
        throw HostError(target.Shown() + ": a folder cannot be moved or copied into itself");
    volume.RequireFolder(target.Parent());
    const bool isSource = source.IsConflict() && target.Equals(OrdinaryPath(source));
    if (!existing && !isSource)
        volume.RequireFree(target);
    if (existing && target.Equals(source.path) && volume.HasTwin(source, target.Name()))
        throw HostError(target.Shown() + ": there is another file whose name differs in letter case only; remove it first");
    if (existing && !target.Equals(source.path)) {
        if (existing->IsConflict())
            throw HostError(target.Parent().Child(existing->Name()).Shown() + ": a conflict copy; remove it first");
        if (existing->IsFolder())
            throw HostError(target.Shown() + ": there is a folder of this name already");
        if (source.IsFolder())
            throw HostError(target.Shown() + ": there is a file of this name already");
        if (!replace)
            throw HostError(StatusError(target.Shown(), VVS_PathAlreadyExists).what() + std::string("; -f replaces it"));
    }
    return target;
}
