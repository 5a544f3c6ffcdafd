// A real folder as the volume shows it: containers under the names stored in them, with their plain sizes and
// times; conflict copies as "<stem>.HvcConflicted"; reserved names never. Paths are
// native. Each search belongs to one caller and has no lock; the tables that are asked have theirs.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>

#include <windows.h>

#include "library/Owners.h"
#include "namespace/PlainNameFilter.h"
#include "quelcrypt/IVirtualVolume.h"

// The first 32 bits of a directory-search handle: "FFFM" in memory.
inline constexpr std::uint32_t kFileSearchMagic = 0x4D464646;

struct VirtualFindHandle {
    ~VirtualFindHandle() { magic = 0; }  // a freed handle is not recognised
    std::uint32_t magic = kFileSearchMagic;
    UniqueFindHandle find;
    std::wstring filePathSearch;  // with ".zip" appended once the extra search has begun
    std::wstring folderPath;
    bool containerFlag = false;  // of the entry returned last
    bool extraZipSearch = false;
    bool isPattern = false;
    std::unordered_set<std::wstring> shownContainers;  // by the first search, which the extra one must skip
    std::uint64_t folderWriteTime = 0;                 // 0: not read yet
    PlainNameFilter plainNames;
};
using VirtualFindHandlePtr = std::unique_ptr<VirtualFindHandle>;

class VirtualFindFile {
public:
    // Describes the item at filePath, or else the container filePath + ".zip". False: neither exists.
    static bool FindFile(const wchar_t* filePath, VirtFindData* virtFindData);

    // The same for a file that will be opened. If it may be a container that could not be read, waits until nobody holds it and asks again.
    // A sync client's placeholder is fetched first, because the companion library cannot read it.
    static bool FindFileToOpen(const wchar_t* filePath, VirtFindData* virtFindData);

    // Describes a file or folder as it is on disk, whatever it contains: a document may itself be a container.
    static bool DescribeOnDisk(const std::wstring& path, VirtualItemType itemType, VirtFindData* virtFindData);

    // Describes the container at this path as it is on disk, even while it is locked and its lock has a record of it.
    static bool FindContainerOnDisk(const std::wstring& containerPath, VirtFindData* virtFindData);

    // Starts a search for the pattern in the last component, and stores the first entry. A pattern other than "*", "*.*" and
    // "*.zip" is searched again with ".zip" appended, so that names find their containers. Null when nothing matches.
    static VirtualFindHandlePtr FindFirstFileW(const wchar_t* filePathSearch, VirtFindData* virtFindData);
    // Stores the next entry; false when there is none.
    static bool FindNextFileW(VirtualFindHandle& handle, VirtFindData* virtFindData);
};
