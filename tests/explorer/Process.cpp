#include "explorer/Process.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>

#include <windows.h>

#include <shellapi.h>
#include <shlobj.h>

#include "companion/Control.h"
#include "harness/Imports.h"
#include "harness/Prompts.h"
#include "harness/WindowsRules.h"

namespace {

// clang-format off
constexpr std::pair<const char*, Fault> kFailures[] = {
    {"", Fault::None}, {"Quelcrypt_FileWriterFactory", Fault::Null}, {"Quelcrypt_FileWriterFactory", Fault::Error},
    {"IFileWriter::Write", Fault::Null}, {"IFileWriter::Finish", Fault::Null}, {"Quelcrypt_GetFileInformation", Fault::Null},
    {"File", Fault::Null}, {"File", Fault::Error}};
// clang-format on

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
    g_createFile = REPLACE(g_module, CreateFileW, [](auto... all) { return Noted(g_files, g_createFile(all...)); });
    g_duplicateHandle = REPLACE(g_module, DuplicateHandle, [](auto from, auto file, auto to, auto copy, auto... rest) {
        const BOOL isDone = g_duplicateHandle(from, file, to, copy, rest...);
        if (isDone && g_files.count(file))
            g_files.insert(*copy);
        return isDone;
    });
    g_closeHandle = REPLACE(g_module, CloseHandle, [](auto handle) {
        g_files.erase(handle);
        return g_closeHandle(handle);
    });
    g_findFirstFile = REPLACE(g_module, FindFirstFileW, [](auto... all) { return Noted(g_searches, g_findFirstFile(all...)); });
    g_findFirstFileEx = REPLACE(g_module, FindFirstFileExW, [](auto... all) { return Noted(g_searches, g_findFirstFileEx(all...)); });
    REPLACE(g_module, FindClose, [](auto search) {
        g_searches.erase(search);
        return FindClose(search);
    });
    REPLACE(g_module, TlsAlloc, [] { return Noted(TlsAlloc()); });
    REPLACE(g_module, TlsFree, [](auto slot) {
        g_threadSlots.erase(slot);
        return TlsFree(slot);
    });
}

// Leaves out prompts, pauses and flushes, which have no effect here, and replaces the shell's functions, which take twenty times as long.
void LeaveOutWhatTakesTime() {
    prompts::TakeOver(g_module);
    for (const HMODULE module : {g_module, GetModuleHandleW(L"QuelcryptLib64.dll")})
        REPLACE(module, Sleep, [](auto) { windows_rules::Release(); });
    REPLACE(g_module, FlushFileBuffers, [](auto) -> BOOL { return TRUE; });
    REPLACE(g_module, SHCreateDirectoryExW, [](auto, auto path, auto) -> int {
        return CreateDirectoryW(path, nullptr) ? ERROR_SUCCESS : static_cast<int>(GetLastError());
    });
    REPLACE(g_module, SHFileOperationW, [](auto operation) {
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

void process::LetFail(const Step& step) {
    const auto [call, fault] = kFailures[static_cast<int>(step.failing)];
    Companion().FailNth(call, static_cast<std::uint32_t>(step.nth), fault, step.nth == 0);
}

bool process::HoldsHandles() { return !g_files.empty() || !g_searches.empty(); }
