// The content of one configuration file. Read once, never changed; docs/configuration.md describes the file.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Secret.h"
#include "quelcrypt/IVirtualVolume.h"

namespace companion {

// Why a configuration file cannot be used: "(line,column): reason". Never quotes the file: it holds passwords.
class SettingsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One configured folder. A missing field is inherited from the folder above; an empty one is not set.
struct ConfiguredFolder {
    std::wstring path;  // as FullPath makes it
    std::string name;   // of the protected folder, UTF-8; empty: this entry only sets fields
    ProtectedFolderType type = PFT_General;
    std::optional<std::string> owner;
    std::optional<std::string> policy;
    std::optional<std::string> targetKey;
};

// The values for a folder, UTF-8; empty: not set.
struct BoxSettings {
    std::string owner;
    std::string policy;
    std::string targetKey;
};

// Where the password of a target key comes from.
struct PasswordSource {
    enum class Kind { Plain, Prompt, Environment, Command, Protected };
    Kind kind = Kind::Plain;
    // UTF-8: the password itself, the variable's name, the command line, or the protected form; empty for a prompt.
    std::string value;
    ~PasswordSource() { Wipe(value); }
    bool operator==(const PasswordSource&) const = default;
};

// A folder whose documents have one password, with all folders below it except those with another key.
struct KeyFolder {
    std::wstring path;
    std::string key;    // UTF-8; never empty
    std::wstring name;  // as people know it
};

struct Settings {
    std::wstring ownPath;                             // of the file itself; empty: of none
    std::vector<ConfiguredFolder> folders;            // in the file's order
    std::map<std::string, PasswordSource> passwords;  // by target key, UTF-8
    // For a key whose documents get a new password: the key under which the former one is kept until all have the new one.
    std::map<std::string, std::string> formerKeys;
    std::map<std::string, PasswordSource> laterPasswords;  // where the new one of such a key will then come from
    std::string defaultKey;
    std::vector<std::wstring> excluded;  // patterns of file names
    std::wstring logFile;                // full path; "-": standard error; empty: none
    std::uint32_t logLevel = 0;          // a LogLevel; 0: nothing

    // The values for a folder or file, each from the nearest configured folder that has it. Nothing when the path is not in
    // a configured folder.
    std::optional<BoxSettings> BoxOf(const std::wstring& fullPath) const;
    // The configured folder from which the path has its key. Nothing: it is not in a configured folder, or has no key.
    std::optional<KeyFolder> KeyFolderOf(const std::wstring& fullPath) const;
    // The same for a path that lost characters when it was written in the system's narrow ones.
    std::optional<KeyFolder> KeyFolderOfNarrow(const std::wstring& fullPath) const;
    // The folders that are configured with this key.
    std::vector<KeyFolder> FoldersOfKey(const std::string& key) const;
};

// Relative paths in text begin at baseFolder. Throws SettingsError.
Settings ParseSettings(std::string_view text, const std::wstring& baseFolder);

}  // namespace companion
