#include "core/Volume.h"

#include <algorithm>

#include "core/HostError.h"
#include "core/Text.h"

namespace {

constexpr std::wstring_view c_conflictEnd = L".HvcConflicted";

std::wstring ProgramFolder() {
    std::wstring path(32'767, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return path.substr(0, path.rfind(L'\\'));
}

// The volume does not resolve the name it lists a conflict copy under; its container is "<stem>.zip".
VolumePath ConflictPath(const VolumePath& folder, std::wstring_view name) {
    return folder.Child(std::wstring(name.substr(0, name.size() - c_conflictEnd.size())) + L".zip");
}

VolumePath EntryPath(const VolumePath& folder, const VirtFindData& data) {
    const std::wstring_view name = BoundedText(data.fileName);
    if (data.itemType == VIT_EncryptedFileInConflict && EndsWithNoCase(name, c_conflictEnd))
        return ConflictPath(folder, name);
    return folder.Child(name);
}

}  // namespace

std::wstring Entry::Name() const {
    return std::wstring(BoundedText(data.fileName));
}

Volume::Volume() {
    const std::wstring library = ProgramFolder() + L"\\QuelcryptVol64.dll";
    m_module = LoadLibraryExW(library.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (!m_module)
        throw HostError(ToUtf8(library) + ": could not be loaded: " + SystemMessage(GetLastError()), Exit_NoVolume);
    const FARPROC address = GetProcAddress(m_module, "Quelcrypt_VolumeFactory");
    if (const auto factory = reinterpret_cast<IVirtualVolume* (*)()>(reinterpret_cast<void*>(address)))
        m_volume = factory();
    if (!m_volume) {
        FreeLibrary(m_module);
        throw HostError(ToUtf8(library) + ": it hands out no volume", Exit_NoVolume);
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

std::optional<Entry> Volume::Find(const VolumePath& path) const {
    Entry entry{path};
    const std::wstring name = path.Name();
    if (m_volume->FindFile(path.Str(), &entry.data) && EqualNoCase(entry.Name(), name))
        return entry;
    if (!EndsWithNoCase(name, c_conflictEnd))
        return std::nullopt;
    entry.path = ConflictPath(path.Parent(), name);
    const bool found = m_volume->FindFile(entry.path.Str(), &entry.data);
    return found && entry.data.itemType == VIT_EncryptedFileInConflict ? std::optional(entry) : std::nullopt;
}

std::optional<Entry> Volume::FindAgain(const Entry& entry) const {
    Entry now{entry.path};
    const bool found = m_volume->FindFile(entry.path.Str(), &now.data);
    // Behind a file that is gone another may come to light, as the container does behind a plain file of the same name.
    const bool same = found && now.data.itemType == entry.data.itemType && EqualNoCase(now.Name(), entry.Name());
    return same ? std::optional(now) : std::nullopt;
}

void Volume::RequireFree(const VolumePath& path, bool encrypted) const {
    Entry other{path};
    const bool found = m_volume->FindFile(path.Str(), &other.data);
    if (found && (encrypted || other.data.itemType != VIT_PlainFile))
        throw HostError(path.Shown() + ": it would take the place of " + path.Parent().Child(other.Name()).Shown() +
                        " on disk; use another name");
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
}

FileHandle Volume::Open(const VolumePath& path, std::uint32_t access, std::uint32_t share, std::uint32_t disposition) const {
    void* handle = nullptr;
    Check(m_volume->OpenFile(&handle, path.Str(), access, share, disposition, nullptr, nullptr), path);
    return FileHandle(m_volume, handle);
}

Search::Search(const Volume& volume, const VolumePath& folder, const wchar_t* pattern)
    : m_volume(volume), m_folder(folder),
      m_handle(volume.Get(), volume->FindFirstFileW(folder.Child(pattern).Str(), &m_data)) {}

bool Search::Next(Entry& entry) {
    if (!m_handle || (!std::exchange(m_first, false) && !m_volume->FindNextFileW(m_handle.Get(), &m_data)))
        return false;
    entry = {EntryPath(m_folder, m_data), m_data};
    return true;
}

std::vector<Entry> SortedEntries(const Volume& volume, const VolumePath& folder, const wchar_t* pattern) {
    std::vector<Entry> entries;
    Search search(volume, folder, pattern);
    for (Entry entry; search.Next(entry);)
        entries.push_back(entry);
    std::sort(entries.begin(), entries.end(), [](const Entry& left, const Entry& right) {
        return CompareStringOrdinal(left.data.fileName, -1, right.data.fileName, -1, TRUE) == CSTR_LESS_THAN;
    });
    return entries;
}

void Check(VirtualVolumeStatus status, const VolumePath& path) {
    if (status != VVS_Success)
        throw StatusError(path.Shown(), status);
}
