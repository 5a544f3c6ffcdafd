// Links in listings: symbolic links, junctions, mounted disks.
#pragma once

#include <windows.h>

// Does the entry lead elsewhere? A sync client's placeholder is a reparse point too, but not a link ("Reparse Point Tags").
inline bool IsLinkEntry(const WIN32_FIND_DATAW& entry) {
    const DWORD tag = entry.dwReserved0;  // 0: unknown
    return (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) && (tag == 0 || IsReparseTagNameSurrogate(tag));
}
