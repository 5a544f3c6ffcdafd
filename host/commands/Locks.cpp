// locks PATH: who holds a file.
#include <memory>

#include "commands/Commands.h"
#include "core/Locks.h"
#include "core/Text.h"

namespace {

std::string LockLine(const LockInfo& lock) {
    return ToShown(BoundedText(lock.token)) + "  " + (lock.scope == LockScope_Exclusive ? "exclusive" : "shared   ") + "  " +
           ToShown(BoundedText(lock.owner)) + "\n";
}

void ListLocks(const Volume& volume, const std::string& argument) {
    const Entry entry = volume.Require(PathArgument(volume, argument));
    if (entry.IsFolder())
        throw StatusError(entry.path.Shown(), VVS_BadRequest);
    std::string text;
    for (const LockInfo& lock : LocksHeldHere(volume, entry.path))
        text += LockLine(lock);
    if (text.empty())
        text = IsHeldElsewhere(volume, entry.path) ? "held by another process\n" : "not locked\n";
    PrintOut(text);
}

}  // namespace

void AddLocks(CLI::App& app, Session& session) {
    const auto path = std::make_shared<std::string>();
    CLI::App* const command = app.add_subcommand("locks", "Show who holds a file");
    command->add_option("PATH", *path, "The file")->required();
    command->footer(
        "Lists token, scope and owner of the locks of this process, so it is useful as the command of 'quelvol\n"
        "lock'. Of other processes it says only whether one of them holds the file; to find out, it takes a\n"
        "shared lock for a moment.");
    command->callback([&session, path] { ListLocks(session.GetVolume(), *path); });
}
