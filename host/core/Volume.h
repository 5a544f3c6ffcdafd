// The volume as this program uses it: the DLL loaded at run time from the program's own folder, owners for what it hands
// out, and searches that resolve every listed name. Whoever writes another host finds here all that the interface asks
// of one. May be used from any number of threads; a Search belongs to one.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <windows.h>

#include "core/OnDisk.h"
#include "core/TempFolder.h"
#include "core/VolumePath.h"
#include "quelcrypt/IVirtualVolume.h"

// Reads and writes at the handle's current position, one after the other.
constexpr std::uint64_t kCurrentPosition = 0xFFFFFFFF;
constexpr std::uint32_t kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Owns a handle of the volume; Close is how it ends. As long as it lives, the folder that it was opened in stays where it is
// (see HoldFolder).
template <auto Close>
class VolumeHandle {
public:
    VolumeHandle() = default;
    VolumeHandle(IVirtualVolume* volume, void* handle, DiskHandle folder = {})
        : m_volume(volume), m_handle(handle), m_folder(std::move(folder)) {}
    ~VolumeHandle() { Reset(); }
    VolumeHandle(VolumeHandle&& other) noexcept
        : m_volume(other.m_volume), m_handle(std::exchange(other.m_handle, nullptr)), m_folder(std::move(other.m_folder)) {}
    VolumeHandle& operator=(VolumeHandle&& other) noexcept {
        Reset();
        m_volume = other.m_volume;
        m_handle = std::exchange(other.m_handle, nullptr);
        m_folder = std::move(other.m_folder);
        return *this;
    }

    void* Get() const { return m_handle; }
    explicit operator bool() const { return m_handle != nullptr; }
    void Reset() {
        if (void* const handle = std::exchange(m_handle, nullptr))
            Close(m_volume, handle);
        m_folder.reset();
    }
    void LetFolderGo() { m_folder.reset(); }

private:
    IVirtualVolume* m_volume = nullptr;
    void* m_handle = nullptr;
    DiskHandle m_folder;
};

inline void CloseVolumeFile(IVirtualVolume* volume, void* handle) { volume->CloseFile(handle, nullptr); }
inline void CloseVolumeSearch(IVirtualVolume* volume, void* handle) { volume->FindClose(handle); }
using FileHandle = VolumeHandle<CloseVolumeFile>;
using FindHandle = VolumeHandle<CloseVolumeSearch>;

// One item: the path under which the volume opens it, and its record.
struct Entry {
    VolumePath path;
    VirtFindData data{};

    bool IsFolder() const { return (data.fileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
    bool IsConflict() const { return data.itemType == VIT_EncryptedFileInConflict; }
    // As listed. A conflict copy's differs from the last name of its path.
    std::wstring Name() const;
    VolumePath ListedPath() const { return path.Parent().Child(Name()); }
    // Of the file or folder on disk that the path stands for.
    std::wstring NameOnDisk() const;
};

class Volume {
public:
    // Loads QuelcryptVol64.dll from the folder of this program. Throws HostError (Exit_NoVolume) when that fails.
    Volume();
    ~Volume();
    Volume(const Volume&) = delete;
    Volume& operator=(const Volume&) = delete;

    IVirtualVolume* operator->() const { return m_volume; }
    IVirtualVolume* Get() const { return m_volume; }
    const TempFolder& Temp() const { return m_temp; }

    std::vector<VirtMountInfo> MountFolders() const;

    // What is listed under this path; nothing when there is no such item. A short name finds the item, whose path then has its
    // own name. What a link leads to is not there. The volume also finds a container by its own name ("a.txt.zip" for
    // "a.txt"), and by "f.txt" a foreign "f.txt.zip": neither counts, since neither is listed so.
    std::optional<Entry> Find(const VolumePath& path) const;
    // Is the item, from a listing, no link, and not reached through one?
    bool IsItself(const Entry& entry) const;
    // Of the file on disk that holds the entry.
    DiskVersion VersionOf(const Entry& entry) const;
    // On a disk that tells letter cases apart: does another file stand beside the item that has exactly this name?
    bool HasTwin(const Entry& entry, const std::wstring& name) const;
    // Deletes the link that stands under this name. False: there is none. Throws HostError when it cannot be deleted
    // without what it leads to.
    bool RemoveLink(const VolumePath& path) const;
    // Deletes what the volume keeps for itself in a folder that is to go, as far as nobody uses it.
    void RemoveReserved(const VolumePath& folder) const;
    // A folder on disk, if it is a real one: itself, and reached by the own names of folders and through no link.
    std::optional<std::wstring> FolderOnDisk(const VolumePath& folder) const;
    // Have the temp folder's disk and that of folder room for content of so many bytes? The copies in clear go to the first.
    bool HasRoomFor(std::uint64_t bytes, const VolumePath& folder = {}) const;
    // Does a mount folder stand there, or inside? Nothing here moves or deletes one.
    bool HoldsMountFolder(const VolumePath& folder) const;
    // The path by which all paths of one file can be compared: in the outermost mount folder that it lies in.
    VolumePath Key(const VolumePath& path) const;
    // The item as it is now, found the way it is opened; nothing when it is gone.
    std::optional<Entry> FindAgain(const Entry& entry) const;
    // A deletion is done when nobody has the item open any more. False: after a moment it is still there.
    bool WaitUntilGone(const Entry& entry) const;
    // Call before storing anything under a path that Find does not find. Throws HostError when it would take the file on
    // disk of an item with another name, or the place of a link. An encrypted "f.txt" would take a foreign "f.txt.zip", a
    // plain one stands beside it: who does not know which it will be leaves that to the volume.
    void RequireFree(const VolumePath& path, bool encrypted = false) const;
    // Find, or throws StatusError with the status that says what is missing: mount folder, folder or file.
    Entry Require(const VolumePath& path) const;
    // Also throws HostError for what is no real folder (see FolderOnDisk).
    void RequireFolder(const VolumePath& path) const;

    // What follows leads out of the mount folders through no link, also when somebody exchanges a folder for one meanwhile:
    // the folder that an item stands in is held, and after the call it is looked once more whether everything still stands where
    // it was asked for. If not, they throw StatusError, and what was made goes. docs/security.md tells where that ends.

    // As HoldFolder; null for the root and mount folders. Throws StatusError when it is missing, no real folder, or about to go.
    DiskHandle Hold(const VolumePath& folder) const;
    // Throws StatusError. Access, sharing and disposition are those of IVirtualVolume::OpenFile.
    FileHandle Open(const VolumePath& path, std::uint32_t access, std::uint32_t share, std::uint32_t disposition) const;
    // Throws StatusError unless path's item, which is open as file, still stands there itself. An encrypted file is first looked
    // at when it is first read.
    void RequireInPlace(const VolumePath& path, void* file) const;
    // These four throw StatusError, and do what the volume does. Only the first one does not look again: what has taken the
    // place of other content must not be taken away for it. RequireInPlace tells.
    void Rename(const FileHandle& file, const VolumePath& target, const wchar_t* lockToken = nullptr) const;
    void Copy(const VolumePath& source, const VolumePath& target) const;
    void Move(const VolumePath& source, const VolumePath& target) const;
    void Lock(const VolumePath& path, LockInfo& info) const;

private:
    friend class Search;
    std::optional<std::wstring> PathOnDisk(const VolumePath& folder) const;
    // Throws StatusError.
    void RequireRealFolder(const VolumePath& folder) const;
    // Does a link, there or on the way, lead to another place?
    bool LeadsAway(const Entry& entry) const;
    bool LeadsAway(const VolumePath& path) const;
    std::wstring RealMountPath(const wchar_t* path) const;
    std::optional<Entry> FindByShortName(const VolumePath& path) const;
    std::optional<std::wstring> LinkAt(const VolumePath& path) const;

    mutable std::mutex m_mutex;
    mutable std::map<std::wstring, std::wstring> m_realPaths;  // of mount folders, which stay where they are
    TempFolder m_temp;                                         // before the module: what is decrypted goes last
    HMODULE m_module = nullptr;
    IVirtualVolume* m_volume = nullptr;
};

// Goes through the entries of a folder that match a pattern, one at a time.
class Search {
public:
    // Finds nothing in a folder that is missing or no real one. Throws StatusError for one that cannot be looked into.
    Search(const Volume& volume, const VolumePath& folder, const wchar_t* pattern = L"*");
    // False: there are no more. Throws StatusError at the end when the folder is not where it was at the beginning.
    bool Next(Entry& entry);

private:
    // Throws StatusError when a search ended with another error than that there are no more.
    void RequireEnd(DWORD error) const;

    const Volume& m_volume;
    VolumePath m_folder;
    VirtFindData m_data{};
    FindHandle m_handle;
    bool m_first = true;
};

// The entries of a folder sorted by name, for changing them while walking and for people to read.
std::vector<Entry> SortedEntries(const Volume& volume, const VolumePath& folder, const wchar_t* pattern = L"*");

// By name.
bool IsBefore(const Entry& left, const Entry& right);

// Throws StatusError unless status is VVS_Success.
void Check(VirtualVolumeStatus status, const VolumePath& path);
