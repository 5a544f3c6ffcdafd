#include <algorithm>
#include <utility>

#include "commands/Commands.h"
#include "companion/Paths.h"
#include "core/Checks.h"
#include "core/Conflicts.h"
#include "core/Storage.h"
#include "core/Text.h"

Volume& Session::GetVolume() {
    Volume& volume = GetVolumeWithoutFolders();
    if (!m_hasFolders)
        RequireMountFolders(volume);
    m_hasFolders = true;
    return volume;
}

Volume& Session::GetVolumeToChange() {
    Volume& volume = GetVolume();
    if (!std::exchange(m_hasWarned, true))
        WarnOfReadableConfiguration();
    return volume;
}

namespace {

// For a path of this machine: its path in the volume, if it has one.
std::string WhatIsMeant(const Volume& volume, const std::string& text) {
    const bool isOfMachine = text.find_first_of("/\\") == 0 || text.find(':') == 1;
    if (!isOfMachine)
        return {};
    const std::wstring path = companion::FullPath(ToUtf16(text));
    for (const VirtMountInfo& mount : volume.MountFolders()) {
        const std::wstring folder = companion::FullPath(std::wstring(BoundedText(mount.path)));
        std::wstring inVolume(BoundedText(mount.name));
        if (!companion::IsWithin(path, folder))
            continue;
        inVolume += path.substr(folder.size());
        std::replace(inVolume.begin(), inVolume.end(), L'\\', L'/');
        return "; this one is " + ToShown(inVolume) + " in the volume";
    }
    return "; 'quelvol mounts' lists these, and 'quelvol init FOLDER' makes one of a folder";
}

}  // namespace

VolumePath PathArgument(const Volume& volume, const std::string& text, VolumePath::Wildcards wildcards) {
    VolumePath path;
    try {
        path = VolumePath::Parse(ToUtf16(text), wildcards);
    } catch (const UsageError& error) {
        throw UsageError(error.what() + WhatIsMeant(volume, text));
    }
    VirtMountInfo mount{};
    const bool isInMount = !path.IsRoot() && volume->GetMountInfoByVolumePath(path.Str(), &mount);
    if (const std::string missing = isInMount ? MissingText(mount) : ""; !missing.empty())
        throw HostError(missing);
    return path;
}

VolumePath TargetArgument(const Volume& volume, const std::string& text) {
    VolumePath path = PathArgument(volume, text);
    if (!path.IsRoot() && (text.ends_with('/') || text.ends_with('\\')))
        volume.RequireFolder(path);
    return path;
}

void ReportBadName(Session& session, const Entry& entry) {
    session.Report(HostError(entry.ListedPath().Shown() + ": " + StoredReason(Stored::BadName)));
}

void ReportMissingFolders(Session& session, const Volume& volume, const VolumePath& path) {
    for (const VirtMountInfo& mount : path.IsRoot() ? volume.MountFolders() : std::vector<VirtMountInfo>())
        if (const std::string missing = MissingText(mount); !missing.empty())
            session.Report(HostError(missing));
}

std::string KindWord(const Volume& volume, const Entry& entry) {
    switch (entry.data.itemType) {
        case VIT_Root: return "root";
        case VIT_MountFolder: return "mount";
        case VIT_Folder: return "folder";
        default: return StoredWord(StoredAs(volume, entry));
    }
}

TreeReport::TreeReport(const Volume& volume, const Entry& tree, const char* doing) : m_volume(volume), m_tree(tree), m_doing(doing) {
    if (!tree.IsFolder())
        m_progress.emplace(tree.path.Shown(), static_cast<std::uint64_t>(tree.data.fileSize)).Say(doing);
}

TreeReport::~TreeReport() {
    if (const std::string text = m_exposed.Text(); !text.empty())
        PrintError("quelvol: " + text + "\n");
}

void TreeReport::Done(const Entry& file, const VolumePath& target) {
    if (!m_progress)
        BeginProgress();
    m_progress->NextFile();
    m_progress->Advance(static_cast<std::uint64_t>(file.data.fileSize));
    if (!target.IsRoot())
        m_exposed.Note(m_volume, file, target);
}

// Not before the first file, because most folders are moved as a whole.
void TreeReport::BeginProgress() {
    std::uint64_t bytes = 0;
    std::size_t files = 0;
    if (Progress(m_doing).IsSeen())
        ForEachFile(m_volume, m_tree.path, [&](const Entry& file, Stored) {
            bytes += static_cast<std::uint64_t>(file.data.fileSize);
            ++files;
        });
    m_progress.emplace(m_doing, bytes, files);
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
