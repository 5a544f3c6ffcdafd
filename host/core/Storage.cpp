#include "core/Storage.h"

#include <algorithm>
#include <cwctype>

#include "companion/Paths.h"
#include "companion/SettingsFile.h"
#include "core/Checks.h"
#include "core/Companion.h"
#include "core/HostError.h"
#include "core/Interrupt.h"
#include "core/OnDisk.h"
#include "core/Text.h"

namespace {

struct StoredRow {
    Stored stored;
    const char* word;
    const char* reason;
};
constexpr StoredRow kRows[] = {
    {Stored::Encrypted, "encrypted", "encrypted"},
    {Stored::ConflictCopy, "conflict", "a conflict copy, encrypted"},
    {Stored::Damaged, "damaged", "a damaged container"},
    {Stored::NoPolicy, "plain", "not encrypted: its folder has no policy"},
    {Stored::Excluded, "plain", "not encrypted: the configuration excludes its name"},
    {Stored::NoExtension, "plain", "not encrypted: its name has no extension"},
    {Stored::InClear, "plain", "not encrypted yet; 'quelvol encrypt' does it"},
    {Stored::Configuration, "plain", "not encrypted: it is the configuration, which is never encrypted"},
    {Stored::BadName, "plain", "cannot be opened: its name is not one that Windows allows; rename it"},
};

const StoredRow& RowOf(Stored stored) { return kRows[static_cast<std::size_t>(stored)]; }

// A file that a command has beside the configuration while it runs.
bool IsPassing(const Volume& volume, const Entry& entry) {
    for (const wchar_t* const end : {L".new", kBusyExtension})
        if (EndsWithNoCase(entry.Name(), end) && EqualNoCase(ConfiguredPath(volume, entry), companion::SettingsPath() + end))
            return true;
    return false;
}

bool HasBadName(const Entry& entry) { return VolumePath::ComponentProblem(entry.Name()) != nullptr; }

}  // namespace

const char* StoredWord(Stored stored) { return RowOf(stored).word; }

const char* StoredReason(Stored stored) { return RowOf(stored).reason; }

std::string WhyInClear(Stored stored) {
    std::string_view reason = StoredReason(stored);
    for (const std::string_view said : {"not encrypted", ": ", " "})
        if (reason.starts_with(said))
            reason.remove_prefix(said.size());
    return std::string(reason);
}

Storage::Storage(const Volume& volume, const VolumePath& folder)
    : m_folder(ConfiguredPath(volume, folder)), m_hasPolicy(FolderHasPolicy(m_folder).value_or(false)) {
    if (const std::wstring path = companion::SettingsPath(); EqualNoCase(companion::FolderOf(path), m_folder))
        m_configuration = path.substr(m_folder.size() + 1);
}

Stored Storage::Of(const Entry& entry) const {
    if (HasBadName(entry))
        return Stored::BadName;
    if (entry.IsConflict())
        return Stored::ConflictCopy;
    if (entry.data.itemType == VIT_EncryptedFile)
        return Stored::Encrypted;
    if (!m_hasPolicy)
        return Stored::NoPolicy;
    const std::wstring name = entry.NameOnDisk();
    if (!m_configuration.empty() && EqualNoCase(name, m_configuration))
        return Stored::Configuration;
    if (EndsWithNoCase(name, kContainerExtension) && ExamineContainer(m_folder + L'\\' + name).state == ContainerState::Damaged)
        return Stored::Damaged;
    return ReasonInClear(name);
}

Stored Storage::ReasonInClear(const std::wstring& name) {
    if (IsNameExcluded(name))
        return Stored::Excluded;
    return name.find(L'.') == name.npos ? Stored::NoExtension : Stored::InClear;
}

Stored Storage::OfNewEncrypted(const std::wstring& name) {
    const Stored reason = ReasonInClear(name);
    return reason == Stored::InClear ? Stored::Encrypted : reason;
}

Stored StoredAs(const Volume& volume, const Entry& entry) { return Storage(volume, entry.path.Parent()).Of(entry); }

void Exposed::Note(const VolumePath& path, Stored stored) {
    if (stored != Stored::Encrypted && stored != Stored::ConflictCopy && m_count++ == 0)
        m_first = path.Shown() + ": stored " + StoredReason(stored);
}

void Exposed::Note(const Volume& volume, const Entry& source, const VolumePath& target) {
    const bool stays = source.path.Parent().Equals(target.Parent());  // in its folder, which then need not be asked for its policy
    if (source.data.itemType == VIT_EncryptedFile || source.IsConflict())
        Note(target, stays ? Storage::OfNewEncrypted(target.Name()) : Storage(volume, target.Parent()).OfNew(target.Name()));
}

std::string Exposed::Text() const {
    return m_first + (m_count < 2 ? "" : " (and " + std::to_string(m_count - 1) + (m_count == 2 ? " more file)" : " more files)"));
}

std::wstring ConfiguredPath(const Volume& volume, const VolumePath& path) {
    VirtMountInfo mount{};
    if (path.IsRoot() || !volume->GetMountInfoByVolumePath(path.Str(), &mount))
        return {};
    return std::wstring(BoundedText(mount.path)) + std::wstring(path.Str()).substr(BoundedText(mount.name).size());
}

std::wstring ConfiguredPath(const Volume& volume, const Entry& entry) {
    return ConfiguredPath(volume, entry.path.Parent()) + L'\\' + entry.NameOnDisk();
}

bool ForEachFile(const Volume& volume, const VolumePath& path, const std::function<void(const Entry&, Stored)>& use,
                 const std::function<void(const VolumePath&)>& enter) {
    StopIfInterrupted();
    if (path.Depth() > kMaxPathComponents)
        throw HostError(path.Shown() + ": too many nested folders");
    if (!path.IsRoot()) {
        const Entry entry = volume.Require(path);
        if (!entry.IsFolder())
            return use(entry, StoredAs(volume, entry)), true;
    }
    bool isWhole = true;
    if (enter)
        enter(path);
    const Storage storage(volume, path);
    for (const Entry& entry : SortedEntries(volume, path)) {
        const bool hasBadName = HasBadName(entry);
        if ((!hasBadName && !volume.IsItself(entry)) || IsPassing(volume, entry))
            continue;
        if (hasBadName || !entry.IsFolder()) {
            use(entry, storage.Of(entry));
            continue;
        }
        try {
            isWhole = ForEachFile(volume, entry.path, use, enter) && isWhole;
        } catch (const StatusError& error) {
            PrintError(std::string("quelvol: ") + error.what() + "; it was left out with all that is in it\n");
            isWhole = false;
        }
    }
    return isWhole;
}

void RequireUndamaged(const Volume& volume, const VolumePath& path) {
    if (path.IsRoot() || path.IsMountFolder() || volume.Find(path))
        return;
    const VolumePath container = path.Parent().Child(path.Name() + std::wstring(kContainerExtension));
    const std::optional<Entry> entry = volume.Find(container);
    if (entry && StoredAs(volume, *entry) == Stored::Damaged)
        throw HostError(path.Shown() + ": its container " + container.Shown() +
                        " is damaged: " + ExamineContainer(ConfiguredPath(volume, *entry)).reason);
}
