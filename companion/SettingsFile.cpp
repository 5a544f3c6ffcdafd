#include "SettingsFile.h"

#include <nlohmann/json.hpp>

#include <windows.h>

#include <aclapi.h>

#include "Boundary.h"
#include "Paths.h"
#include "PrivateRights.h"
#include "Text.h"
#include "WholeFile.h"
#include "common/Owners.h"
#include "common/Patience.h"

namespace companion {
namespace {

using nlohmann::ordered_json;

struct LocalFreed {
    void operator()(void* memory) const { LocalFree(memory); }
};

void MakeFolders(const std::wstring& folder, PrivateRights& rights) {
    if (GetFileAttributesW(OpenablePath(folder).c_str()) != INVALID_FILE_ATTRIBUTES || FolderOf(folder).empty())
        return;
    MakeFolders(FolderOf(folder), rights);
    CreateDirectoryW(OpenablePath(folder).c_str(), rights.Get());
}

ordered_json TextOf(const std::wstring& text) { return ToUtf8(text); }

ordered_json SourceOf(const PasswordSource& source) {
    using Kind = PasswordSource::Kind;
    switch (source.kind) {
        case Kind::Plain: break;
        case Kind::Prompt: return {{"prompt", true}};
        case Kind::Environment: return {{"environment", source.value}};
        case Kind::Command: return {{"command", source.value}};
        case Kind::Protected: return {{"protected", source.value}};
    }
    return source.value;
}

// Creates and opens the new file. It is also the lock for changes of the configuration: while it is open, nobody else can
// open it to write or delete it, but its owner can rename it. A file that nobody has open was left by a crash.
UniqueHandle OnlyNewFile(const std::wstring& path) {
    PrivateRights rights(PrivateRights::For::File);
    UniqueHandle file;
    RepeatForAMoment([&] {
        OwnHandle(CreateFileW(path.c_str(), DELETE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE | FILE_FLAG_OPEN_REPARSE_POINT,
                              nullptr));
        file = OwnHandle(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, rights.Get(), CREATE_NEW,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
        return static_cast<bool>(file);
    });
    return file;
}

}  // namespace

bool OthersMayRead(const std::wstring& path) {
    PACL list = nullptr;
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetNamedSecurityInfoW(OpenablePath(path).c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION | OWNER_SECURITY_INFORMATION, &owner,
                              nullptr, &list, nullptr, &descriptor) != ERROR_SUCCESS)
        return false;
    const std::unique_ptr<void, LocalFreed> owned(descriptor);
    if (!list)
        return true;
    for (DWORD index = 0; index < list->AceCount; ++index) {
        ACCESS_ALLOWED_ACE* entry = nullptr;
        if (!GetAce(list, index, reinterpret_cast<void**>(&entry)) || entry->Header.AceType != ACCESS_ALLOWED_ACE_TYPE ||
            (entry->Header.AceFlags & INHERIT_ONLY_ACE) || !(entry->Mask & (FILE_READ_DATA | GENERIC_READ | GENERIC_ALL)))
            continue;
        PSID who = &entry->SidStart;
        if (!EqualSid(who, owner) && !IsWellKnownSid(who, WinLocalSystemSid) && !IsWellKnownSid(who, WinBuiltinAdministratorsSid) &&
            !IsWellKnownSid(who, WinCreatorOwnerSid))
            return true;
    }
    return false;
}

SettingsFile::SettingsFile(std::wstring path) : m_path(std::move(path)), m_root(std::make_unique<ordered_json>(ordered_json::object())) {
    if (GetFileAttributesW(OpenablePath(m_path).c_str()) == INVALID_FILE_ATTRIBUTES && GetLastError() != ERROR_ACCESS_DENIED)
        return;
    constexpr std::size_t sizeLimit = 16 << 20;
    const Secret text(ReadWholeFile(m_path, sizeLimit));
    m_settings = ParseSettings(text.Text(), FolderOf(m_path));
    *m_root = ordered_json::parse(text.Text());
}

SettingsFile::~SettingsFile() = default;

void SettingsFile::Change(const std::wstring& path, const std::function<void(SettingsFile&)>& change) {
    PrivateRights rights(PrivateRights::For::Folder);
    MakeFolders(FolderOf(path), rights);
    const std::wstring place = OpenablePath(path), aside = OpenablePath(path + L".new");
    UniqueHandle file = OnlyNewFile(aside);
    if (!file)
        FailWithError(path + L" cannot be written, perhaps because another program changes it just now", GetLastError());
    try {
        SettingsFile settings(path);
        change(settings);
        const Secret whole(settings.m_root->dump(4) + "\n");
        const std::string_view text = whole.Text();
        DWORD written = 0;
        const auto putInPlace = [&] {
            return MoveFileExW(aside.c_str(), place.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
        };
        if (!WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) || written != text.size() ||
            !FlushFileBuffers(file.Get()) || !RepeatForAMoment(putInPlace))
            FailWithError(path + L" cannot be written", GetLastError());
    } catch (...) {
        DeleteFileW(aside.c_str());
        throw;
    }
}

void SettingsFile::Take(const ordered_json& changed) {
    m_settings = ParseSettings(Secret(changed.dump()).Text(), FolderOf(m_path));
    *m_root = changed;
}

void SettingsFile::AddFolder(const std::wstring& name, const std::wstring& path, const std::string& key) {
    ordered_json changed = *m_root;
    changed["folders"].push_back(
        {{"name", TextOf(name)}, {"path", TextOf(path)}, {"owner", key}, {"policy", "encrypt"}, {"targetKey", key}});
    Take(changed);
}

void SettingsFile::SetPassword(const std::string& key, const PasswordSource& source) {
    ordered_json changed = *m_root;
    changed["passwords"][key] = SourceOf(source);
    Take(changed);
}

void SettingsFile::BeginRekey(const std::string& key, const PasswordSource& former, const PasswordSource& source,
                              const PasswordSource& later) {
    std::string formerKey = key + " (old)";
    while (m_settings.passwords.contains(formerKey) || !m_settings.FoldersOfKey(formerKey).empty())
        formerKey += "+";
    ordered_json changed = *m_root;
    changed["passwords"][formerKey] = SourceOf(former);
    changed["passwords"][key] = SourceOf(source);
    changed["formerKeys"][key] = formerKey;
    changed["laterPasswords"][key] = SourceOf(later);
    Take(changed);
}

void SettingsFile::EndRekey(const std::string& key) {
    ordered_json changed = *m_root;
    changed["passwords"].erase(m_settings.formerKeys.at(key));
    if (const auto later = m_settings.laterPasswords.find(key); later != m_settings.laterPasswords.end())
        changed["passwords"][key] = SourceOf(later->second);
    for (const char* const list : {"formerKeys", "laterPasswords"})
        if (changed.contains(list) && changed[list].erase(key) > 0 && changed[list].empty())
            changed.erase(list);
    Take(changed);
}

UniqueHandle HoldSettings() {
    return OwnHandle(CreateFileW(OpenablePath(SettingsPath()).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                 OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

}  // namespace companion
