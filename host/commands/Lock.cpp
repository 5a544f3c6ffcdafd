// lock [--shared] [--owner TEXT] PATH -- COMMAND...: holds a file while a command runs.
#include <memory>

#include "commands/Commands.h"
#include "core/Environment.h"
#include "core/Locks.h"
#include "core/OnDisk.h"
#include "core/Text.h"

namespace {

struct Options {
    bool shared = false;
    std::string owner = "quelvol", path;
    std::vector<std::string> command;
};

// By the platform's rules for command lines: backslashes are special only before a quotation mark.
std::wstring Quoted(const std::wstring& argument) {
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos)
        return argument;
    std::wstring text = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t unit : argument) {
        if (unit == L'"')
            text.append(backslashes + 1, L'\\');
        backslashes = unit == L'\\' ? backslashes + 1 : 0;
        text += unit;
    }
    return text.append(backslashes, L'\\') + L'"';
}

int RunProgram(const Volume& volume, const std::vector<std::string>& command) {
    std::wstring commandLine;
    for (const std::string& argument : command)
        commandLine += (commandLine.empty() ? L"" : L" ") + Quoted(ToUtf16(argument));
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    volume.Temp().UseOriginal();
    const BOOL started = CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
    const DWORD error = GetLastError();
    volume.Temp().UseOwn();
    if (!started)
        throw HostError(command[0] + ": it could not be started: " + SystemMessage(error), Exit_CommandNotStarted);
    const UniqueHandle program(process.hProcess), thread(process.hThread);
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD exitCode = Exit_Failed;
    GetExitCodeProcess(process.hProcess, &exitCode);
    return static_cast<int>(exitCode);
}

bool IsThisProgram(const std::string& program) {
    const std::wstring path = ToUtf16(program);
    const std::wstring name = path.substr(path.find_last_of(L"/\\:") + 1);
    return EqualNoCase(name, L"quelvol") || EqualNoCase(name, L"quelvol.exe");
}

// Commands of this program run in this process, the only one that the lock allows to write.
int RunCommand(Session& session, const std::vector<std::string>& command) {
    if (IsThisProgram(command[0]))
        return RunCommandLine({command.begin() + 1, command.end()}, session);
    return RunProgram(session.GetVolume(), command);
}

void Hold(Session& session, const Options& options) {
    const Volume& volume = session.GetVolumeToChange();
    const VolumePath path = PathArgument(volume, options.path);
    const std::optional<Entry> entry = volume.Find(path);
    if (!entry) {
        volume.RequireFolder(path.Parent());
        volume.RequireFree(path, true);
    }
    const HeldLock lock(volume, entry ? entry->path : path, options.shared ? LockScope_Shared : LockScope_Exclusive,
                        ToUtf16(options.owner));
    const std::wstring outerToken = GetVariable(L"QUELVOL_LOCK_TOKEN");
    SetVariable(L"QUELVOL_LOCK_TOKEN", lock.Token());
    session.exitCode = RunCommand(session, options.command);
    SetVariable(L"QUELVOL_LOCK_TOKEN", outerToken);
}

}  // namespace

void AddLock(CLI::App& app, Session& session) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("lock", "Hold a file while a command runs");
    command->add_flag("--shared", options->shared, "Let others take shared locks beside it (default: an exclusive lock)");
    command->add_option("--owner", options->owner, "Who holds it, up to 63 characters")->type_name("TEXT")->capture_default_str();
    command->add_option("PATH", options->path, "The file; a missing one can be locked before it is stored")->required();
    command->add_option("COMMAND", options->command, "After --: the program and its arguments")->required();
    command->footer(
        "While the command runs nobody else can change the file; QUELVOL_LOCK_TOKEN holds the lock's token. A\n"
        "command of quelvol runs in the same process and so may change the file; any other program can only\n"
        "read it.");
    command->callback([&session, options] { Hold(session, *options); });
}
