#include "core/Volume.h"

#include <algorithm>

#include "core/HostError.h"
#include "core/OnDisk.h"
#include "core/Patience.h"
#include "core/Text.h"

namespace {

std::wstring ProgramFolder() {
    std::wstring path(32'767, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path.substr(0, path.rfind(L'\\'));
}

// The path by which the volume opens a conflict copy, which is not its listed name: the container "<stem>.zip".
VolumePath ConflictPath(const VolumePath& folder, std::wstring_view name) {
    return folder.Child(std::wstring(name.substr(0, name.size() - kConflictExtension.size())) + L".zip");
}

bool IsAtOrInside(const std::wstring& path, const std::wstring& folder) {
    return !folder.empty() && EqualNoCase(path.substr(0, folder.size()), folder) &&
           (path.size() == folder.size() || path[folder.size()] == L'\\');
}

// Is it a file that no listing shows: itself reserved, or a container that would be shown under a reserved name?
bool IsReserved(std::wstring_view name) { return IsReservedName(name) || IsReservedName(WithoutContainerExtension(name)); }

VolumePath EntryPath(const VolumePath& folder, const VirtFindData& data) {
    const std::wstring_view name = BoundedText(data.fileName);
    if (data.itemType == VIT_EncryptedFileInConflict && EndsWithNoCase(name, kConflictExtension))
        return ConflictPath(folder, name);
    return folder.Child(name);
}

// A folder's record in less memory: while a tree is worked on, those of all folders on the way down are kept.
class FolderRecord {
public:
    explicit FolderRecord(const VirtFindData& data)
        : m_name(BoundedText(data.fileName)),
          m_times{data.creationTime, data.lastAccessTime, data.lastWriteTime},
          m_attributes(data.fileAttributes),
          m_type(data.itemType) {}
    VirtFindData Data() const {
        VirtFindData data{m_attributes, m_times[0], m_times[1], m_times[2], 0, m_type, {}};
        CopyBounded(data.fileName, m_name);
        return data;
    }

private:
    std::wstring m_name;
    std::uint64_t m_times[3];
    std::uint32_t m_attributes;
    VirtualItemType m_type;
};

}  // namespace

std::wstring Entry::Name() const { return std::wstring(BoundedText(data.fileName)); }

std::wstring Entry::NameOnDisk() const { return path.Name() + (data.itemType == VIT_EncryptedFile ? L".zip" : L""); }

Volume::Volume() {
    const std::wstring library = ProgramFolder() + L"\\QuelcryptVol64.dll";
    m_module = LoadLibraryExW(library.c_str(), nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (!m_module)
        throw HostError(ToUtf8(library) + ": could not be loaded: " + SystemMessage(GetLastError()), Exit_NoVolume);
    const FARPROC address = GetProcAddress(m_module, "Quelcrypt_VolumeFactory");
    if (const auto factory = reinterpret_cast<IVirtualVolume* (*)()>(reinterpret_cast<void*>(address)))
        m_volume = factory();
    if (!m_volume) {
        FreeLibrary(m_module);
        throw HostError(ToUtf8(library) + ": it provides no volume", Exit_NoVolume);
    }
}

Volume::~Volume() {
    m_volume->Release();
    FreeLibrary(m_module);
}

std::vector<VirtMountInfo> Volume::MountFolders() const {
    std::vector<VirtMountInfo> folders;
    const FindHandle search(m_volume, m_volume->FindFirstMountFolder(nullptr));
    VirtMountInfo info{};
    while (search && m_volume->FindNextMountFolder(search.Get(), &info))
        folders.push_back(info);
    return folders;
}

std::wstring Volume::RealMountPath(const wchar_t* path) const {
    const std::lock_guard guard(m_mutex);
    std::wstring& real = m_realPaths[path];
    if (real.empty())
        real = RealPath(path);
    while (real.ends_with(L'\\'))
        real.pop_back();
    return real;
}

std::optional<std::wstring> Volume::PathOnDisk(const VolumePath& folder) const {
    VirtMountInfo mount{};
    if (folder.IsRoot() || !m_volume->GetMountInfoByVolumePath(folder.Str(), &mount))
        return std::nullopt;
    const std::wstring path = RealMountPath(std::wstring(BoundedText(mount.path)).c_str());
    if (path.empty())
        return std::nullopt;
    return path + std::wstring(folder.Str()).substr(BoundedText(mount.name).size());
}

std::optional<std::wstring> Volume::FolderOnDisk(const VolumePath& folder) const {
    const std::optional<std::wstring> path = PathOnDisk(folder);
    const bool isReal = path && (folder.IsMountFolder() || EqualNoCase(RealPath(*path), *path));
    return isReal ? path : std::nullopt;
}

bool Volume::HasRoomFor(std::uint64_t bytes, const VolumePath& folder) const {
    const auto onDisk = PathOnDisk(folder);
    return (!onDisk || HasRoom(*onDisk, bytes)) && m_temp.HasRoomFor(bytes);
}

bool Volume::HoldsMountFolder(const VolumePath& folder) const {
    const auto place = PathOnDisk(folder);
    const std::vector<VirtMountInfo> mounts = MountFolders();
    return place && std::any_of(mounts.begin(), mounts.end(), [&](const VirtMountInfo& mount) {
               const std::wstring path(BoundedText(mount.path));
               return IsAtOrInside(RealMountPath(path.c_str()), *place) || IsAtOrInside(L"\\\\?\\" + path, *place);
           });
}

VolumePath Volume::Key(const VolumePath& path) const {
    VirtMountInfo mount{};
    if (path.IsRoot() || !m_volume->GetMountInfoByVolumePath(path.Str(), &mount))
        return path;
    const std::wstring real = RealMountPath(std::wstring(BoundedText(mount.path)).c_str());
    std::wstring outermost(BoundedText(mount.name)), outermostReal = real;
    for (const VirtMountInfo& other : MountFolders()) {
        const std::wstring name(BoundedText(other.name)), place = RealMountPath(std::wstring(BoundedText(other.path)).c_str());
        if (IsAtOrInside(real, place) &&
            (place.size() < outermostReal.size() || (place.size() == outermostReal.size() && name < outermost))) {
            outermost = name;
            outermostReal = place;
        }
    }
    VolumePath key;
    key = key.Child(outermost + real.substr(outermostReal.size()) + std::wstring(path.Str()).substr(BoundedText(mount.name).size()));
    return key;
}

bool Volume::IsItself(const Entry& entry) const {
    if (entry.path.IsRoot() || entry.path.IsMountFolder())
        return true;
    const auto folder = PathOnDisk(entry.path.Parent());
    return folder && StandingAt(*folder + L'\\' + entry.NameOnDisk()) == Standing::Itself;
}

DiskVersion Volume::VersionOf(const Entry& entry) const {
    const auto folder = PathOnDisk(entry.path.Parent());
    return folder ? VersionAt(*folder + L'\\' + entry.NameOnDisk()) : DiskVersion();
}

bool Volume::HasTwin(const Entry& entry, const std::wstring& name) const {
    const auto folder = PathOnDisk(entry.path.Parent());
    const std::wstring own = entry.NameOnDisk(), twin = name + own.substr(entry.path.Name().size());
    return folder && LongName(*folder + L'\\' + twin) == twin && LongName(*folder + L'\\' + own) != twin;
}

std::optional<std::wstring> Volume::LinkAt(const VolumePath& path) const {
    const auto folder = path.IsMountFolder() ? std::nullopt : FolderOnDisk(path.Parent());
    for (const wchar_t* end : {L"", L".zip"}) {
        const std::wstring name = path.Name() + end;
        if (folder && StandingAt(*folder + L'\\' + name) == Standing::Link && EqualNoCase(LongName(*folder + L'\\' + name), name))
            return *folder + L'\\' + name;
    }
    return std::nullopt;
}

bool Volume::RemoveLink(const VolumePath& path) const {
    const auto link = LinkAt(path);
    if (link && HoldsMountFolder(path))
        throw HostError(path.Shown() + ": a mount folder; remove it from the configuration");
    if (link && !RemoveItself(*link))
        throw HostError(path.Shown() + ": a link, which cannot be deleted without its target");
    return link.has_value();
}

void Volume::RemoveReserved(const VolumePath& folder) const {
    const auto onDisk = FolderOnDisk(folder);
    for (const std::wstring& name : onDisk ? NamesIn(*onDisk) : std::vector<std::wstring>())
        if (IsReserved(name))
            RemoveItself(*onDisk + L'\\' + name);
}

void Volume::MoveReserved(const VolumePath& from, const VolumePath& to) const {
    const auto source = FolderOnDisk(from), target = FolderOnDisk(to);
    for (const std::wstring& name : source&& target ? NamesIn(*source) : std::vector<std::wstring>()) {
        const std::wstring path = *source + L'\\' + name;
        const bool isLeft = IsReserved(name) && !RemoveDirectoryW(path.c_str());  // an empty folder is not missed
        if (isLeft && !MoveFileExW(path.c_str(), (*target + L'\\' + name).c_str(), 0))
            throw HostError(from.Child(name).Shown() + ": not shown in listings; it could not be moved along");
    }
}

std::optional<Entry> Volume::FindByShortName(const VolumePath& path) const {
    const std::wstring name = path.Name();
    const auto folder = path.IsMountFolder() || name.find(L'~') == std::wstring::npos ? std::nullopt : FolderOnDisk(path.Parent());
    for (const std::wstring& end : {std::wstring(), std::wstring(L".zip")}) {
        const std::wstring own = folder ? LongName(*folder + L'\\' + name + end) : std::wstring();
        if (own.empty() || EqualNoCase(own, name + end) || !EndsWithNoCase(own, end))
            continue;
        const std::wstring shown = own.substr(0, own.size() - end.size());
        if (VolumePath::ComponentProblem(shown))  // the short name of a reserved name
            continue;
        const VolumePath ownPath = path.Parent().Child(shown);
        Entry entry{ownPath};
        if (m_volume->FindFile(ownPath.Str(), &entry.data) && EqualNoCase(entry.Name(), ownPath.Name()) && IsItself(entry))
            return entry;
    }
    return std::nullopt;
}

std::optional<Entry> Volume::Find(const VolumePath& path) const {
    Entry entry{path};
    const std::wstring name = path.Name();
    const bool isThere = m_volume->FindFile(path.Str(), &entry.data);
    if (isThere && EqualNoCase(entry.Name(), name) && IsItself(entry))
        return entry;
    if (isThere)
        if (std::optional<Entry> own = FindByShortName(path))
            return own;
    if (!EndsWithNoCase(name, kConflictExtension))
        return std::nullopt;
    entry.path = ConflictPath(path.Parent(), name);
    const bool found = m_volume->FindFile(entry.path.Str(), &entry.data) && IsItself(entry);
    return found && entry.data.itemType == VIT_EncryptedFileInConflict ? std::optional(entry) : std::nullopt;
}

std::optional<Entry> Volume::FindAgain(const Entry& entry) const {
    Entry now{entry.path};
    const bool found = m_volume->FindFile(entry.path.Str(), &now.data);
    // After a file is deleted another may be found at its path, such as the container beside a deleted plain file.
    const bool same = found && now.data.itemType == entry.data.itemType && EqualNoCase(now.Name(), entry.Name());
    return same ? std::optional(now) : std::nullopt;
}

bool Volume::WaitUntilGone(const Entry& entry) const {
    return TryForAMoment([&] {  // on some disks a name in another letter case is another file's
        const std::optional<Entry> now = FindAgain(entry);
        return !now || now->Name() != entry.Name();
    });
}

void Volume::RequireFree(const VolumePath& path, bool encrypted) const {
    Entry other{path};
    const bool found = m_volume->FindFile(path.Str(), &other.data);
    if (found && (encrypted || other.data.itemType != VIT_PlainFile))
        throw HostError(path.Shown() + ": it would replace " + path.Parent().Child(other.Name()).Shown() + " on disk; use another name");
    if (LinkAt(path))
        throw HostError(path.Shown() + ": a link has this name; it is not followed, and rm deletes it");
}

Entry Volume::Require(const VolumePath& path) const {
    if (std::optional<Entry> entry = Find(path))
        return *std::move(entry);
    VirtMountInfo mount{};
    VirtFindData parent{};
    if (!m_volume->GetMountInfoByVolumePath(path.Str(), &mount))
        throw StatusError(path.Shown(), VVS_MountFolderNotFound);
    const bool parentExists = m_volume->FindFile(path.Parent().Str(), &parent);
    throw StatusError(path.Shown(), parentExists ? VVS_FileNotFound : VVS_PathNotFound);
}

void Volume::RequireFolder(const VolumePath& path) const {
    if (!Require(path).IsFolder())
        throw HostError(path.Shown() + ": not a folder");
    if (!path.IsRoot() && !FolderOnDisk(path))
        throw HostError(path.Shown() + ": reached through a link or a short name; use its own path");
}

Search::Search(const Volume& volume, const VolumePath& folder, const wchar_t* pattern) : m_volume(volume), m_folder(folder) {
    try {
        UniqueHandle held = volume.Hold(folder);
        void* const found = volume->FindFirstFileW(folder.Child(pattern).Str(), &m_data);
        const DWORD error = GetLastError();
        m_handle = FindHandle(volume.Get(), found, std::move(held));
        if (!m_handle)
            RequireEnd(error);
    } catch (const StatusError& error) {
        if (error.Status() != VVS_PathNotFound && error.Status() != VVS_MountFolderNotFound)
            throw;
    }
}

void Search::RequireEnd(DWORD error) const {
    if (error != ERROR_FILE_NOT_FOUND && error != ERROR_NO_MORE_FILES && error != ERROR_PATH_NOT_FOUND)
        throw StatusError(m_folder.Shown(), error == ERROR_ACCESS_DENIED ? VVS_AccessDenied : VVS_GeneralError);
}

bool Search::Next(Entry& entry) {
    if (!m_handle)
        return false;
    if (!std::exchange(m_first, false) && !m_volume->FindNextFileW(m_handle.Get(), &m_data)) {
        RequireEnd(GetLastError());
        m_handle.Reset();
        m_volume.RequireRealFolder(m_folder);
        return false;
    }
    entry = {EntryPath(m_folder, m_data), m_data};
    return true;
}

void ForEachEntry(const Volume& volume, const VolumePath& folder, const std::function<bool(const Entry&)>& take) {
    std::vector<FolderRecord> folders;
    {
        Search search(volume, folder);
        for (Entry entry; search.Next(entry);) {
            if (entry.IsFolder())
                folders.emplace_back(entry.data);
            else if (!take(entry))
                return;
        }
    }
    for (const FolderRecord& record : folders) {
        const VirtFindData data = record.Data();
        if (!take({EntryPath(folder, data), data}))
            return;
    }
}

std::vector<Entry> SortedEntries(const Volume& volume, const VolumePath& folder, const wchar_t* pattern) {
    std::vector<Entry> entries;
    Search search(volume, folder, pattern);
    for (Entry entry; search.Next(entry);)
        entries.push_back(entry);
    std::sort(entries.begin(), entries.end(), IsBefore);
    return entries;
}

bool IsBefore(const Entry& left, const Entry& right) { return LessNoCase(left.data.fileName, right.data.fileName); }

void Check(VirtualVolumeStatus status, const VolumePath& path) {
    if (status != VVS_Success)
        throw StatusError(path.Shown(), status);
}
