// Remembers what the companion library said about a container, so that a listing asks again only when the container or its
// folder changed on disk. Process-wide, at most 1014 containers, the oldest is dropped first; one critical section guards it,
// and the library is never called while it is held. Two kinds of record are not kept. That of a container that could not be read: others
// may have held it for a moment, and its document must not stay hidden until something changes. And that of a conflict copy that was
// asked for by its path: its name has the letter case of that path, which listings must not show.
#pragma once

#include <cstdint>
#include <string>

#include <windows.h>

#include "quelcrypt/IVirtualVolume.h"

class VirtualFileInfoCache {
public:
    // Stores the remembered record when the container's raw entry (write time, size, attributes) and its folder's
    // write time are unchanged. Otherwise false, and an outdated record is forgotten.
    static bool Find(const std::wstring& containerFilePath, const WIN32_FIND_DATAW& rawFindData, std::uint64_t folderWriteTime,
                     VirtFindData* virtFindData);
    // rawFindData is the entry as found on disk.
    static void Add(const std::wstring& containerFilePath, const WIN32_FIND_DATAW& rawFindData, const VirtFindData& virtFindData,
                    std::uint64_t folderWriteTime);
    static void Remove(const std::wstring& containerFilePath);
};
