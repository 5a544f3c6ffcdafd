#include "Settings.h"

#include <algorithm>
#include <functional>
#include <initializer_list>

#include <nlohmann/json.hpp>

#include "Paths.h"
#include "PlacedJson.h"
#include "Text.h"
#include "common/CharacterSets.h"
#include "quelcrypt/QuelcryptLib.h"

namespace companion {
namespace {

using nlohmann::json;

// Reads the values of one document; every error names its place.
class SettingsReader {
public:
    SettingsReader(const PlacedJson& document, const std::wstring& baseFolder) : m_document(document), m_baseFolder(baseFolder) {}

    Settings Read() {
        const json& root = m_document.root;
        OnlyMembers(root, {}, {"folders", "passwords", "formerKeys", "laterPasswords", "defaultKey", "exclude", "log"});
        ForEach(root, {}, "folders", [this](const json& value, const JsonPath& path) { ReadFolder(value, path); });
        if (const json* passwords = Member(root, "passwords"))
            ReadPasswords(*passwords, {"passwords"}, m_settings.passwords);
        if (const json* formerKeys = Member(root, "formerKeys"))
            ReadFormerKeys(*formerKeys, {"formerKeys"});
        if (const json* later = Member(root, "laterPasswords"))
            ReadPasswords(*later, {"laterPasswords"}, m_settings.laterPasswords);
        if (Member(root, "defaultKey")) {
            m_settings.defaultKey = Text(root, {}, "defaultKey");
            if (!m_settings.defaultKey.empty())
                RequirePassword(m_settings.defaultKey, {"defaultKey"});
        }
        ForEach(root, {}, "exclude",
                [this](const json& value, const JsonPath& path) { m_settings.excluded.push_back(FromUtf8(AsText(value, path))); });
        if (const json* log = Member(root, "log"))
            ReadLog(*log, {"log"});
        return std::move(m_settings);
    }

private:
    [[noreturn]] void Complain(const JsonPath& path, const std::string& reason) const {
        throw SettingsError(m_document.PlaceOf(path) + reason);
    }

    static const json* Member(const json& object, const char* name) {
        const auto found = object.find(name);
        return found == object.end() ? nullptr : &*found;
    }

    static JsonPath Below(JsonPath path, const std::string& member) {
        path.push_back(member);
        return path;
    }

    // Otherwise a misspelt member would be ignored silently.
    void OnlyMembers(const json& object, const JsonPath& path, std::initializer_list<std::string_view> known) const {
        if (!object.is_object())
            Complain(path, "an object is expected here");
        for (const auto& member : object.items()) {
            if (std::find(known.begin(), known.end(), member.key()) == known.end())
                Complain(Below(path, member.key()), "\"" + member.key() + "\" is not known here");
        }
    }

    std::string AsText(const json& value, const JsonPath& path) const {
        if (!value.is_string())
            Complain(path, "a text is expected here");
        const auto& text = value.get_ref<const std::string&>();
        if (text.find('\0') != std::string::npos)
            Complain(path, "a text must not contain the character 0");
        return text;
    }

    std::string Text(const json& object, const JsonPath& path, const char* name) const {
        const json* const value = Member(object, name);
        return value ? AsText(*value, Below(path, name)) : std::string();
    }

    std::optional<std::string> OptionalText(const json& object, const JsonPath& path, const char* name) const {
        if (!Member(object, name))
            return std::nullopt;
        return Text(object, path, name);
    }

    void ForEach(const json& object, const JsonPath& path, const char* name,
                 const std::function<void(const json&, const JsonPath&)>& read) const {
        const json* const list = Member(object, name);
        if (!list)
            return;
        const JsonPath listPath = Below(path, name);
        if (!list->is_array())
            Complain(listPath, "a list is expected here");
        for (std::size_t index = 0; index < list->size(); ++index)
            read((*list)[index], Below(listPath, std::to_string(index)));
    }

    void ReadFolder(const json& value, const JsonPath& path) {
        OnlyMembers(value, path, {"name", "path", "type", "owner", "policy", "targetKey"});
        ConfiguredFolder folder;
        folder.name = Text(value, path, "name");
        if (Member(value, "name"))
            CheckName(folder.name, Below(path, "name"));
        const std::string folderPath = Text(value, path, "path");
        if (folderPath.empty())
            Complain(Member(value, "path") ? Below(path, "path") : path, "a folder must have a path");
        folder.path = FullPath(FromUtf8(folderPath), m_baseFolder);
        for (const ConfiguredFolder& other : m_settings.folders) {
            if (EqualNoCase(other.path, folder.path))
                Complain(Below(path, "path"), "this path has an entry already");
        }
        if (Member(value, "type"))
            folder.type = FolderType(Text(value, path, "type"), Below(path, "type"));
        folder.owner = OptionalText(value, path, "owner");
        folder.policy = OptionalText(value, path, "policy");
        folder.targetKey = OptionalText(value, path, "targetKey");
        if (FromUtf8(folder.name).size() == 1)
            Complain(Below(path, "name"), "a name must have at least two characters: one alone would be taken for a drive");
        m_settings.folders.push_back(std::move(folder));
    }

    void CheckName(const std::string& name, const JsonPath& path) const {
        if (name.empty())
            Complain(path, "the name is empty");
        if (name.find_first_of("\\/:*?\"<>|") != std::string::npos)
            Complain(path, "a name cannot contain any of \\ / : * ? \" < > |");
        for (const ConfiguredFolder& other : m_settings.folders) {
            if (EqualNoCase(FromUtf8(other.name), FromUtf8(name)))
                Complain(path, "another folder has this name");
        }
    }

    ProtectedFolderType FolderType(const std::string& text, const JsonPath& path) const {
        if (text == "general")
            return PFT_General;
        if (text == "dropbox")
            return PFT_Dropbox;
        Complain(path, "the type is \"general\" or \"dropbox\"");
    }

    // Calls read(key, value, place) for each member of an object whose members are named for target keys.
    template <class Read>
    void ForEachKey(const json& members, const JsonPath& path, const std::string& what, Read read) {
        if (!members.is_object())
            Complain(path, "an object is expected here: " + what + " for each target key");
        for (const auto& member : members.items())
            read(member.key(), member.value(), Below(path, member.key()));
    }

    void ReadPasswords(const json& passwords, const JsonPath& path, std::map<std::string, PasswordSource>& sources) {
        ForEachKey(passwords, path, "a password", [this, &sources](const std::string& key, const json& value, const JsonPath& place) {
            if (key.empty())
                Complain(place, "a target key must have a name");
            sources.emplace(key, Source(value, place));
        });
    }

    void RequirePassword(const std::string& key, const JsonPath& path) const {
        if (!m_settings.passwords.contains(key))
            Complain(path, "no password is given for this key");
    }

    void ReadFormerKeys(const json& formerKeys, const JsonPath& path) {
        ForEachKey(formerKeys, path, "a key", [this](const std::string& key, const json& value, const JsonPath& place) {
            const std::string former = AsText(value, place);
            RequirePassword(key, place);
            RequirePassword(former, place);
            m_settings.formerKeys.emplace(key, former);
        });
    }

    // A text is the password itself; an object has one member, which says where the password is.
    PasswordSource Source(const json& value, const JsonPath& place) const {
        using Kind = PasswordSource::Kind;
        if (!value.is_object()) {
            PasswordSource source{Kind::Plain, AsText(value, place)};
            if (source.value.empty())
                Complain(place, "the password is empty");
            return source;
        }
        constexpr std::pair<const char*, Kind> kinds[] = {
            {"environment", Kind::Environment}, {"command", Kind::Command}, {"protected", Kind::Protected}};
        OnlyMembers(value, place, {"prompt", "environment", "command", "protected"});
        if (value.size() != 1)
            Complain(place, "one of \"prompt\", \"environment\", \"command\" and \"protected\" is expected here");
        for (const auto& [name, kind] : kinds) {
            const std::string text = Text(value, place, name);
            if (Member(value, name) && text.empty())
                Complain(Below(place, name), "the text is empty");
            if (!text.empty())
                return {kind, text};
        }
        if (*Member(value, "prompt") != json(true))
            Complain(Below(place, "prompt"), "only true is expected here");
        return {Kind::Prompt, {}};
    }

    void ReadLog(const json& log, const JsonPath& path) {
        OnlyMembers(log, path, {"file", "level"});
        const std::string file = Text(log, path, "file");
        if (file.empty())
            Complain(path, "a log must have a file; \"-\" is standard error");
        m_settings.logFile = file == "-" ? L"-" : FullPath(FromUtf8(file), m_baseFolder);
        m_settings.logLevel = LogLevel_Warning;
        if (Member(log, "level"))
            m_settings.logLevel = Level(Text(log, path, "level"), Below(path, "level"));
    }

    std::uint32_t Level(const std::string& text, const JsonPath& path) const {
        constexpr std::pair<std::string_view, std::uint32_t> levels[] = {{"off", 0},
                                                                         {"error", LogLevel_Error},
                                                                         {"warning", LogLevel_Warning},
                                                                         {"information", LogLevel_Information},
                                                                         {"trace", LogLevel_Trace}};
        for (const auto& [name, level] : levels) {
            if (text == name)
                return level;
        }
        Complain(path, "the level is \"off\", \"error\", \"warning\", \"information\" or \"trace\"");
    }

    const PlacedJson& m_document;
    const std::wstring& m_baseFolder;
    Settings m_settings;
};

using PathForm = std::wstring (*)(const std::wstring&);
std::wstring AsItIs(const std::wstring& path) { return path; }
std::wstring ThroughNarrow(const std::wstring& path) { return Widened(Narrowed(path, CharacterSet::System), CharacterSet::System); }

// The configured folders that contain the path, the nearest first. asCompared converts a folder's path to the form of fullPath.
std::vector<const ConfiguredFolder*> Ancestors(const std::vector<ConfiguredFolder>& folders, const std::wstring& fullPath,
                                               PathForm asCompared) {
    std::vector<const ConfiguredFolder*> ancestors;
    for (const ConfiguredFolder& folder : folders) {
        if (IsWithin(fullPath, asCompared(folder.path)))
            ancestors.push_back(&folder);
    }
    std::stable_sort(ancestors.begin(), ancestors.end(),
                     [](const ConfiguredFolder* left, const ConfiguredFolder* right) { return left->path.size() > right->path.size(); });
    return ancestors;
}

std::optional<BoxSettings> NearestBox(const std::vector<const ConfiguredFolder*>& ancestors) {
    if (ancestors.empty())
        return std::nullopt;
    const auto nearest = [&ancestors](std::optional<std::string> ConfiguredFolder::*field) {
        for (const ConfiguredFolder* folder : ancestors) {
            if (folder->*field)
                return *(folder->*field);
        }
        return std::string();
    };
    return BoxSettings{nearest(&ConfiguredFolder::owner), nearest(&ConfiguredFolder::policy), nearest(&ConfiguredFolder::targetKey)};
}

std::optional<KeyFolder> NearestKey(const std::vector<const ConfiguredFolder*>& ancestors, const std::string& defaultKey) {
    if (ancestors.empty())
        return std::nullopt;
    const auto says = std::find_if(ancestors.begin(), ancestors.end(), [](const auto* folder) { return folder->targetKey.has_value(); });
    const ConfiguredFolder& folder = says == ancestors.end() ? *ancestors.back() : **says;
    const std::string key = folder.targetKey.value_or("").empty() ? defaultKey : *folder.targetKey;
    if (key.empty())
        return std::nullopt;
    return KeyFolder{folder.path, key, folder.name.empty() ? folder.path : FromUtf8(folder.name)};
}

}  // namespace

std::optional<BoxSettings> Settings::BoxOf(const std::wstring& fullPath) const { return NearestBox(Ancestors(folders, fullPath, AsItIs)); }

std::optional<KeyFolder> Settings::KeyFolderOf(const std::wstring& fullPath) const {
    return NearestKey(Ancestors(folders, fullPath, AsItIs), defaultKey);
}

std::optional<KeyFolder> Settings::KeyFolderOfNarrow(const std::wstring& fullPath) const {
    return NearestKey(Ancestors(folders, fullPath, ThroughNarrow), defaultKey);
}

std::vector<KeyFolder> Settings::FoldersOfKey(const std::string& key) const {
    std::vector<KeyFolder> found;
    for (const ConfiguredFolder& folder : folders)
        if (const auto holder = KeyFolderOf(folder.path); holder && holder->key == key && holder->path == folder.path)
            found.push_back(*holder);
    return found;
}

Settings ParseSettings(std::string_view text, const std::wstring& baseFolder) {
    const PlacedJson document(text);
    return SettingsReader(document, baseFolder).Read();
}

}  // namespace companion
