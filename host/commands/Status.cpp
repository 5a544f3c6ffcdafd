// status: what is in each folder, and what needs attention.
#include <algorithm>
#include <map>
#include <memory>

#include <nlohmann/json.hpp>

#include "commands/Commands.h"
#include "companion/SideFile.h"
#include "core/Checks.h"
#include "core/LeftBehind.h"
#include "core/Progress.h"
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
    {Stored::BadName, "badNames", "cannot be opened: their names are not ones that Windows allows; rename them", true},
    {Stored::NoExtension, "unencryptedNoExtension", "not encrypted: no extension", false},
    {Stored::Excluded, "unencryptedExcluded", "not encrypted: excluded by the configuration", false},
    {Stored::NoPolicy, "unencryptedNoPolicy", "not encrypted: the folder has no policy", false},
    {Stored::Configuration, "configuration", "not encrypted: the configuration", false},
};

struct Census {
    std::vector<std::string> setAside, unfinished;     // of interrupted operations
    std::map<Stored, std::vector<std::string>> names;  // the first few of each kind that needs attention
    std::map<Stored, std::size_t> counts;
    bool isWhole = true;  // no folder was left out
};

// Counts what has the name of something that an interrupted operation leaves. False: it has another name.
bool CountLeft(Census& census, const VolumePath& path) {
    if (path.IsRoot() || path.IsMountFolder())
        return false;
    const bool isAside = !VolumePath::NameBeforeAside(path.Name()).empty(), isBegun = IsSideFileName(path.Name());
    if (isAside || isBegun)
        (isAside ? census.setAside : census.unfinished).push_back(path.Shown());
    return isAside || isBegun;
}

Census Count(const Volume& volume, const VolumePath& folder) {
    Census census;
    Progress progress("looking through " + folder.Shown());
    const auto enter = [&](const VolumePath& entered) {
        CountLeft(census, entered);
        for (const std::wstring& path : companion::LeftSideFiles(ConfiguredPath(volume, entered)))
            census.unfinished.push_back(ToShown(path) + "; 'quelvol clean' deletes it");
    };
    const auto count = [&](const Entry& entry, Stored stored) {
        progress.NextFile();
        if (CountLeft(census, entry.path))
            return;
        ++census.counts[stored];
        auto& names = census.names[stored];
        if (names.size() < kMostNamed)
            names.push_back(entry.ListedPath().Shown());
    };
    census.isWhole = ForEachFile(volume, folder, count, enter);
    return census;
}

// names: all, or the first of them.
std::string Lines(std::size_t count, const char* what, const std::vector<std::string>& names) {
    std::string text = "  " + std::to_string(count) + " " + what + "\n";
    const std::size_t named = std::min(names.size(), kMostNamed);
    for (std::size_t index = 0; index < named; ++index)
        text += "      " + names[index] + "\n";
    return text + (named > 0 && count > named ? "      and " + std::to_string(count - named) + " more\n" : "");
}

std::string Report(Census& census) {
    std::string text;
    for (const Row& row : kRows)
        if (const std::size_t count = census.counts[row.stored]; count > 0 || row.stored == Stored::Encrypted)
            text += Lines(count, row.text, row.wantsAttention ? census.names[row.stored] : std::vector<std::string>());
    if (!census.setAside.empty())
        text += Lines(census.setAside.size(), "set aside by interrupted saves or moves; compare them with the documents", census.setAside);
    if (!census.unfinished.empty())
        text += Lines(census.unfinished.size(), "unfinished files of interrupted runs, perhaps unencrypted", census.unfinished);
    return text;
}

// What earlier runs left in the temp folder.
struct LeftInTemp {
    std::size_t edits = 0, copies = 0;

    explicit LeftInTemp(const Volume& volume) {
        for (const LeftEdit& edit : LeftBehind(volume.Temp().Path()).Edits(volume.Get()))
            ++(edit.isGone || edit.LooksUntouched() ? copies : edits);
    }
    std::string Text() const {
        std::string text;
        if (edits > 0)
            text += std::to_string(edits) + (edits == 1 ? " edit is" : " edits are") + " unsaved; 'quelvol recover' lists them\n";
        if (copies > 0)
            text += std::to_string(copies) + (copies == 1 ? " decrypted copy" : " decrypted copies") +
                    " left behind, in which nothing seems to be written; 'quelvol recover clean' compares and deletes them\n";
        return text;
    }
};

void Status(Session& session, bool json) {
    const Volume& volume = session.GetVolume();
    const std::vector<VirtMountInfo> mounts = volume.MountFolders();
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
        folder["setAside"] = census.setAside.size();
        folder["unfinished"] = census.unfinished.size();
        wantsAttention = wantsAttention || !census.setAside.empty() || !census.unfinished.empty() || !census.isWhole;
        all.push_back(folder);
        if (!json)
            PrintOut(text + (isThere ? Report(census) : ""));
    }
    const LeftInTemp left(volume);
    PrintOut(json ? ordered_json{{"folders", all}, {"unsavedEdits", left.edits}, {"decryptedCopies", left.copies}}.dump(2) + "\n"
                  : left.Text());
    WarnOfReadableConfiguration();
    if (wantsAttention || left.edits + left.copies > 0)
        session.exitCode = Exit_Failed;
}

}  // namespace

void AddStatus(CLI::App& app, Session& session) {
    const auto json = std::make_shared<bool>(false);
    CLI::App* const command = app.add_subcommand("status", "Show for each folder what is encrypted, what is not, and what needs attention");
    command->add_flag("--json", *json, "For programs: folders with their counts, unsavedEdits, decryptedCopies");
    command->footer("Ends with 1 when something needs attention.");
    command->callback([&session, json] { Status(session, *json); });
}
