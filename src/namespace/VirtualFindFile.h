// A real folder seen as part of the volume: containers show under the names stored in them, with their plain sizes and
// times; those whose names clash with something else show as "<stem>.HvcConflicted"; reserved names never show. Paths are
// native. Searches are states of one caller each; nothing here is locked but the tables asked.
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
    ~VirtualFindHandle() { magic = 0; }  // not recognised any more once it is freed
    std::uint32_t magic = kFileSearchMagic;
    UniqueFindHandle find;
    std::wstring filePathSearch;  // with ".zip" appended once the extra search has begun
    std::wstring folderPath;
    bool containerFlag = false;  // of the entry returned last
    bool extraZipSearch = false;
    bool isPattern = false;
    std::unordered_set<std::wstring> shownContainers;  // by the first search, as far as the extra one would find them again
    std::uint64_t folderWriteTime = 0;                 // 0: not read yet
    PlainNameFilter plainNames;
};
using VirtualFindHandlePtr = std::unique_ptr<VirtualFindHandle>;

class VirtualFindFile {
public:
    // Describes the item at filePath, or else the container filePath + ".zip". False: neither exists.
    static bool FindFile(const wchar_t* filePath, VirtFindData* virtFindData);

    // The same for a file that is going to be opened: what may be a container that could not be read just now is asked for once more, when
    // nobody holds it. One that a sync client keeps elsewhere is fetched for that; the companion library reads no placeholder.
    static bool FindFileToOpen(const wchar_t* filePath, VirtFindData* virtFindData);

    // Describes a file or folder as the disk does, whatever is in it: a document may itself be a container.
    static bool DescribeOnDisk(const std::wstring& path, VirtualItemType itemType, VirtFindData* virtFindData);

    // Describes the container at this path as it is on disk: not, while it is locked, by the record that its lock keeps.
    static bool FindContainerOnDisk(const std::wstring& containerPath, VirtFindData* virtFindData);

    // Starts a search, whose pattern is the last component, and stores the first entry. A pattern other than "*", "*.*" and
    // "*.zip" is searched again with ".zip" appended, so that names find their containers. Null when nothing matches.
    static VirtualFindHandlePtr FindFirstFileW(const wchar_t* filePathSearch, VirtFindData* virtFindData);
    // Stores the next entry; false when there is none.
    static bool FindNextFileW(VirtualFindHandle& handle, VirtFindData* virtFindData);
};
