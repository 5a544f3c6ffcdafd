// rm [-r] PATH...: deletes files, and folders with what is in them.
#include <memory>

#include "commands/Commands.h"
#include "core/Trees.h"

namespace {

struct Options {
    std::vector<std::string> paths;
    bool recursive = false;
};

void RemoveOne(const Volume& volume, const std::string& argument, bool recursive) {
    const VolumePath path = PathArgument(volume, argument);
    if (!volume.Find(path) && volume.RemoveLink(path))
        return;
    const Entry entry = volume.Require(path);
    if (entry.path.IsRoot() || entry.path.IsMountFolder())
        throw HostError(entry.path.Shown() + ": a mount folder; remove it from the configuration");
    if (entry.IsFolder() && !recursive)
        throw HostError(entry.path.Shown() + ": a folder; -r deletes it with everything in it");
    TreeReport report(volume, entry, "deleting");
    RemoveTree(volume, entry, [&](const Entry& file, const VolumePath& gone) { report.Done(file, gone); });
}

}  // namespace

void AddRm(CLI::App& app, Session& session) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("rm", "Delete files and folders");
    command->add_flag("-r,--recursive", options->recursive, "Folders too, with everything in them");
    command->add_option("PATH", options->paths, "What to delete")->required();
    command->callback([&session, options] {
        for (const std::string& path : options->paths) {
            try {
                RemoveOne(session.GetVolumeToChange(), path, options->recursive);
            } catch (const HostError& error) {
                session.Report(error);
                if (error.Code() == Exit_Interrupted || error.Code() == Exit_NoVolume)
                    return;
            }
        }
    });
}
