// unlock PATH [TOKEN]: releases a lock of this process before the command it was taken for has ended.
#include <memory>

#include "commands/Commands.h"
#include "core/Environment.h"
#include "core/Text.h"

namespace {

void Release(const Volume& volume, const std::string& argument, const std::string& givenToken) {
    // Not by way of Find: a lock may stand on a file that is missing by now.
    const VolumePath path = PathArgument(argument);
    const std::optional<Entry> entry = volume.Find(path);
    const VolumePath& target = entry ? entry->path : path;
    const std::wstring token = givenToken.empty() ? GetVariable(L"QUELVOL_LOCK_TOKEN") : ToUtf16(givenToken);
    const VirtualVolumeStatus status = volume->Unlock(target.Str(), token.c_str());
    if (status == VVS_FileNotLocked)
        throw HostError(std::string(StatusError(target.Shown(), status).what()) +
                        " by this process; a lock of another one ends with the command that took it");
    Check(status, target);
}

}  // namespace

void AddUnlock(CLI::App& app, Session& session) {
    const auto path = std::make_shared<std::string>(), token = std::make_shared<std::string>();
    CLI::App* const command = app.add_subcommand("unlock", "Release a lock early");
    command->add_option("PATH", *path, "The locked file")->required();
    command->add_option("TOKEN", *token, "The lock's token (default: the variable QUELVOL_LOCK_TOKEN)");
    command->footer(
        "Locks live in the process that took them. This command is of use as the command of 'quelvol lock';\n"
        "a lock of another process ends when the command that took it does.");
    command->callback([&session, path, token] { Release(session.GetVolume(), *path, *token); });
}
