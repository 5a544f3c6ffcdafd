// ls [-l] [PATH]: what a folder holds, or one file. The last name may be a pattern.
#include <algorithm>
#include <memory>

#include "commands/Commands.h"
#include "core/Checks.h"
#include "core/Text.h"

namespace {

struct Options {
    std::string path;
    bool longForm = false;
};

std::vector<Entry> Listed(const Volume& volume, const std::string& argument) {
    const VolumePath path = VolumePath::Parse(ToUtf16(argument), VolumePath::Wildcards::InLastComponent);
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
    const Entry entry = volume.Require(path);
    return entry.IsFolder() ? SortedEntries(volume, path) : std::vector<Entry>{entry};
}

std::string ShownName(const Entry& entry) {
    return ToShown(entry.Name()) + (entry.IsFolder() ? "/" : "");
}

void PrintLong(const std::vector<Entry>& entries) {
    const auto sizeText = [](const Entry& entry) { return entry.IsFolder() ? "-" : std::to_string(entry.data.fileSize); };
    std::size_t width = 0;
    for (const Entry& entry : entries)
        width = std::max(width, sizeText(entry).size());
    std::string text;
    for (const Entry& entry : entries) {
        std::string type = TypeWord(entry.data.itemType);
        type.resize(9, ' ');
        const std::string size = sizeText(entry);
        text += type + "  " + std::string(width - size.size(), ' ') + size + "  " + TimeStr(entry.data.lastWriteTime) + "  " +
                ShownName(entry) + "\n";
    }
    PrintOut(text);
}

// Of the folders that are listed; nobody is asked for a password to see names.
void TellProblems(const Volume& volume, const VolumePath& listed) {
    for (const FolderProblem& problem : ProblemsOf(RequireMountFolders(volume), false)) {
        VolumePath mount;
        if (listed.IsRoot() || listed.IsInside(mount.Child(BoundedText(problem.mount.name))))
            PrintError("quelvol: " + problem.text + "\n");
    }
}

void List(Session& session, const Options& options) {
    TellProblems(session.GetVolume(), VolumePath::Parse(ToUtf16(options.path), VolumePath::Wildcards::InLastComponent));
    const std::vector<Entry> entries = Listed(session.GetVolume(), options.path);
    if (options.longForm)
        return PrintLong(entries);
    std::string text;
    for (const Entry& entry : entries)
        text += ShownName(entry) + "\n";
    PrintOut(text);
}

}  // namespace

void AddLs(CLI::App& app, Session& session) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("ls", "List a folder, or the mount folders");
    command->add_flag("-l,--long", options->longForm, "With type, size in bytes and local time of the last change");
    command->add_option("PATH", options->path, "A folder or file; its last name may be a pattern (Docs/*.docx)");
    command->callback([&session, options] { List(session, *options); });
}
