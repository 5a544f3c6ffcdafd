// ls [-lR] [--json] [PATH]: lists a folder, or one file. The last name may be a pattern.
#include <algorithm>
#include <memory>

#include <nlohmann/json.hpp>

#include "commands/Commands.h"
#include "core/Checks.h"
#include "core/Interrupt.h"
#include "core/Storage.h"
#include "core/Text.h"

namespace {

struct Options {
    std::string path;
    bool longForm = false, recursive = false, json = false;
};

std::vector<Entry> Listed(const Volume& volume, const VolumePath& path) {
    if (path.Name().find_first_of(L"*?") != std::wstring::npos) {
        if (!path.Parent().IsRoot())
            volume.RequireFolder(path.Parent());
        std::vector<Entry> entries = SortedEntries(volume, path.Parent(), path.Name().c_str());
        if (entries.empty())
            throw HostError(path.Shown() + ": nothing matches");
        return entries;
    }
    if (path.IsRoot())
        return SortedEntries(volume, path);
    RequireUndamaged(volume, path);
    const Entry entry = volume.Require(path);
    return entry.IsFolder() ? SortedEntries(volume, path) : std::vector<Entry>{entry};
}

std::string ShownName(const Entry& entry) { return ToShown(entry.Name()) + (entry.IsFolder() ? "/" : ""); }

void PrintLong(const Volume& volume, const std::vector<Entry>& entries) {
    const auto sizeText = [](const Entry& entry) { return entry.IsFolder() ? "-" : std::to_string(entry.data.fileSize); };
    std::size_t width = 0;
    for (const Entry& entry : entries)
        width = std::max(width, sizeText(entry).size());
    std::string text;
    for (const Entry& entry : entries) {
        std::string type = KindWord(volume, entry);
        type.resize(9, ' ');
        const std::string size = sizeText(entry);
        text += type + "  " + std::string(width - size.size(), ' ') + size + "  " + TimeStr(entry.data.lastWriteTime) + "  " +
                ShownName(entry) + "\n";
    }
    PrintOut(text);
}

void PrintShort(const std::vector<Entry>& entries) {
    std::string text;
    for (const Entry& entry : entries)
        text += ShownName(entry) + "\n";
    PrintOut(text);
}

// Reports problems of the listed folders, without asking for a password, which a list of names does not need.
void TellProblems(const Volume& volume, const VolumePath& listed) {
    for (const FolderProblem& problem : ProblemsOf(volume.MountFolders(), false)) {
        const VolumePath mount = VolumePath().Child(BoundedText(problem.mount.name));
        if (listed.IsRoot() || listed.Equals(mount) || listed.IsInside(mount))
            PrintError("quelvol: " + problem.text + "\n");
    }
}

void List(const Volume& volume, const std::vector<Entry>& entries, const Options& options, const std::string& heading,
          nlohmann::ordered_json& all) {
    if (options.json)
        for (const Entry& entry : entries)
            all.push_back(JsonOf(volume, entry));
    else if (!heading.empty())
        PrintOut(heading);
    if (!options.json)
        options.longForm ? PrintLong(volume, entries) : PrintShort(entries);
    for (const Entry& entry : entries) {
        StopIfInterrupted();
        if (options.recursive && entry.IsFolder() && volume.IsItself(entry) && entry.path.Depth() <= kMaxPathComponents)
            List(volume, SortedEntries(volume, entry.path), options, "\n" + entry.path.Shown() + ":\n", all);
    }
}

void List(Session& session, const Options& options) {
    const Volume& volume = session.GetVolume();
    const VolumePath path = PathArgument(volume, options.path, VolumePath::Wildcards::InLastComponent);
    TellProblems(volume, path);
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    List(volume, Listed(volume, path), options, {}, all);
    if (options.json)
        PrintOut(all.dump(2) + "\n");
}

}  // namespace

nlohmann::ordered_json JsonOf(const Volume& volume, const Entry& entry) {
    return {{"path", ToUtf8(entry.ListedPath().Str())},
            {"kind", KindWord(volume, entry)},
            {"size", entry.IsFolder() ? nlohmann::ordered_json() : nlohmann::ordered_json(entry.data.fileSize)},
            {"changed", TimeStr(entry.data.lastWriteTime)},
            {"stored", entry.IsFolder() ? nlohmann::ordered_json() : nlohmann::ordered_json(StoredReason(StoredAs(volume, entry)))}};
}

void AddLs(CLI::App& app, Session& session) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("ls", "List a folder, or the mount folders");
    command->add_flag("-l,--long", options->longForm, "With type, size in bytes and local time of the last change");
    command->add_flag("-R,--recursive", options->recursive, "With everything in the folders");
    command->add_flag("--json", options->json, "A list of objects: path, kind, size, changed, stored");
    command->add_option("PATH", options->path, "A folder or file; its last name may be a pattern (Docs/*.docx)");
    command->callback([&session, options] { List(session, *options); });
}
