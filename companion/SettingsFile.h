// Changing the configuration file for people who do not write it by hand. What is not changed keeps its order and values; the
// file is replaced as a whole, by one that only its user may read. A change begins with what the file says at that moment, so that
// nobody's is lost: questions are asked before.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "Handle.h"
#include "Settings.h"

namespace companion {

// Where the configuration is looked for: the variable QUELCRYPT_CONFIG, else beside the library, else in the user's own folder.
std::wstring SettingsPath();
// May anybody but its owner, the system and administrators read the file? False also when that cannot be told.
bool OthersMayRead(const std::wstring& path);

class SettingsFile {
public:
    // A missing file is an empty one. Throws SettingsError for one that cannot be used, CQuelcryptErrorException for one that
    // cannot be read.
    explicit SettingsFile(std::wstring path);
    ~SettingsFile();

    // Reads the file, lets change change it, and puts the result in place; no other run changes it meanwhile. Throws what change throws,
    // what the constructor throws, and CQuelcryptErrorException when the file is held or cannot be written; it is then as it was.
    static void Change(const std::wstring& path, const std::function<void(SettingsFile&)>& change);

    const std::wstring& Path() const { return m_path; }
    const Settings& Get() const { return m_settings; }
    // These throw SettingsError when the configuration could not be used with the change; it is then without it.
    void AddFolder(const std::wstring& name, const std::wstring& path, const std::string& key);
    void SetPassword(const std::string& key, const PasswordSource& source);
    // The password of the key becomes the former one, kept under a key of its own until EndRekey; the new one is that of source.
    void BeginRekey(const std::string& key, const PasswordSource& former, const PasswordSource& source);
    void EndRekey(const std::string& key, const PasswordSource& source);

private:
    void Take(const nlohmann::ordered_json& changed);

    std::wstring m_path;
    std::unique_ptr<nlohmann::ordered_json> m_root;
    Settings m_settings;
};

// While this is open nobody puts another configuration in place. Empty when there is none.
Handle HoldSettings();

}  // namespace companion
