// cp [-r] [-f] SOURCE TARGET: copies within the volume.
#include <memory>

#include "commands/Commands.h"
#include "core/Trees.h"

namespace {

struct Options {
    std::string from, to;
    bool recursive = false, replace = false;
};

void Copy(const Volume& volume, const Options& options) {
    const Entry source = volume.Require(PathArgument(volume, options.from));
    if (source.IsFolder() && !options.recursive)
        throw HostError(source.path.Shown() + ": a folder; -r copies it with everything in it");
    const VolumePath target = ResolveTarget(
        volume, source, source.IsFolder() ? PathArgument(volume, options.to) : TargetArgument(volume, options.to), options.replace);
    TreeReport report(volume, source, "copying");
    CopyTree(volume, source, target, [&](const Entry& file, const VolumePath& copy) { report.Done(file, copy); });
}

}  // namespace

void AddCp(CLI::App& app, Session& session) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("cp", "Copy a file or folder within the volume");
    command->add_flag("-r,--recursive", options->recursive, "Folders too, with everything in them");
    command->add_flag("-f,--force", options->replace, "Replace an existing file");
    command->add_option("SOURCE", options->from, "What to copy")->required();
    command->add_option("TARGET", options->to, "The path of the copy, or the folder to copy into")->required();
    command->callback([&session, options] { Copy(session.GetVolumeToChange(), *options); });
}
