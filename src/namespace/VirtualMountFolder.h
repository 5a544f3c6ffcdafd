// The mount folders at the volume's root, one for each protected folder that the companion library reports. One
// process-wide table, guarded by one critical section; it is rebuilt completely when the library's change counter changes.
// Results are copies. A companion library that fails or throws leaves the table as it was.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "quelcrypt/IVirtualVolume.h"

// The first 32 bits of a mount-folder search handle: "FFMM" in memory.
inline constexpr std::uint32_t kMountSearchMagic = 0x4D4D4646;

struct MountFolderInfo {
    ProtectedFolderType type = PFT_Invalid;
    std::wstring name;
    std::wstring path;  // native
};

// Has the name of the next folder, so it stays valid when the table is rebuilt.
struct VirtFindMountFolderHandle {
    ~VirtFindMountFolderHandle() { magic = 0; }  // a freed handle is not recognised
    std::uint32_t magic = kMountSearchMagic;
    std::wstring folderSearchSpec;
    std::wstring nextName;  // empty: the search is over
};
using VirtFindMountFolderHandlePtr = std::unique_ptr<VirtFindMountFolderHandle>;

class VirtualMountFolder {
public:
    // Loads the table if it was not loaded yet. With force, asks the library in any case, which is one call when nothing changed.
    static void LoadFolders(bool force);

    // Is this a path that may name a mount folder: not null or empty, no ":", no separator among its first two units?
    static bool IsValidVirtualVolumePath(const wchar_t* path);
    // Splits at the first separator.
    static bool ParseFilePath(const wchar_t* path, std::wstring& mountFolderPart, std::wstring& relativePath);

    // The mount folder that a volume path names, and the rest of the path. False leaves mountFolderInfo as it was.
    static bool GetMountFolderInfoByVirtPath(const wchar_t* virtFilePath, MountFolderInfo& mountFolderInfo, std::wstring& relativePath);
    // The mount folder that contains a native path, and the path below it (empty for the folder itself).
    static bool GetMountFolderInfoByNativePath(const wchar_t* nativeFilePath, MountFolderInfo& mountFolderInfo, std::wstring& relativePath);

    // Is this native path a mount folder, or does one lie below it?
    static bool HoldsMountFolder(const std::wstring& nativePath);

    // Starts a search. After the first form, FindNextFolder returns the first match. The second form stores the record of the first
    // match itself. Null when nothing matches. A null spec is "*"; in the second form an empty one matches everything.
    static VirtFindMountFolderHandlePtr FindFirstFolder(const wchar_t* folderSearchSpec);
    static VirtFindMountFolderHandlePtr FindFirstFolder(const wchar_t* folderSearchSpec, VirtFindData* virtFindData);
    // Stores the next match; false when there is none, or when the folder to continue at is no longer in the table.
    static bool FindNextFolder(VirtFindMountFolderHandle& handle, VirtMountInfo* virtMountInfo);
    static bool FindNextFolder(VirtFindMountFolderHandle& handle, VirtFindData* virtFindData);

    static bool GetMatchedMountFolderVirtMountInfo(const wchar_t* searchSpec, const MountFolderInfo& mountFolderInfo,
                                                   VirtMountInfo* virtMountInfo);
    static bool GetMatchedMountFolderVirtFindData(const wchar_t* searchSpec, const MountFolderInfo& mountFolderInfo,
                                                  VirtFindData* virtFindData);
};
