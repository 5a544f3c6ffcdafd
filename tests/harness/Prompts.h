// The user before whom the volume's folder prompt appears, in place of the platform's dialog. Cancels unless told otherwise.
#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include <windows.h>

#include <shlobj.h>

#include "harness/Imports.h"

namespace prompts {

inline std::mutex g_mutex;
inline std::wstring g_picked, g_title;
inline std::atomic<int> g_count{0};

inline PIDLIST_ABSOLUTE WINAPI Answer(BROWSEINFOW* prompt) {
    const std::lock_guard guard(g_mutex);
    ++g_count;
    g_title = prompt->lpszTitle;
    return g_picked.empty() ? nullptr : ILCreateFromPathW(g_picked.c_str());
}
// Of a module that was just loaded. Without a dialog no COM either, the making of which takes longer than all else of a save.
inline bool TakeOver(HMODULE module) {
    return REPLACE(module, CoInitialize, [](auto) -> HRESULT { return S_OK; }) && REPLACE(module, CoUninitialize, [] {}) &&
           REPLACE(module, SHBrowseForFolderW, Answer);
}
// From now on picks this folder; empty: cancels.
inline void Pick(const std::wstring& folder) {
    const std::lock_guard guard(g_mutex);
    g_picked = folder;
}

}  // namespace prompts
