// unlock PATH [TOKEN]: releases a lock of this process before the command it was taken for has ended.
#include <memory>

#include "commands/Commands.h"
#include "core/Environment.h"
#include "core/Text.h"

namespace {

void Release(const Volume& volume, const std::string& argument, const std::string& givenToken) {
    // Without Find, because the locked file may be missing by now.
    const VolumePath path = PathArgument(volume, argument);
    const std::optional<Entry> entry = volume.Find(path);
    const VolumePath& target = entry ? entry->path : path;
    const std::wstring token = givenToken.empty() ? GetVariable(L"QUELVOL_LOCK_TOKEN") : ToUtf16(givenToken);
    const VirtualVolumeStatus status = volume->Unlock(target.Str(), token.c_str());
    if (status == VVS_FileNotLocked)
        throw HostError(std::string(StatusError(target.Shown(), status).what()) +
                        " by this process; a lock of another process ends with the command that took it");
    Check(status, target);
}

}  // namespace

void AddUnlock(CLI::App& app, Session& session) {
    const auto path = std::make_shared<std::string>(), token = std::make_shared<std::string>();
    CLI::App* const command = app.add_subcommand("unlock", "Release a lock early");
    command->add_option("PATH", *path, "The locked file")->required();
    command->add_option("TOKEN", *token, "The lock's token (default: the variable QUELVOL_LOCK_TOKEN)");
    command->footer(
        "Releases only locks of its own process, so it is useful as the command of 'quelvol lock'; a lock of\n"
        "another process ends with the command that took it.");
    command->callback([&session, path, token] { Release(session.GetVolume(), *path, *token); });
}
