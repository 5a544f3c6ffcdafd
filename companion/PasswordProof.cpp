#include "PasswordProof.h"

#include <map>
#include <memory>
#include <mutex>
#include <string_view>

#include <windows.h>

#include "Boundary.h"
#include "ContainerContent.h"
#include "ContainerFile.h"
#include "ContainerWriter.h"
#include "KeyRing.h"
#include "Paths.h"
#include "Text.h"
#include "common/Halves.h"
#include "common/Links.h"
#include "common/Placeholder.h"

namespace companion {
namespace {

constexpr const wchar_t* kCheckName = L"\\password.zip";

std::wstring CheckPath(const KeyFolder& folder) { return (folder.path + L'\\').append(kSideFolderName) + kCheckName; }

enum class Proof { None, For, Against };

bool Opens(const std::wstring& path, const Secret& password) {
    try {
        ContainerFile file(path);
        return file.OpenError() == 0 && file.Zip() && IsWholeUnder(file, password);
    } catch (const CQuelcryptErrorException&) {
        return false;
    }
}

bool OpensWithAnother(const Settings& settings, const std::wstring& path, const std::string& key) {
    for (const auto& [other, source] : settings.passwords) {
        try {
            const auto password = other == key ? std::nullopt : PasswordOf(settings, other, Asking::Forbidden);
            if (password && Opens(path, *password))
                return true;
        } catch (const CQuelcryptErrorException&) {
            // Without the password nothing is opened.
        }
    }
    return false;
}

// Tries a folder's containers until they show whether the password is right.
class Search {
public:
    Search(const Settings& settings, const KeyFolder& folder, const Secret& password)
        : m_settings(settings), m_folder(folder), m_password(password) {}

    Proof Look(const std::wstring& containerPath) {
        if (containerPath.empty() || !IsOfFolder(FolderOf(containerPath)))
            return Below(m_folder.path, 0), Result();
        Container(containerPath, true);
        if (!IsOver())
            Files(FolderOf(containerPath));
        if (!IsOver())
            Below(m_folder.path, 0);
        return Result();
    }

    // Looks at all of them.
    std::vector<std::wstring> Unopened() {
        m_looksAtAll = true;
        Below(m_folder.path, 0);
        return std::move(m_unopened);
    }

private:
    static constexpr std::uint64_t kLargestRead = 4 << 20;
    static constexpr int kEnoughAgainst = 8;
    static constexpr int kMostEntries = 100'000;
    static constexpr int kMostDepth = 128;

    bool IsOver() const { return m_entries >= kMostEntries || (!m_looksAtAll && (m_isFor || m_against >= kEnoughAgainst)); }
    Proof Result() const { return m_isFor ? Proof::For : m_against > 0 ? Proof::Against : Proof::None; }

    bool IsOfFolder(const std::wstring& path) const {
        const auto holder = m_settings.KeyFolderOf(path);
        return holder && holder->path == m_folder.path;
    }

    // Nearly all wrong passwords fail the two check bytes; of those that pass, the whole container must be read, unless it is large.
    void Container(const std::wstring& path, bool isToBeReplaced = false) {
        try {
            ContainerFile file(path);
            if (file.OpenError() != 0 || !file.Zip() || file.Zip()->keyBytes == 0)
                return;
            if (ContainerContent::CipherFor(file, m_password.Text()))
                m_isFor = m_isFor || file.Zip()->storedBytes > kLargestRead || IsWholeUnder(file, m_password);
            else if (!OpensWithAnother(m_settings, path, m_folder.key)) {
                m_unopened.push_back(path);
                m_against += isToBeReplaced || file.Zip()->isOwnForm ? 1 : 0;
            }
        } catch (const CQuelcryptErrorException&) {
            // Damaged, or held by somebody.
        }
    }

    template <class Use>
    void Entries(const std::wstring& pattern, Use use) {
        WIN32_FIND_DATAW found;
        const UniqueFindHandle search(FindFirstFileW(OpenablePath(pattern).c_str(), &found));
        for (bool more = static_cast<bool>(search); more; more = !IsOver() && FindNextFileW(search.Get(), &found)) {
            ++m_entries;
            use(found);
        }
    }

    void Files(const std::wstring& folder) {
        Entries(folder + L"\\*.zip", [&](const WIN32_FIND_DATAW& found) {
            // What is not on this disk is not fetched for this.
            if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) && !IsLinkEntry(found) && !IsPlaceholder(found.dwFileAttributes))
                Container(folder + L'\\' + found.cFileName);
        });
    }

    void Below(const std::wstring& folder, int depth) {
        Files(folder);
        if (IsOver() || depth == kMostDepth)
            return;
        Entries(folder + L"\\*", [&](const WIN32_FIND_DATAW& found) {
            const std::wstring_view name = found.cFileName;
            const bool isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) && !IsLinkEntry(found);
            const std::wstring path = folder + L'\\' + found.cFileName;
            if (isFolder && name != L"." && name != L".." && name != kSideFolderName && IsOfFolder(path))
                Below(path, depth + 1);
        });
    }

    const Settings& m_settings;
    const KeyFolder& m_folder;
    const Secret& m_password;
    bool m_isFor = false, m_looksAtAll = false;
    std::vector<std::wstring> m_unopened;
    int m_against = 0;
    int m_entries = 0;
};

void MakeCheckContainer(const KeyFolder& folder, const Secret& password, IfThere ifThere) {
    MakeSideFolder(folder.path);
    constexpr std::string_view text = "This file opens with the password of its folder; quelvol uses it to check the password.\r\n";
    const auto writer = NewContainer(CheckPath(folder), L"password.txt", password, ifThere);
    writer->Write(text.data(), static_cast<std::uint32_t>(text.size()));
    writer->Finish(true);
}

// 0 for a missing file.
std::uint64_t StampOf(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(OpenablePath(path).c_str(), GetFileExInfoStandard, &data))
        return 0;
    return FileTimeNumber(data.ftLastWriteTime);
}

[[noreturn]] void Refuse(const KeyFolder& folder) { Fail(L"This is not the password of " + folder.name); }

void Prove(const Settings& settings, const KeyFolder& folder, const Secret& password, const std::wstring& containerPath, bool isMade) {
    CheckResult check = OpensCheckContainer(folder, password);
    if (check == CheckResult::Missing && Search(settings, folder, password).Look(containerPath) == Proof::Against)
        Refuse(folder);
    if (check == CheckResult::Missing && isMade) {
        try {
            MakeCheckContainer(folder, password, IfThere::Keep);
        } catch (const CQuelcryptErrorException&) {
            // Another process was quicker; or the folder cannot be written, which the writer will report.
        }
        check = OpensCheckContainer(folder, password);
    }
    if (check == CheckResult::Refused)
        Refuse(folder);
}

struct Proven {
    Secret password;
    std::uint64_t stamp = 0;  // of the check container
};

}  // namespace

std::vector<std::wstring> ContainersOfOthers(const Settings& settings, const KeyFolder& folder, const Secret& password) {
    return Search(settings, folder, password).Unopened();
}

bool NeedsPasswordOf(const Settings& settings, const std::wstring& containerPath, const std::string& key) {
    ContainerFile file(containerPath);
    if (const DWORD error = file.OpenError() ? file.OpenError() : file.ReadError())
        FailWithError(L"The file cannot be read", error);
    if (!file.Zip() || file.Zip()->keyBytes == 0)
        return file.IsBroken();
    const auto password = PasswordOf(settings, key, Asking::Forbidden);
    return (!password || ContainerContent::CipherFor(file, password->Text())) && !OpensWithAnother(settings, containerPath, key);
}

CheckResult OpensCheckContainer(const KeyFolder& folder, const Secret& password) {
    if (IsSideFolderLink(folder.path))
        return CheckResult::Missing;
    ContainerFile file(CheckPath(folder));
    if (file.OpenError() != 0 || !file.Zip() || file.Zip()->keyBytes == 0)
        return CheckResult::Missing;
    return IsWholeUnder(file, password) ? CheckResult::Opened : CheckResult::Refused;
}

void ReplaceCheckContainer(const KeyFolder& folder, const Secret& password) { MakeCheckContainer(folder, password, IfThere::Replace); }

void ProvePassword(const Settings& settings, const KeyFolder& folder, const Secret& password, const std::wstring& containerPath,
                   BeforeWriting beforeWriting) {
    static std::mutex mutex;
    static std::map<std::wstring, Proven> proven;
    const auto source = settings.passwords.find(folder.key);
    const bool isPlain = source != settings.passwords.end() && source->second.kind == PasswordSource::Kind::Plain;
    const bool isMade = beforeWriting == BeforeWriting::Yes && !isPlain;
    // A password in the configuration is not checked again when the check container changes.
    const auto stamp = [&] { return isPlain ? 0 : StampOf(CheckPath(folder)); };
    {
        const std::lock_guard guard(mutex);
        const auto known = proven.find(folder.path);
        const bool isSame = known != proven.end() && known->second.password == password && known->second.stamp == stamp();
        if (isSame && (!isMade || known->second.stamp != 0))
            return;
    }
    Prove(settings, folder, password, containerPath, isMade);
    const std::lock_guard guard(mutex);
    proven[folder.path] = {password, stamp()};
}

}  // namespace companion
