// The commands of quelvol. Each file of this folder adds one to the command line; its callback does the work and throws
// HostError when it fails.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json_fwd.hpp>

#include "core/HostError.h"
#include "core/Progress.h"
#include "core/Storage.h"

// What the commands of one run share. The volume is loaded when a command first asks for it, so that --config and
// --trace take effect before.
class Session {
public:
    // Throws HostError when the configuration cannot be used or has no folders.
    Volume& GetVolume();
    // The same for a command that changes something: warns when others may read passwords in the configuration.
    Volume& GetVolumeToChange();
    // Without a configuration there are no folders, but what was left in the temp folder.
    Volume& GetVolumeWithoutFolders() { return m_volume ? *m_volume : m_volume.emplace(); }
    bool VolumeIsLoaded() const { return m_volume.has_value(); }

    // For a command that continues after a failure: prints the line and keeps the exit code for the end.
    void Report(const HostError& error);
    int exitCode = Exit_Success;

private:
    std::optional<Volume> m_volume;
    bool m_hasFolders = false, m_hasWarned = false;
};

// Runs one command line, without the program's name. Returns the exit code; errors are printed.
int RunCommandLine(std::vector<std::string> arguments, Session& session);

void AddLs(CLI::App& app, Session& session);
void AddStat(CLI::App& app, Session& session);
void AddGet(CLI::App& app, Session& session);
void AddPut(CLI::App& app, Session& session);
void AddRm(CLI::App& app, Session& session);
void AddMounts(CLI::App& app, Session& session);
void AddMkdir(CLI::App& app, Session& session);
void AddMv(CLI::App& app, Session& session);
void AddCp(CLI::App& app, Session& session);
void AddLock(CLI::App& app, Session& session);
void AddUnlock(CLI::App& app, Session& session);
void AddLocks(CLI::App& app, Session& session);
void AddServe(CLI::App& app, Session& session);
void AddRecover(CLI::App& app, Session& session);
void AddClean(CLI::App& app, Session& session);
void AddInit(CLI::App& app, Session& session);
void AddKey(CLI::App& app, Session& session);
void AddRekey(CLI::App& app, Session& session);
void AddStatus(CLI::App& app, Session& session);
void AddVerify(CLI::App& app, Session& session);
void AddEncrypt(CLI::App& app, Session& session);
void AddDecrypt(CLI::App& app, Session& session);

// The description of an item for --json.
nlohmann::ordered_json JsonOf(const Volume& volume, const Entry& entry);
// The kind of an entry: "mount", "folder", "encrypted", "plain", "damaged", "conflict".
std::string KindWord(const Volume& volume, const Entry& entry);
// VolumePath::Parse for arguments of the command line, which are UTF-8. Throws HostError when the path's mount folder is missing on disk;
// says which path of the volume is meant by one of this machine.
VolumePath PathArgument(const Volume& volume, const std::string& text, VolumePath::Wildcards wildcards = VolumePath::Wildcards::Refused);
// The same for where a file is to be put: with a slash at its end, it must be a folder.
VolumePath TargetArgument(const Volume& volume, const std::string& text);
// Before all folders below path are gone through: reports mount folders that are missing on disk.
void ReportMissingFolders(Session& session, const Volume& volume, const VolumePath& path);
// For what ForEachFile shows as Stored::BadName.
void ReportBadName(Session& session, const Entry& entry);
// What a person sees of a tree that is copied, moved or deleted: the progress, and at the end what is no longer encrypted.
class TreeReport {
public:
    TreeReport(const Volume& volume, const Entry& tree, const char* doing);
    ~TreeReport();
    TreeReport(const TreeReport&) = delete;
    TreeReport& operator=(const TreeReport&) = delete;

    void Done(const Entry& file, const VolumePath& target);

private:
    void BeginProgress();

    const Volume& m_volume;
    const Entry& m_tree;
    const char* m_doing;
    std::optional<Progress> m_progress;
    Exposed m_exposed;
};

// The destination for something called name: inside target when that is a folder, else target itself.
VolumePath TargetFor(const Volume& volume, const VolumePath& target, const std::wstring& name);
// The same for an item of the volume that will be moved or copied there. Throws HostError when that is impossible: onto
// itself (another letter case is allowed), into itself, onto a folder, or onto a file without replace.
VolumePath ResolveTarget(const Volume& volume, const Entry& source, const VolumePath& target, bool replace);
