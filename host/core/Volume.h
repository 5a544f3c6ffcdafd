// The volume for this program: the DLL loaded at run time from the program's own folder, owners for its handles,
// and searches that resolve every listed name. An example of everything that a host must do. May be used from any number of threads;
// a Search belongs to one.
#pragma once

#include <functional>
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

// The offset for reads and writes at the handle's current position.
constexpr std::uint64_t kCurrentPosition = 0xFFFFFFFF;

// Owns a handle of the volume, which Close ends. Until then the folder that it was opened in cannot be moved (see HoldFolder).
template <auto Close>
class VolumeHandle {
public:
    VolumeHandle() = default;
    VolumeHandle(IVirtualVolume* volume, void* handle, UniqueHandle folder = {})
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
        m_folder.Reset();
    }
    void LetFolderGo() { m_folder.Reset(); }

private:
    IVirtualVolume* m_volume = nullptr;
    void* m_handle = nullptr;
    UniqueHandle m_folder;
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
    // The listed name. A conflict copy's differs from the last name of its path.
    std::wstring Name() const;
    VolumePath ListedPath() const { return path.Parent().Child(Name()); }
    // The name of the file or folder on disk.
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

    // The item that is listed under this path; nothing when there is none. A short name finds the item, whose path then has its
    // own name. Links are not followed. The volume also finds a container by its own name ("a.txt.zip" for "a.txt"), and by
    // "f.txt" a ZIP file "f.txt.zip" that is not its container: neither is listed so, and neither is found here.
    std::optional<Entry> Find(const VolumePath& path) const;
    // Is the listed item not a link, and not reached through one?
    bool IsItself(const Entry& entry) const;
    // The version of the file on disk that holds the entry.
    DiskVersion VersionOf(const Entry& entry) const;
    // On a disk that distinguishes letter case: is there another file, beside the item, with exactly this name?
    bool HasTwin(const Entry& entry, const std::wstring& name) const;
    // Deletes the link of this name. False: there is none. Throws HostError when it cannot be deleted without its target.
    bool RemoveLink(const VolumePath& path) const;
    // Before a folder is deleted: deletes the reserved names in it that nobody has open.
    void RemoveReserved(const VolumePath& folder) const;
    // Before a folder is deleted whose content was moved: moves the reserved names in it. Throws HostError when one stays.
    void MoveReserved(const VolumePath& from, const VolumePath& to) const;
    // The path of a folder on disk, if it is a real one: not a link, and named without links and short names.
    std::optional<std::wstring> FolderOnDisk(const VolumePath& folder) const;
    // Have the disks of the temp folder, for decrypted copies, and of folder room for content of so many bytes?
    bool HasRoomFor(std::uint64_t bytes, const VolumePath& folder = {}) const;
    // Is this a mount folder, or is one inside? This program never moves or deletes one.
    bool HoldsMountFolder(const VolumePath& folder) const;
    // One path for all paths of a file, to compare them by: the path in the outermost mount folder that contains it.
    VolumePath Key(const VolumePath& path) const;
    // The item as it is now, found the way it is opened; nothing when it is missing.
    std::optional<Entry> FindAgain(const Entry& entry) const;
    // Waits for a moment until an item is deleted, which is when nobody has it open any more. False: it is still there.
    bool WaitUntilGone(const Entry& entry) const;
    // Call before storing anything under a path that Find does not find. Throws HostError when it would replace the file on
    // disk of an item with another name, or a link. An encrypted "f.txt" would replace an "f.txt.zip" that is not its container,
    // a plain one would not: if encrypted is not known, leave false, and the volume checks this.
    void RequireFree(const VolumePath& path, bool encrypted = false) const;
    // Find; throws StatusError with the status that says what is missing: mount folder, folder or file.
    Entry Require(const VolumePath& path) const;
    // Also throws HostError for what is not a real folder (see FolderOnDisk).
    void RequireFolder(const VolumePath& path) const;

    // The following functions never leave the mount folders through a link, even when somebody replaces a folder by one meanwhile:
    // the folder of an item is held, and after the call the paths are checked again. If they lead elsewhere, the functions throw
    // StatusError and delete what they made. docs/security.md says what remains possible.

    // Like HoldFolder; null for the root and mount folders. Throws StatusError when it is missing, not a real folder, or being deleted.
    UniqueHandle Hold(const VolumePath& folder) const;
    // Throws StatusError. Access, sharing and disposition are those of IVirtualVolume::OpenFile.
    FileHandle Open(const VolumePath& path, std::uint32_t access, std::uint32_t share, std::uint32_t disposition) const;
    // Throws StatusError unless path's item, which is open as file, is still at its path. To be called for an encrypted file after its
    // first read, which opens the container.
    void RequireInPlace(const VolumePath& path, void* file) const;
    // These do what the volume does, and throw StatusError. Rename does not check again, because content that replaced other content must
    // not be deleted; call RequireInPlace for that. Rename and Copy replace a file at the target; Move and CopyToFree replace nothing, not
    // even what another program makes at this moment (VVS_PathAlreadyExists). Only a file can be copied to a free path.
    void Rename(const FileHandle& file, const VolumePath& target) const;
    void Copy(const VolumePath& source, const VolumePath& target) const;
    void CopyToFree(const VolumePath& source, const VolumePath& target) const;
    void Move(const VolumePath& source, const VolumePath& target) const;
    void Lock(const VolumePath& path, LockInfo& info) const;

private:
    friend class Search;
    std::optional<std::wstring> PathOnDisk(const VolumePath& folder) const;
    // Throws StatusError.
    void RequireRealFolder(const VolumePath& folder) const;
    // Does the path lead elsewhere, by a link in it?
    bool LeadsAway(const Entry& entry) const;
    bool LeadsAway(const VolumePath& path) const;
    std::wstring RealMountPath(const wchar_t* path) const;
    std::optional<Entry> FindByShortName(const VolumePath& path) const;
    std::optional<std::wstring> LinkAt(const VolumePath& path) const;

    mutable std::mutex m_mutex;
    mutable std::map<std::wstring, std::wstring> m_realPaths;  // of mount folders, which are not moved
    TempFolder m_temp;                                         // before the module, so that it is deleted after it
    HMODULE m_module = nullptr;
    IVirtualVolume* m_volume = nullptr;
};

// Lists the entries of a folder that match a pattern, one at a time.
class Search {
public:
    // Finds nothing in a folder that is missing or not a real one. Throws StatusError for one that cannot be read.
    Search(const Volume& volume, const VolumePath& folder, const wchar_t* pattern = L"*");
    // False: there are no more. Throws StatusError at the end when the folder is no longer at its path.
    bool Next(Entry& entry);

private:
    // Throws StatusError when a search ended with another error than "no more entries".
    void RequireEnd(DWORD error) const;

    const Volume& m_volume;
    VolumePath m_folder;
    VirtFindData m_data{};
    FindHandle m_handle;
    bool m_first = true;
};

// The entries of a folder sorted by name, for people, and to change entries while going through them.
std::vector<Entry> SortedEntries(const Volume& volume, const VolumePath& folder, const wchar_t* pattern = L"*");

// Calls take with each entry of a folder, in no order, until it returns false: with the files first, and with the folders after the search
// has ended, because the platform may keep the whole listing in memory until then. Throws as Search does.
void ForEachEntry(const Volume& volume, const VolumePath& folder, const std::function<bool(const Entry&)>& take);

// Compares by name.
bool IsBefore(const Entry& left, const Entry& right);

// Throws StatusError unless status is VVS_Success.
void Check(VirtualVolumeStatus status, const VolumePath& path);
