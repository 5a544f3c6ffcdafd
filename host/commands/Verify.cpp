// verify [PATH]: reads every container to its end.
#include <memory>

#include <nlohmann/json.hpp>

#include "commands/Commands.h"
#include "core/Companion.h"
#include "core/Interrupt.h"
#include "core/Progress.h"
#include "core/Storage.h"
#include "core/Text.h"

namespace {

struct Options {
    std::string path;
    bool json = false;
};

struct StateRow {
    ContainerState state;
    const char* word;
    const char* text;  // after a count
};
constexpr StateRow kStates[] = {
    {ContainerState::Whole, "whole", "whole"},
    {ContainerState::OtherKey, "other key", "whole, but encrypted with another password than their folder's"},
    {ContainerState::WrongKey, "wrong key", "encrypted with a password that is not configured"},
    {ContainerState::Damaged, "damaged", "damaged"},
    {ContainerState::Unreadable, "unreadable", "not readable now"},
};

const StateRow& RowOf(ContainerState state) {
    for (const StateRow& row : kStates)
        if (row.state == state)
            return row;
    return kStates[std::size(kStates) - 1];
}

void Verify(Session& session, const Options& options) {
    const Volume& volume = session.GetVolume();
    const VolumePath path = PathArgument(volume, options.path);
    ReportMissingFolders(session, volume, path);
    std::vector<Entry> files;
    std::uint64_t bytes = 0;
    const bool isWhole = ForEachFile(volume, path, [&](const Entry& entry, Stored stored) {
        if (stored == Stored::BadName)
            ReportBadName(session, entry);
        if (stored != Stored::Encrypted && stored != Stored::ConflictCopy && stored != Stored::Damaged)
            return;
        files.push_back(entry);
        bytes += static_cast<std::uint64_t>(entry.data.fileSize);
    });
    if (!isWhole)
        session.exitCode = Exit_Failed;
    std::map<ContainerState, std::size_t> counts;
    nlohmann::ordered_json found = nlohmann::ordered_json::array();
    Progress progress("verifying", bytes, files.size());
    for (const Entry& entry : files) {
        progress.NextFile();
        const Verdict verdict = ExamineContainer(ConfiguredPath(volume, entry), [&](std::uint64_t count) {
            progress.Advance(count);
            return !Interrupted();
        });
        StopIfInterrupted();
        if (verdict.state == ContainerState::Unknown)
            throw HostError("this companion library cannot examine containers");
        const StateRow& row = RowOf(verdict.state);
        ++counts[row.state];
        const std::string shown = entry.ListedPath().Shown();
        found.push_back({{"path", shown}, {"state", row.word}, {"reason", verdict.reason}});
        if (row.state != ContainerState::Whole)
            session.exitCode = Exit_Failed;
        if (row.state != ContainerState::Whole && !options.json)
            PrintOut(shown + ": " + row.word + (verdict.reason.empty() ? "" : ": " + verdict.reason) + "\n");
    }
    if (options.json)
        return PrintOut(found.dump(2) + "\n");
    for (const StateRow& row : kStates)
        if (const std::size_t count = counts[row.state]; count > 0 || row.state == ContainerState::Whole)
            PrintOut(std::to_string(count) + " " + row.text + "\n");
}

}  // namespace

void AddVerify(CLI::App& app, Session& session) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("verify", "Read every encrypted document to its end, and report what is damaged");
    command->add_option("PATH", options->path, "A file or folder (default: everything)");
    command->add_flag("--json", options->json, "A list of objects: path, state, reason");
    command->callback([&session, options] { Verify(session, *options); });
}
