// quelvol: the volume on the command line.
#include <sstream>

#include <windows.h>

#include "commands/Commands.h"
#include "companion/Settings.h"
#include "core/Checks.h"
#include "core/Environment.h"
#include "core/Interrupt.h"
#include "core/Text.h"
#include "quelcrypt/QuelcryptExceptions.h"

namespace {

constexpr const char* kFooter = R"(Paths:
  A path of the volume begins with a mount folder and may use '/' or '\', as
  in Docs/Reports/a.txt. A conflict copy is used under the name that 'ls'
  shows, as in report.docx.HvcConflicted.

Examples:
  quelvol mounts                           which folders there are
  quelvol ls -l Docs                       what is in one
  quelvol get Docs/report.docx             decrypt a file to here
  quelvol put report.docx Docs             encrypt it back
  quelvol get Docs/notes.txt - | more      look without leaving a copy
  quelvol cp -r Docs/2024 Docs/Archive     copy a folder
  quelvol lock Docs/a.txt -- quelvol put new.txt Docs/a.txt
                                           hold a file while it is replaced
  quelvol recover                          edits that a crash left behind

Exit codes:
  0 done, 1 failed, 2 wrong use, 3 the volume did not load, 130 interrupted;
  'lock' passes on the exit code of its command.
)";

void ApplyGlobalOptions(const std::string& config, bool trace, const Session& session) {
    if (config.empty() && !trace)
        return;
    if (session.VolumeIsLoaded())
        throw UsageError("--config and --trace belong to the first command: the volume is in use already");
    if (!config.empty()) {
        const std::wstring given = ToUtf16(config);
        std::wstring full(32'767, L'\0');
        full.resize(GetFullPathNameW(given.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
        if (GetFileAttributesW(full.c_str()) == INVALID_FILE_ATTRIBUTES)
            throw LocalError(given, GetLastError());
        SetVariable(L"QUELCRYPT_CONFIG", full);
    }
    if (trace)
        SetVariable(L"QUELCRYPT_TRACE", L"1");
}

// The library reports an unknown command, also one of "key" or "recover", as an unexpected argument.
std::string UnknownCommand(const CLI::App& app, const CLI::ParseError& error) {
    const CLI::App* above = &app;
    std::string given;
    for (auto next = app.get_subcommands(); !next.empty(); next = above->get_subcommands()) {
        above = next.front();
        given += above->get_name() + " ";
    }
    const auto known = above->get_subcommands([](const CLI::App*) { return true; });
    const std::string text = error.what(), arguments = text.substr(text.rfind(": ") + 2);
    const std::string argument = arguments.substr(given.empty() ? 0 : arguments.rfind(' ') + 1);  // below a command it names them backwards
    if (!dynamic_cast<const CLI::ExtrasError*>(&error) || known.empty() || (!given.empty() && argument.starts_with("-")))
        return {};
    std::string hint = "; 'quelvol --help' lists them";
    if (!given.empty())
        hint = "; there are:";
    for (const CLI::App* command : given.empty() ? std::vector<const CLI::App*>() : known)
        hint += " " + command->get_name();
    return "quelvol: " + given + argument + ": there is no such command" + hint + "\n";
}

void PrintHelpOrUsageError(const CLI::App& app, const CLI::ParseError& error) {
    if (const std::string unknown = UnknownCommand(app, error); !unknown.empty())
        return PrintError(unknown);
    std::ostringstream out, err;
    app.exit(error, out, err);
    PrintOut(out.str());
    if (!err.str().empty())
        PrintError("quelvol: " + err.str());
}

}  // namespace

void Session::Report(const HostError& error) {
    PrintError("quelvol: " + std::string(error.what()) + "\n");
    exitCode = error.Code();
}

int RunCommandLine(std::vector<std::string> arguments, Session& session) {
    CLI::App app{"Lists, reads and changes the files of an encrypted volume.", "quelvol"};
    app.allow_windows_style_options(false);  // '/' begins paths, not options
    app.require_subcommand(0, 1);            // with 1 an unknown command would be reported as a missing one
    app.fallthrough();
    app.footer(kFooter);

    std::string config;
    bool trace = false;
    app.add_option("--config", config, "The configuration to use (default: the variable QUELCRYPT_CONFIG)")->type_name("FILE");
    app.set_version_flag("--version", "quelvol " QUELVOL_VERSION);
    app.add_flag("--trace", trace, "Show on standard error what the volume does");
    app.parse_complete_callback([&] { ApplyGlobalOptions(config, trace, session); });

    for (const auto add :
         {AddLs,    AddStat,  AddGet,     AddPut,   AddRm,   AddMounts, AddMkdir, AddMv,     AddCp,     AddLock,    AddUnlock,
          AddLocks, AddServe, AddRecover, AddClean, AddInit, AddKey,    AddRekey, AddStatus, AddVerify, AddEncrypt, AddDecrypt})
        add(app, session);

    session.exitCode = Exit_Success;
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        if (app.get_subcommands().empty())
            throw UsageError("a command is missing; --help lists them");
    } catch (const CLI::ParseError& error) {
        PrintHelpOrUsageError(app, error);
        session.exitCode = error.get_exit_code() == 0 ? Exit_Success : Exit_Usage;
    } catch (const HostError& error) {
        session.Report(error);
    } catch (const companion::SettingsError& error) {
        session.Report(HostError(UnusableConfiguration(error.what())));
    } catch (const CQuelcryptErrorException& error) {
        session.Report(HostError(ToUtf8(error.GetDescription())));
    } catch (const std::exception& error) {
        session.Report(HostError(error.what()));
    }
    return session.exitCode;
}

int wmain(int count, wchar_t** values) {
    CatchInterrupts();
    Session session;
    try {
        std::vector<std::string> arguments;
        for (int i = 1; i < count; ++i)
            arguments.push_back(ArgumentToUtf8(values[i]));
        return RunCommandLine(std::move(arguments), session);
    } catch (const HostError& error) {
        session.Report(error);
    }
    return session.exitCode;
}
