// status: what is in each folder, and what needs attention.
#include <algorithm>
#include <map>
#include <memory>

#include <nlohmann/json.hpp>

#include "commands/Commands.h"
#include "companion/SideFile.h"
#include "core/Checks.h"
#include "core/LeftBehind.h"
#include "core/Storage.h"
#include "core/Text.h"

namespace {

using nlohmann::ordered_json;

constexpr std::size_t kMostNamed = 10;

struct Row {
    Stored stored;
    const char* word;  // for --json
    const char* text;
    bool wantsAttention;
};
constexpr Row kRows[] = {
    {Stored::Encrypted, "encrypted", "encrypted", false},
    {Stored::InClear, "unencrypted", "NOT ENCRYPTED, although the folder has a policy; 'quelvol encrypt' encrypts them", true},
    {Stored::Damaged, "damaged", "damaged", true},
    {Stored::ConflictCopy, "conflicts", "conflict copies, to be compared with their originals", true},
    {Stored::NoExtension, "unencryptedNoExtension", "not encrypted: no extension", false},
    {Stored::Excluded, "unencryptedExcluded", "not encrypted: excluded by the configuration", false},
    {Stored::NoPolicy, "unencryptedNoPolicy", "not encrypted: the folder has no policy", false},
};

struct Census {
    std::vector<std::string> leftOver;                 // unfinished files of runs that were killed
    std::map<Stored, std::vector<std::string>> names;  // the first few of each kind that needs attention
    std::map<Stored, std::size_t> counts;
};

Census Count(const Volume& volume, const VolumePath& folder) {
    Census census;
    const auto noteAside = [&](const VolumePath& path) {
        if (!path.IsMountFolder() && !VolumePath::NameBeforeAside(path.Name()).empty())
            census.leftOver.push_back(path.Shown());
    };
    const auto enter = [&](const VolumePath& entered) {
        noteAside(entered);
        for (const std::wstring& path : companion::LeftSideFiles(ConfiguredPath(volume, entered)))
            census.leftOver.push_back(ToShown(path) + "; 'quelvol clean' deletes it");
    };
    ForEachFile(
        volume, folder,
        [&](const Entry& entry, Stored stored) {
            noteAside(entry.path);
            ++census.counts[stored];
            auto& names = census.names[stored];
            if (names.size() < kMostNamed)
                names.push_back(entry.ListedPath().Shown());
        },
        enter);
    return census;
}

std::string Report(Census& census) {
    std::string text;
    for (const Row& row : kRows) {
        const std::size_t count = census.counts[row.stored];
        if (count == 0 && row.stored != Stored::Encrypted)
            continue;
        text += "  " + std::to_string(count) + " " + row.text + "\n";
        for (const std::string& name : census.names[row.stored])
            if (row.wantsAttention)
                text += "      " + name + "\n";
        if (row.wantsAttention && count > kMostNamed)
            text += "      and " + std::to_string(count - kMostNamed) + " more\n";
    }
    if (!census.leftOver.empty())
        text += "  " + std::to_string(census.leftOver.size()) + " left over from interrupted operations, and may be unencrypted\n";
    for (std::size_t index = 0; index < std::min(census.leftOver.size(), kMostNamed); ++index)
        text += "      " + census.leftOver[index] + "\n";
    return text;
}

void Status(Session& session, bool json) {
    const Volume& volume = session.GetVolume();
    const std::vector<VirtMountInfo> mounts = RequireMountFolders(volume);
    const std::vector<FolderProblem> problems = ProblemsOf(mounts, false);
    ordered_json all = ordered_json::array();
    bool wantsAttention = !problems.empty();
    for (const VirtMountInfo& mount : mounts) {
        const std::wstring name(BoundedText(mount.name));
        std::string text = ToShown(name) + "  " + ToShown(BoundedText(mount.path)) + "\n";
        ordered_json folder{{"name", ToUtf8(name)}, {"path", ToUtf8(BoundedText(mount.path))}, {"problem", nullptr}};
        bool isThere = true;
        for (const FolderProblem& problem : problems)
            if (BoundedText(problem.mount.name) == name) {
                text += "  " + problem.text + "\n";
                folder["problem"] = problem.text;
                isThere = problem.isUsable;
            }
        Census census = isThere ? Count(volume, VolumePath().Child(name)) : Census();
        for (const Row& row : kRows) {
            folder[row.word] = census.counts[row.stored];
            wantsAttention = wantsAttention || (row.wantsAttention && census.counts[row.stored] > 0);
        }
        folder["leftOver"] = census.leftOver.size();
        wantsAttention = wantsAttention || !census.leftOver.empty();
        all.push_back(folder);
        if (!json)
            PrintOut(text + (isThere ? Report(census) : ""));
    }
    const std::size_t edits = LeftBehind(volume.Temp().Path()).Edits(volume.Get()).size();
    if (json)
        PrintOut(ordered_json{{"folders", all}, {"unsavedEdits", edits}}.dump(2) + "\n");
    else if (edits > 0)
        PrintOut(std::to_string(edits) + (edits == 1 ? " edit" : " edits") + " may be unsaved; 'quelvol recover' lists them\n");
    WarnOfReadableConfiguration();
    if (wantsAttention || edits > 0)
        session.exitCode = Exit_Failed;
}

}  // namespace

void AddStatus(CLI::App& app, Session& session) {
    const auto json = std::make_shared<bool>(false);
    CLI::App* const command = app.add_subcommand("status", "Show for each folder what is encrypted, what is not, and what needs attention");
    command->add_flag("--json", *json, "For programs: folders with their counts, unsavedEdits");
    command->footer("Ends with 1 when something needs attention.");
    command->callback([&session, json] { Status(session, *json); });
}
