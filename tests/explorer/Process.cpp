#include "explorer/Process.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include <windows.h>

#include <shellapi.h>
#include <shlobj.h>

#include "companion/Control.h"
#include "harness/Imports.h"
#include "harness/WindowsRules.h"

namespace {

HMODULE g_module = nullptr;
IVirtualVolume* g_volume = nullptr;
std::set<HANDLE> g_files, g_searches;
std::set<DWORD> g_threadSlots;  // the run-time library does not give them back; there are 1,088

template <class Key>
Key Noted(std::set<Key>& keys, Key key) {
    if (key != reinterpret_cast<Key>(INVALID_HANDLE_VALUE))
        keys.insert(key);
    return key;
}
DWORD Noted(DWORD slot) { return *g_threadSlots.insert(slot).first; }

// What the module called before may be one of Windows' rules.
decltype(&CreateFileW) g_createFile;
decltype(&DuplicateHandle) g_duplicateHandle;
decltype(&CloseHandle) g_closeHandle;
decltype(&FindFirstFileW) g_findFirstFile;
decltype(&FindFirstFileExW) g_findFirstFileEx;

void NoteWhatIsHeld() {
    g_createFile = Replace(g_module, "CreateFileW",
                           [](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD how, DWORD flags,
                              HANDLE sample) { return Noted(g_files, g_createFile(path, access, share, security, how, flags, sample)); });
    g_duplicateHandle = Replace(g_module, "DuplicateHandle",
                                [](HANDLE from, HANDLE file, HANDLE to, LPHANDLE copy, DWORD access, BOOL inherit, DWORD options) {
                                    const BOOL isDone = g_duplicateHandle(from, file, to, copy, access, inherit, options);
                                    if (isDone && g_files.count(file))
                                        g_files.insert(*copy);
                                    return isDone;
                                });
    g_closeHandle = Replace(g_module, "CloseHandle", [](HANDLE handle) {
        g_files.erase(handle);
        return g_closeHandle(handle);
    });
    g_findFirstFile = Replace(g_module, "FindFirstFileW",
                              [](LPCWSTR path, LPWIN32_FIND_DATAW entry) { return Noted(g_searches, g_findFirstFile(path, entry)); });
    g_findFirstFileEx = Replace(g_module, "FindFirstFileExW",
                                [](LPCWSTR path, FINDEX_INFO_LEVELS level, LPVOID entry, FINDEX_SEARCH_OPS kind, LPVOID filter,
                                   DWORD flags) { return Noted(g_searches, g_findFirstFileEx(path, level, entry, kind, filter, flags)); });
    Replace(g_module, "FindClose", [](HANDLE search) {
        g_searches.erase(search);
        return FindClose(search);
    });
    Replace(g_module, "TlsAlloc", [] { return Noted(TlsAlloc()); });
    Replace(g_module, "TlsFree", [](DWORD slot) {
        g_threadSlots.erase(slot);
        return TlsFree(slot);
    });
}

// Leaves out what takes time and has no effect here: prompts, pauses before a call is repeated, and flushes. Replaces the shell's
// functions by ones that take a twentieth of the time.
void LeaveOutWhatTakesTime() {
    Replace(g_module, "SHBrowseForFolderW", [](LPBROWSEINFOW) -> PIDLIST_ABSOLUTE { return nullptr; });
    Replace(g_module, "CoInitialize", [](LPVOID) -> HRESULT { return S_FALSE; });
    Replace(g_module, "CoUninitialize", [] {});
    for (const HMODULE module : {g_module, GetModuleHandleW(L"QuelcryptLib64.dll")})
        Replace(module, "Sleep", [](DWORD) { windows_rules::Release(); });
    Replace(g_module, "FlushFileBuffers", [](HANDLE) -> BOOL { return TRUE; });
    Replace(g_module, "SHCreateDirectoryExW", [](HWND, LPCWSTR path, const SECURITY_ATTRIBUTES*) -> int {
        return CreateDirectoryW(path, nullptr) ? ERROR_SUCCESS : static_cast<int>(GetLastError());
    });
    Replace(g_module, "SHFileOperationW", [](LPSHFILEOPSTRUCTW operation) -> int {
        std::error_code error;
        std::filesystem::remove_all(operation->pFrom, error);
        return error.value();
    });
}

}  // namespace

IVirtualVolume* process::Volume() {
    if (g_volume)
        return g_volume;
    g_module = LoadLibraryW(L"QuelcryptVol64.dll");
    if (!g_module) {
        std::printf("The volume cannot be loaded: %lu\n", GetLastError());
        std::exit(2);
    }
    Companion().level = 0;
    windows_rules::TakeOver();
    NoteWhatIsHeld();
    LeaveOutWhatTakesTime();
    void* const factory = reinterpret_cast<void*>(GetProcAddress(g_module, "Quelcrypt_VolumeFactory"));
    return g_volume = reinterpret_cast<IVirtualVolume* (*)()>(factory)();
}

void process::End() {
    if (!g_volume)
        return;
    g_volume->Release();
    g_volume = nullptr;
    FreeLibrary(g_module);
    windows_rules::Release();
    for (const HANDLE file : g_files)
        g_closeHandle(file);
    for (const HANDLE search : g_searches)
        FindClose(search);
    for (const DWORD slot : g_threadSlots)
        TlsFree(slot);
    g_files.clear();
    g_searches.clear();
    g_threadSlots.clear();
}

bool process::HoldsHandles() { return !g_files.empty() || !g_searches.empty(); }
