// init FOLDER: protects a folder: name, password and configuration.
#include <memory>

#include "commands/Commands.h"
#include "commands/PasswordOptions.h"
#include "companion/PasswordProof.h"
#include "companion/Paths.h"
#include "companion/SettingsFile.h"
#include "companion/Terminal.h"
#include "core/Environment.h"
#include "core/Text.h"
#include "quelcrypt/QuelcryptExceptions.h"

using companion::SettingsFile;

namespace {

struct Options {
    std::string folder, name;
    PasswordChoice password;
};

std::wstring NameFor(const Options& options, const std::wstring& path) {
    const std::wstring suggested = path.substr(path.find_last_of(L'\\') + 1);
    if (!options.name.empty())
        return ToUtf16(options.name);
    const bool isAsked =
        companion::HasTerminal() && !options.password.generate && options.password.environment.empty() && options.password.command.empty();
    const auto typed = isAsked ? companion::AskForLine(L"Name of the folder in the volume [" + suggested + L"]: ") : std::nullopt;
    if (isAsked && !typed)
        throw HostError("interrupted; nothing was changed", Exit_Interrupted);
    return typed.value_or(L"").empty() ? suggested : *typed;
}

void RequireUnprotected(const SettingsFile& file, const std::wstring& path) {
    for (const companion::ConfiguredFolder& folder : file.Get().folders)
        if (companion::IsWithin(path, folder.path) || companion::IsWithin(folder.path, path))
            throw HostError(ToUtf8(path) + ": " +
                            (path.size() == folder.path.size() ? "it is" : "it overlaps with " + ToUtf8(folder.path) + ", which is") +
                            " protected already" + (folder.name.empty() ? "" : ", as " + folder.name));
}

void RequireName(const SettingsFile& file, const std::wstring& name) {
    const char* problem = VolumePath::ComponentProblem(name);
    if (name.size() < 2)
        problem = "it has fewer than two characters";
    for (const companion::ConfiguredFolder& folder : file.Get().folders)
        if (EqualNoCase(ToUtf16(folder.name), name))
            problem = "another mount folder has it";
    if (problem)
        throw HostError(ToUtf8(name) + ": not possible as the name of a mount folder: " + problem + "; --name gives it another name");
}

// Adds the folder to the configuration as it is now, because somebody else may have changed it while questions were asked.
companion::KeyFolder Add(SettingsFile& file, const std::wstring& path, const std::wstring& name, const companion::PasswordSource& source) {
    RequireUnprotected(file, path);
    std::string key = ToUtf8(name);
    while (file.Get().passwords.contains(key))
        key += "+";
    file.AddFolder(name, path, key);
    file.SetPassword(key, source);
    return {path, key, name};
}

// Before the question for the password, which would have been answered in vain.
void RequireParent(const std::wstring& path) {
    const std::wstring parent = companion::FolderOf(path);
    if (!parent.empty() && GetFileAttributesW(companion::OpenablePath(parent).c_str()) == INVALID_FILE_ATTRIBUTES)
        throw HostError(ToShown(path) + ": the folder above it, " + ToShown(parent) + ", does not exist; make that first");
}

void MakeFolder(const std::wstring& path) {
    const std::wstring openable = companion::OpenablePath(path);
    const DWORD attributes = GetFileAttributesW(openable.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES ? !CreateDirectoryW(openable.c_str(), nullptr) : !(attributes & FILE_ATTRIBUTE_DIRECTORY))
        throw LocalError(path, attributes == INVALID_FILE_ATTRIBUTES ? GetLastError() : ERROR_DIRECTORY);
}

// For a password that was made and shown, when somebody else was quicker to change the configuration.
[[noreturn]] void ThrowUnused(const std::string& problem, const NewPassword& password) {
    throw HostError(problem + "; nothing was changed" + (password.isMade ? ", and the password that was shown above is not used" : ""));
}

// Names the containers that somebody else put there; they stay as they are.
void ReportOthers(Session& session, const SettingsFile& file, const companion::KeyFolder& folder, const companion::Secret& password) {
    for (const std::wstring& path : companion::ContainersOfOthers(file.Get(), folder, password))
        session.Report(HostError(ToShown(path) + ": left as it is: no known password opens it"));
}

void Init(Session& session, const Options& options) {
    const std::wstring path = companion::FullPath(ToUtf16(options.folder));
    SettingsFile file(companion::SettingsPath());
    RequireUnprotected(file, path);
    RequireParent(path);
    const std::wstring name = NameFor(options, path);
    RequireName(file, name);
    Add(file, path, name, {companion::PasswordSource::Kind::Prompt, {}});  // reports errors before the question for the password
    const NewPassword password = ChoosePassword(options.password, ToUtf8(name));
    MakeFolder(path);
    companion::KeyFolder folder;
    // First the configuration: a check container without it would make the next attempt with another password fail.
    try {
        SettingsFile::Change(file.Path(), [&](SettingsFile& now) {
            folder = Add(now, path, name, password.source);
            companion::ProvePassword(now.Get(), folder, password.secret, {}, companion::BeforeWriting::No);
        });
    } catch (const HostError& error) {
        ThrowUnused(error.what(), password);
    } catch (const CQuelcryptErrorException& error) {
        ThrowUnused(ToUtf8(error.GetDescription()), password);
    }
    if (companion::OpensCheckContainer(folder, password.secret) == companion::CheckResult::Missing)
        companion::ReplaceCheckContainer(folder, password.secret);
    const std::string shown = ToShown(name), called = ToUtf8(GetVariable(L"QUELVOL_COMMAND"));
    const std::string program = "\n  " + (called.empty() ? "quelvol" : called) + " ";
    PrintOut(shown + " is protected: " + ToShown(path) + "\nConfiguration: " + ToShown(file.Path()) +
             (companion::OthersMayRead(file.Path()) ? " (others may read it)" : " (only you may read it)") + "\n" +
             AboutPassword(password) + "\nWhat to do next:" + program + "status: what is in it, and what is unencrypted" + program +
             "encrypt \"" + shown + "\": encrypts what is unencrypted there" + program +
             "serve: makes it a network drive for Explorer, Finder, browsers and office programs\n");
    ReportOthers(session, SettingsFile(file.Path()), folder, password.secret);
}

}  // namespace

void AddInit(CLI::App& app, Session& session) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("init", "Protect a folder: choose its password and write the configuration");
    command->add_option("FOLDER", options->folder, "The folder on disk; a missing one is made")->required();
    command->add_option("--name", options->name, "Its name in the volume (default: its own name)");
    AddPasswordOptions(*command, options->password);
    command->footer("Files that are in the folder already stay unencrypted until 'quelvol encrypt' or their next save.");
    command->callback([&session, options] { Init(session, *options); });
}
