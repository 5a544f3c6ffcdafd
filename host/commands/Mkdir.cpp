// mkdir [-p] PATH: a new folder.
#include <memory>

#include "commands/Commands.h"

namespace {

void MakeFolder(const Volume& volume, const VolumePath& path, bool parents) {
    if (path.IsRoot() || path.IsMountFolder()) {
        if (parents && volume.Find(path))
            return;
        throw HostError(path.Shown() + ": a mount folder must be added to the configuration");
    }
    if (parents)
        MakeFolder(volume, path.Parent(), true);
    const std::optional<Entry> existing = volume.Find(path);
    if (existing && !existing->IsFolder())
        throw StatusError(path.Shown(), VVS_PathAlreadyExists);
    volume.RequireFolder(path.Parent());
    if (!existing)
        volume.RequireFree(path);
    volume.Open(path, GENERIC_READ, kShareAll, parents ? OpenOrCreateFolder : CreateNewFolder);
}

}  // namespace

void AddMkdir(CLI::App& app, Session& session) {
    const auto path = std::make_shared<std::string>();
    const auto parents = std::make_shared<bool>(false);
    CLI::App* const command = app.add_subcommand("mkdir", "Make a folder");
    command->add_flag("-p,--parents", *parents, "Make missing parents too; the folder may exist already");
    command->add_option("PATH", *path, "The folder to make")->required();
    command->callback([&session, path, parents] {
        const Volume& volume = session.GetVolumeToChange();
        MakeFolder(volume, PathArgument(volume, *path), *parents);
    });
}
