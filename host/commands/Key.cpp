// key set NAME, key forget NAME: where the password of a key comes from.
#include <memory>
#include <set>

#include "commands/Commands.h"
#include "commands/PasswordOptions.h"
#include "companion/PasswordProof.h"
#include "companion/ProtectedText.h"
#include "companion/SettingsFile.h"
#include "companion/Terminal.h"
#include "core/Text.h"
#include "quelcrypt/QuelcryptExceptions.h"

using companion::SettingsFile;

namespace {

struct Options {
    std::string key;
    PasswordChoice password;
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

void Forget(const std::string& key) {
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
    command->require_subcommand(1);
    CLI::App* const set = command->add_subcommand("set", "Check the password with the documents, and store it");
    set->add_option("NAME", options->key, "The key, as the configuration calls it")->required();
    AddPasswordOptions(*set, options->password);
    set->callback([options] { Set(*options); });
    CLI::App* const forget = command->add_subcommand("forget", "Delete it, so that it is asked for");
    forget->add_option("NAME", options->key, "The key")->required();
    forget->callback([options] { Forget(options->key); });
    command->footer("This does not change the password of any document; 'quelvol rekey' does.");
}
