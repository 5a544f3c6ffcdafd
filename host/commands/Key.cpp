// key set NAME, key forget NAME: where the password of a key comes from.
#include <memory>
#include <set>

#include "commands/Commands.h"
#include "commands/PasswordOptions.h"
#include "companion/KeyRing.h"
#include "companion/PasswordProof.h"
#include "companion/ProtectedText.h"
#include "companion/SettingsFile.h"
#include "companion/Terminal.h"
#include "core/Interrupt.h"
#include "core/Text.h"
#include "quelcrypt/QuelcryptExceptions.h"

using companion::SettingsFile;

namespace {

struct Options {
    std::string key;
    PasswordChoice password;
    bool isSure = false;
};

// The password is not a new one: it must open the documents that are there.
void RequireRight(const SettingsFile& file, const std::string& key, const companion::Secret& secret) {
    for (const companion::ConfiguredFolder& folder : file.Get().folders)
        if (const auto holder = file.Get().KeyFolderOf(folder.path); holder && holder->key == key)
            companion::ProvePassword(file.Get(), *holder, secret, {}, companion::BeforeWriting::No);
}

void RequireKey(const SettingsFile& file, const std::string& key) {
    std::set<std::string> keys{file.Get().defaultKey};
    for (const auto& [name, source] : file.Get().passwords)
        keys.insert(name);
    for (const companion::ConfiguredFolder& folder : file.Get().folders)
        keys.insert(folder.targetKey.value_or(""));
    keys.erase("");
    std::string names;
    for (const std::string& name : keys)
        names += (names.empty() ? "" : ", ") + name;
    if (!keys.contains(key))
        throw HostError(key + ": there is no such key; " +
                        (names.empty() ? "'quelvol init FOLDER' makes the first one" : "the keys are: " + names));
}

// Until rekey has finished, the configuration may be the only place that has the two passwords.
void RequireChangeable(const SettingsFile& file, const std::string& key) {
    RequireKey(file, key);
    for (const auto& [rekeyed, former] : file.Get().formerKeys)
        if (key == rekeyed || key == former)
            throw HostError(key + ": 'quelvol rekey' of " + rekeyed + " is not finished; run it again first");
}

void Set(const Options& options) {
    RequireChangeable(SettingsFile(companion::SettingsPath()), options.key);
    PasswordChoice choice = options.password;
    choice.allowWeak = true;  // the documents have it already
    const NewPassword password = ChoosePassword(choice, options.key);
    SettingsFile::Change(companion::SettingsPath(), [&](SettingsFile& file) {
        RequireChangeable(file, options.key);
        file.SetPassword(options.key, password.source);
        try {
            RequireRight(file, options.key, password.secret);
        } catch (const CQuelcryptErrorException& error) {
            throw HostError(ToUtf8(error.GetDescription()) + "; nothing was changed. 'quelvol rekey' gives a folder a new password");
        }
    });
    PrintOut(AboutPassword(password));
}

// The configuration may be the only place that has it.
void RequireKnownElsewhere(const SettingsFile& file, const std::string& key) {
    const auto source = file.Get().passwords.find(key);
    const bool isStored = source != file.Get().passwords.end() && (source->second.kind == companion::PasswordSource::Kind::Protected ||
                                                                   source->second.kind == companion::PasswordSource::Kind::Plain);
    if (!isStored)
        return;
    const auto typed = companion::AskForPassword(ToUtf16("Password of " + key + ", to be sure that you have it: "));
    StopIfInterrupted();
    if (typed != companion::PasswordOf(file.Get(), key, companion::Asking::Forbidden))
        throw HostError(key + ": that is not its password, which is therefore still stored; --yes deletes it all the same");
}

void Forget(const std::string& key, bool isSure) {
    RequireChangeable(SettingsFile(companion::SettingsPath()), key);
    if (!isSure)
        RequireKnownElsewhere(SettingsFile(companion::SettingsPath()), key);
    SettingsFile::Change(companion::SettingsPath(), [&](SettingsFile& file) {
        RequireChangeable(file, key);
        file.SetPassword(key, {companion::PasswordSource::Kind::Prompt, {}});
    });
    PrintOut("The password of " + key + " is no longer stored; whoever uses it is asked for it.\n");
}

}  // namespace

void AddKey(CLI::App& app, Session&) {
    const auto options = std::make_shared<Options>();
    CLI::App* const command = app.add_subcommand("key", "Store the password of a key, or no longer store it");
    command->require_subcommand(0, 1);  // as in RunCommandLine
    CLI::App* const set = command->add_subcommand("set", "Check the password with the documents, and store it");
    set->add_option("NAME", options->key, "The key, as the configuration calls it")->required();
    AddPasswordOptions(*set, options->password);
    set->callback([options] { Set(*options); });
    CLI::App* const forget = command->add_subcommand("forget", "Delete it, so that it is asked for");
    forget->add_option("NAME", options->key, "The key")->required();
    forget->add_flag("--yes", options->isSure, "Without typing it once, to prove that it is known elsewhere");
    forget->callback([options] { Forget(options->key, options->isSure); });
    command->callback([command] {
        if (command->get_subcommands().empty())
            throw UsageError("key: 'set NAME' or 'forget NAME' is missing");
    });
    command->footer("This does not change the password of any document; 'quelvol rekey' does.");
}
