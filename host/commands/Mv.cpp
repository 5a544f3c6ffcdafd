// mv [-f] SOURCE TARGET: gives a file or folder another name or place.
#include <memory>

#include "commands/Commands.h"
#include "core/Trees.h"

namespace {

void Move(const Volume& volume, const std::string& from, const std::string& to, bool replace) {
    const Entry source = volume.Require(PathArgument(volume, from));
    if (source.path.IsRoot() || source.path.IsMountFolder())
        throw HostError(source.path.Shown() + ": a mount folder; rename it in the configuration");
    const VolumePath target =
        ResolveTarget(volume, source, source.IsFolder() ? PathArgument(volume, to) : TargetArgument(volume, to), replace);
    if (source.IsConflict() && target.Equals(OrdinaryPath(source)))
        return MakeOrdinary(volume, source);
    TreeReport report(volume, source, "moving");
    if (source.IsFolder() && !target.Equals(source.path)) {
        MoveTree(volume, source, target, [&](const Entry& file, const VolumePath& moved) { report.Done(file, moved); });
    } else if (!source.IsFolder() && !volume.Find(target)) {
        volume.Move(source.path, target);
        report.Done(source, target);
    } else {
        // Through a handle, because that replaces an existing file in one step.
        const FileHandle file = volume.Open(source.path, GENERIC_READ | DELETE, kShareAll, OPEN_EXISTING);
        volume.Rename(file, target);
        if (!source.IsFolder())
            report.Done(source, target);
    }
    volume.Require(target);
}

}  // namespace

void AddMv(CLI::App& app, Session& session) {
    const auto from = std::make_shared<std::string>(), to = std::make_shared<std::string>();
    const auto replace = std::make_shared<bool>(false);
    CLI::App* const command = app.add_subcommand("mv", "Rename or move a file or folder");
    command->add_flag("-f,--force", *replace, "Replace an existing file");
    command->add_option("SOURCE", *from, "What to move")->required();
    command->add_option("TARGET", *to, "Its new path, or the folder to move it into")->required();
    command->callback([&session, from, to, replace] { Move(session.GetVolumeToChange(), *from, *to, *replace); });
}
