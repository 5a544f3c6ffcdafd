// What one configuration file says. Read once, never changed; docs/companion.md describes the file.
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

// One configured folder. A field that is not there is inherited; an empty one ends what would be inherited.
struct ConfiguredFolder {
    std::wstring path;  // as FullPath makes it
    std::string name;   // of the protected folder, UTF-8; empty: this entry only sets fields
    ProtectedFolderType type = PFT_General;
    std::optional<std::string> owner;
    std::optional<std::string> policy;
    std::optional<std::string> targetKey;
};

// What holds for a folder, UTF-8; empty: not set.
struct BoxSettings {
    std::string owner;
    std::string policy;
    std::string targetKey;
};

// Where the password of a target key comes from.
struct PasswordSource {
    enum class Kind { Plain, Prompt, Environment, Command, Protected };
    Kind kind = Kind::Plain;
    // UTF-8: the password itself, the variable's name, the command line, or what ProtectedText.h made; of a prompt nothing.
    std::string value;
    ~PasswordSource() { Wipe(value); }
    bool operator==(const PasswordSource&) const = default;
};

// The folder whose documents have one password: all below it but the folders that say another key.
struct KeyFolder {
    std::wstring path;
    std::string key;    // UTF-8; never empty
    std::wstring name;  // as people know it
};

struct Settings {
    std::vector<ConfiguredFolder> folders;            // in the file's order
    std::map<std::string, PasswordSource> passwords;  // by target key, UTF-8
    // Of a key whose documents get a new password: the key under which the former one is kept until all have it.
    std::map<std::string, std::string> formerKeys;
    std::string defaultKey;
    std::vector<std::wstring> excluded;  // patterns of file names
    std::wstring logFile;                // full path; "-": standard error; empty: none
    std::uint32_t logLevel = 0;          // a LogLevel; 0: nothing

    // The values for a folder or file, each from the nearest configured folder that has it. Nothing when the path lies in
    // no configured folder.
    std::optional<BoxSettings> BoxOf(const std::wstring& fullPath) const;
    // The folder that says which key the path has. Nothing: in no configured folder, or there is no key.
    std::optional<KeyFolder> KeyFolderOf(const std::wstring& fullPath) const;
    // The same two for a path that was written in the machine's ANSI code page, and perhaps lost letters there.
    std::optional<BoxSettings> BoxOfAnsi(const std::wstring& fullPath) const;
    std::optional<KeyFolder> KeyFolderOfAnsi(const std::wstring& fullPath) const;
    // The folders that say that they, and what is below them, have this key.
    std::vector<KeyFolder> FoldersOfKey(const std::string& key) const;
};

// Paths in text count from baseFolder. Throws SettingsError.
Settings ParseSettings(std::string_view text, const std::wstring& baseFolder);

}  // namespace companion
