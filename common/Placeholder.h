// Placeholders: files whose content a sync client keeps elsewhere until somebody opens them.
#pragma once

#include <windows.h>

// Is only a placeholder on this disk? Reading it fetches the content ("File Attribute Constants").
inline bool IsPlaceholder(DWORD attributes) {
    constexpr DWORD recallOnOpen = 0x00040000;
    constexpr DWORD recallOnDataAccess = 0x00400000;
    return (attributes & (FILE_ATTRIBUTE_OFFLINE | recallOnOpen | recallOnDataAccess)) != 0;
}
