#include "harness/WindowsRules.h"

#include <algorithm>
#include <cwctype>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <windows.h>

#include "harness/Imports.h"

namespace {

// The platform's own: what this program imports is led through ReleaseScanners.
#define REAL(function) reinterpret_cast<decltype(&function)>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), #function)))

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr int kScannersCalls = 12;  // that the module makes while a scanner holds a file; a pause counts as four

struct Scanner {
    HANDLE handle;
    int callsLeft;
};
struct State {
    std::recursive_mutex mutex;
    std::map<HANDLE, std::wstring> written;  // open files that their opener may write
    std::vector<Scanner> scanners;
    unsigned scans = 0;
};
State& g_state = *new State;

void ReleaseScanners() {
    const std::lock_guard guard(g_state.mutex);
    for (const Scanner& scanner : g_state.scanners)
        CloseHandle(scanner.handle);
    g_state.scanners.clear();
}

// One call, or a pause, of the module has passed.
void Pass(int calls) {
    const DWORD error = GetLastError();
    const std::lock_guard guard(g_state.mutex);
    std::erase_if(g_state.scanners, [&](Scanner& scanner) { return (scanner.callsLeft -= calls) <= 0 && CloseHandle(scanner.handle); });
    SetLastError(error);
}

// Scanners and indexers look at a file when its writer is done; every second one does not let others delete or rename it meanwhile
// ("CreateFile", dwShareMode).
void Scan(const std::wstring& path) {
    if (!windows_rules::AreOn())  // any more
        return;
    const DWORD share = g_state.scans++ % 2 ? kShareAll : kShareAll & ~static_cast<DWORD>(FILE_SHARE_DELETE);
    const HANDLE handle = REAL(CreateFileW)(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle != INVALID_HANDLE_VALUE)
        g_state.scanners.push_back({handle, kScannersCalls});
}

// A path without the long form's prefix ends at 259 units, that of a new folder at 247 ("Maximum Path Length Limitation").
bool IsTooLong(const wchar_t* path, std::size_t longest = MAX_PATH - 1) {
    const bool isTooLong = windows_rules::AreOn() && path && std::wcsncmp(path, L"\\\\?\\", 4) != 0 && std::wcslen(path) > longest;
    if (isTooLong)
        SetLastError(ERROR_PATH_NOT_FOUND);
    return isTooLong;
}

HANDLE WINAPI OpenFile(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD how, DWORD flags, HANDLE like) {
    Pass(1);
    if (IsTooLong(path))
        return INVALID_HANDLE_VALUE;
    const HANDLE file = REAL(CreateFileW)(path, access, share, security, how, flags, like);
    const DWORD error = GetLastError();
    if (file != INVALID_HANDLE_VALUE && (access & (GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA)) && !(flags & FILE_FLAG_BACKUP_SEMANTICS)) {
        const std::lock_guard guard(g_state.mutex);
        g_state.written[file] = path;
    }
    SetLastError(error);
    return file;
}

BOOL WINAPI CloseFile(HANDLE file) {
    const std::lock_guard guard(g_state.mutex);
    const auto written = g_state.written.extract(file);
    const BOOL isClosed = CloseHandle(file);
    const DWORD error = GetLastError();
    if (written)
        Scan(written.mapped());
    SetLastError(error);
    return isClosed;
}

template <class Function>
void Replace(HMODULE module, const char* name, Function* function) {
    ReplaceImport(module, name, reinterpret_cast<void*>(function));
}

void ReplaceIn(HMODULE module) {
    Replace(module, "CreateFileW", OpenFile);
    Replace(module, "CloseHandle", CloseFile);
    Replace(module, "Sleep", +[](DWORD) { Pass(4); });
    Replace(module, "GetFileAttributesW", +[](LPCWSTR path) -> DWORD { return IsTooLong(path) ? INVALID_FILE_ATTRIBUTES : REAL(GetFileAttributesW)(path); });
    Replace(module, "GetFileAttributesExW", +[](LPCWSTR path, GET_FILEEX_INFO_LEVELS level, LPVOID data) -> BOOL {
        return !IsTooLong(path) && REAL(GetFileAttributesExW)(path, level, data);
    });
    Replace(module, "SetFileAttributesW", +[](LPCWSTR path, DWORD attributes) -> BOOL { return !IsTooLong(path) && REAL(SetFileAttributesW)(path, attributes); });
    Replace(module, "FindFirstFileW", +[](LPCWSTR path, LPWIN32_FIND_DATAW data) { return IsTooLong(path) ? INVALID_HANDLE_VALUE : REAL(FindFirstFileW)(path, data); });
    Replace(module, "FindFirstFileExW", +[](LPCWSTR path, FINDEX_INFO_LEVELS level, LPVOID data, FINDEX_SEARCH_OPS op, LPVOID filter, DWORD flags) {
        return IsTooLong(path) ? INVALID_HANDLE_VALUE : REAL(FindFirstFileExW)(path, level, data, op, filter, flags);
    });
    Replace(module, "DeleteFileW", +[](LPCWSTR path) -> BOOL { return Pass(1), !IsTooLong(path) && REAL(DeleteFileW)(path); });
    Replace(module, "MoveFileExW", +[](LPCWSTR from, LPCWSTR to, DWORD flags) -> BOOL {
        return Pass(1), !IsTooLong(from) && !IsTooLong(to) && REAL(MoveFileExW)(from, to, flags);
    });
    Replace(module, "CopyFileW", +[](LPCWSTR from, LPCWSTR to, BOOL isNew) -> BOOL {
        Pass(1);
        if (IsTooLong(from) || IsTooLong(to) || !REAL(CopyFileW)(from, to, isNew))
            return FALSE;
        const std::lock_guard guard(g_state.mutex);
        Scan(to);
        return TRUE;
    });
    Replace(module, "CreateDirectoryW", +[](LPCWSTR path, LPSECURITY_ATTRIBUTES rights) -> BOOL { return !IsTooLong(path, 247) && REAL(CreateDirectoryW)(path, rights); });
    Replace(module, "RemoveDirectoryW", +[](LPCWSTR path) -> BOOL { return Pass(1), !IsTooLong(path) && REAL(RemoveDirectoryW)(path); });
}

// What the tests do on disk themselves comes when the scanners are done: each of their imports releases them first and goes on.
struct Stub {
    void (*release)();
    void* function;
    unsigned char code[48];

    // push rcx, rdx, r8, r9; sub rsp, 40; call [release]; add rsp, 40; pop r9, r8, rdx, rcx; jmp [function] ("Intel 64 Software
    // Developer's Manual", volume 2)
    void* Lead(void* to) {
        constexpr unsigned char kCode[] = {0x51, 0x52, 0x41, 0x50, 0x41, 0x51, 0x48, 0x83, 0xEC, 0x28, 0xFF, 0x15, 0xE0, 0xFF, 0xFF, 0xFF, 0x48,
                                           0x83, 0xC4, 0x28, 0x41, 0x59, 0x41, 0x58, 0x5A, 0x59, 0xFF, 0x25, 0xD8, 0xFF, 0xFF, 0xFF};
        release = ReleaseScanners;
        function = to;
        std::memcpy(code, kCode, sizeof(kCode));
        return code;
    }
};
static_assert(offsetof(Stub, code) == 16);

void LeadTests() {
    constexpr std::size_t kMost = 128;
    static auto* const s_stubs = static_cast<Stub*>(VirtualAlloc(nullptr, kMost * sizeof(Stub), MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
    static std::size_t s_count = 0;
    if (s_count != 0)
        return;
    ForEachImport(GetModuleHandleW(nullptr), [](const char* name, void** entry) {
        const std::string_view function = name;
        for (const std::string_view part : {"FileW", "FileExW", "Directory", "open", "remove", "unlink"})
            if (function.find(part) != function.npos && s_count < kMost) {
                SetImport(entry, s_stubs[s_count++].Lead(*entry));
                break;
            }
    });
}

}  // namespace

bool windows_rules::AreOn() { return GetEnvironmentVariableW(L"QUELCRYPT_WINDOWS_RULES", nullptr, 0) != 0; }

void windows_rules::TakeOver() {
    if (!AreOn())
        return;
    for (const wchar_t* module : {L"QuelcryptVol64.dll", L"QuelcryptLib64.dll"})
        ReplaceIn(GetModuleHandleW(module));
    LeadTests();
}

void windows_rules::Release() { ReleaseScanners(); }
