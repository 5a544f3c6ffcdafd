#include "SettingsFile.h"

#include <nlohmann/json.hpp>

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include "Boundary.h"
#include "Handle.h"
#include "Paths.h"
#include "Text.h"
#include "WholeFile.h"

namespace companion {
namespace {

using nlohmann::ordered_json;

struct LocalFreed {
    void operator()(void* memory) const { LocalFree(memory); }
};
template <class T>
using LocalPtr = std::unique_ptr<T, LocalFreed>;

std::wstring UserSid() {
    HANDLE handle = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &handle))
        FailWithError(L"The user cannot be found out", GetLastError());
    const Handle token(handle);
    alignas(TOKEN_USER) char user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD size = 0;
    wchar_t* text = nullptr;
    if (!GetTokenInformation(token.Get(), TokenUser, user, sizeof(user), &size) ||
        !ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user)->User.Sid, &text))
        FailWithError(L"The user cannot be found out", GetLastError());
    return LocalPtr<wchar_t>(text).get();
}

// For the user alone; what is made in a folder of this kind is so as well.
LocalPtr<void> PrivateRights() {
    const std::wstring rights = L"D:P(A;OICI;FA;;;" + UserSid() + L")";
    void* descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(rights.c_str(), SDDL_REVISION_1, &descriptor, nullptr))
        FailWithError(L"Access rights cannot be made", GetLastError());
    return LocalPtr<void>(descriptor);
}

void MakeFolders(const std::wstring& folder, SECURITY_ATTRIBUTES& rights) {
    if (GetFileAttributesW(OpenablePath(folder).c_str()) != INVALID_FILE_ATTRIBUTES || FolderOf(folder).empty())
        return;
    MakeFolders(FolderOf(folder), rights);
    CreateDirectoryW(OpenablePath(folder).c_str(), &rights);
}

ordered_json TextOf(const std::wstring& text) { return ToUtf8(text); }

}  // namespace

bool OthersMayRead(const std::wstring& path) {
    PACL list = nullptr;
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetNamedSecurityInfoW(OpenablePath(path).c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION | OWNER_SECURITY_INFORMATION, &owner,
                              nullptr, &list, nullptr, &descriptor) != ERROR_SUCCESS)
        return false;
    const LocalPtr<void> owned(descriptor);
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
    const std::string text = ReadWholeFile(m_path, sizeLimit);
    m_settings = ParseSettings(text, FolderOf(m_path));
    *m_root = ordered_json::parse(text);
}

SettingsFile::~SettingsFile() = default;

void SettingsFile::Change(const ordered_json& changed) {
    m_settings = ParseSettings(changed.dump(), FolderOf(m_path));
    *m_root = changed;
}

void SettingsFile::AddFolder(const std::wstring& name, const std::wstring& path, const std::string& key) {
    ordered_json changed = *m_root;
    changed["folders"].push_back(
        {{"name", TextOf(name)}, {"path", TextOf(path)}, {"owner", key}, {"policy", "encrypt"}, {"targetKey", key}});
    Change(changed);
}

void SettingsFile::SetPassword(const std::string& key, const PasswordSource& source) {
    using Kind = PasswordSource::Kind;
    ordered_json changed = *m_root;
    ordered_json& place = changed["passwords"][key];
    switch (source.kind) {
        case Kind::Plain: place = source.value; break;
        case Kind::Prompt: place = {{"prompt", true}}; break;
        case Kind::Environment: place = {{"environment", source.value}}; break;
        case Kind::Command: place = {{"command", source.value}}; break;
        case Kind::Protected: place = {{"protected", source.value}}; break;
    }
    Change(changed);
}

void SettingsFile::RemovePassword(const std::string& key) {
    ordered_json changed = *m_root;
    changed["passwords"].erase(key);
    Change(changed);
}

void SettingsFile::Save() const {
    const LocalPtr<void> rights = PrivateRights();
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), rights.get(), FALSE};
    MakeFolders(FolderOf(m_path), attributes);
    const std::wstring aside = m_path + L".new";
    DeleteFileW(OpenablePath(aside).c_str());
    Handle file(CreateFileW(OpenablePath(aside).c_str(), GENERIC_WRITE, 0, &attributes, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    const std::string text = m_root->dump(4) + "\n";
    DWORD written = 0;
    if (!file || !WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) || !FlushFileBuffers(file.Get()))
        FailWithError(m_path + L" cannot be written", GetLastError());
    file.Close();
    if (!MoveFileExW(OpenablePath(aside).c_str(), OpenablePath(m_path).c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        FailWithError(m_path + L" cannot be written", GetLastError());
}

}  // namespace companion
