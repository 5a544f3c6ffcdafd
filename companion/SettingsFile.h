// Changing the configuration file for people who do not write it by hand. Everything else in it keeps its order and values; the
// file is replaced by a new one that only its user may read. A change begins by reading the file, so that no other change
// is lost; questions must be asked before.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "Settings.h"
#include "common/Owners.h"

namespace companion {

// The path of the configuration: from the variable QUELCRYPT_CONFIG, else beside the library, else in the user's own folder.
std::wstring SettingsPath();
// May anybody but its owner, the system and administrators read the file? False also when that is unknown.
bool OthersMayRead(const std::wstring& path);

class SettingsFile {
public:
    // A missing file counts as empty. Throws SettingsError for one that cannot be used, CQuelcryptErrorException for one that
    // cannot be read.
    explicit SettingsFile(std::wstring path);
    ~SettingsFile();

    // Reads the file, calls change, and replaces the file; no other run changes it meanwhile. Throws what change and the
    // constructor throw, and CQuelcryptErrorException when the file is held or cannot be written; it is then as it was.
    static void Change(const std::wstring& path, const std::function<void(SettingsFile&)>& change);

    const std::wstring& Path() const { return m_path; }
    const Settings& Get() const { return m_settings; }
    // These throw SettingsError when the configuration could not be used with the change, and then do not make it.
    void AddFolder(const std::wstring& name, const std::wstring& path, const std::string& key);
    void SetPassword(const std::string& key, const PasswordSource& source);
    // The key's new password is that of source, and from EndRekey on that of later; the former one is kept under a key of its own until
    // then.
    void BeginRekey(const std::string& key, const PasswordSource& former, const PasswordSource& source, const PasswordSource& later);
    void EndRekey(const std::string& key);

private:
    void Take(const nlohmann::ordered_json& changed);

    std::wstring m_path;
    std::unique_ptr<nlohmann::ordered_json> m_root;
    Settings m_settings;
};

// While this handle is open nobody can replace the configuration. Empty when there is no configuration.
UniqueHandle HoldSettings();

}  // namespace companion
