// Changing the configuration file for people who do not write it by hand. What is not changed keeps its order and values; the
// file is replaced as a whole, by one that only its user may read.
#pragma once

#include <memory>
#include <string>

#include <nlohmann/json_fwd.hpp>

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

    const std::wstring& Path() const { return m_path; }
    const Settings& Get() const { return m_settings; }
    // These throw SettingsError when the configuration could not be used with the change; it is then without it.
    void AddFolder(const std::wstring& name, const std::wstring& path, const std::string& key);
    void SetPassword(const std::string& key, const PasswordSource& source);
    void RemovePassword(const std::string& key);
    // Throws CQuelcryptErrorException; the old file then still stands.
    void Save() const;

private:
    void Change(const nlohmann::ordered_json& changed);

    std::wstring m_path;
    std::unique_ptr<nlohmann::ordered_json> m_root;
    Settings m_settings;
};

}  // namespace companion
