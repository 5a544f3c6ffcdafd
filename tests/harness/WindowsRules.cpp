#include "harness/WindowsRules.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <windows.h>

#include "harness/Imports.h"

namespace {

// The platform's function, because this program's own imports go through Release. Looked up once, because this takes the loader's lock.
#define REAL(function)                                                                               \
    ([] {                                                                                            \
        static const FARPROC s_found = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), #function); \
        return reinterpret_cast<decltype(&function)>(reinterpret_cast<void*>(s_found));              \
    }())

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kWrites = GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA;
constexpr int kLooksBeforeBits = 2;
constexpr int kScannersCalls = 12;  // a scanner holds a file for so many calls of the module; a pause counts as four

struct Opened {
    std::wstring path;
    bool isWriter;
    std::int64_t timeBefore;             // of a writer's file; 0: there was none
    std::optional<FILETIME> timeByHand;  // set explicitly on the handle
};
struct Scanner {
    HANDLE handle;
    std::wstring path;
    int callsLeft;
};
struct State {
    std::recursive_mutex mutex;
    std::map<HANDLE, Opened> opened;  // by the modules
    std::vector<Scanner> scanners;
    std::set<std::wstring> toBeDeleted;
    std::map<std::wstring, int> looks;  // at files that were written or put in place, some of which are looked at longer than others
    int written = 0;
    unsigned scans = 0;
};
State& g_state = *new State;

// All paths here are without the long form's prefix, in lower case.
std::wstring KeyOf(std::wstring path) {
    path = path.starts_with(L"\\\\?\\") ? path.substr(4) : path;
    CharLowerW(path.data());
    return path;
}

bool IsHeld(const std::wstring& key) {
    const auto holds = [&](const auto& holder) { return holder.path == key; };
    return std::ranges::any_of(g_state.scanners, holds) ||
           std::ranges::any_of(g_state.opened, [&](const auto& open) { return holds(open.second); });
}

// Nobody can open a file that is marked for deletion; its name stays until its last handle is closed ("DeleteFile").
void SetToBeDeleted(const std::wstring& key, bool isMarked) {
    if (windows_rules::Has('e') && isMarked && IsHeld(key))
        g_state.toBeDeleted.insert(key);
    else
        g_state.toBeDeleted.erase(key);
}
bool IsToBeDeleted(const wchar_t* path) {
    const std::lock_guard guard(g_state.mutex);
    const bool isMarked = path && !g_state.toBeDeleted.empty() && g_state.toBeDeleted.contains(KeyOf(path));
    if (isMarked)
        SetLastError(ERROR_ACCESS_DENIED);
    return isMarked;
}

void CloseScanners(int calls) {
    const DWORD error = GetLastError();
    const std::lock_guard guard(g_state.mutex);
    std::set<std::wstring> released;
    std::erase_if(g_state.scanners, [&](Scanner& scanner) {
        return (scanner.callsLeft -= calls) <= 0 && REAL(CloseHandle)(scanner.handle) && released.insert(scanner.path).second | true;
    });
    for (const std::wstring& key : released)
        if (!IsHeld(key))
            SetToBeDeleted(key, false);
    SetLastError(error);
}

// Scanners open a file after its writer has closed it; every second one lets nobody delete or rename it meanwhile ("CreateFile").
void Scan(const std::wstring& key) {
    if (!windows_rules::Has('b'))
        return;
    const DWORD share = g_state.scans++ % 2 ? kShareAll : kShareAll & ~static_cast<DWORD>(FILE_SHARE_DELETE);
    const HANDLE handle = REAL(CreateFileW)((L"\\\\?\\" + key).c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr);
    if (handle != INVALID_HANDLE_VALUE)
        g_state.scanners.push_back({handle, key, kScannersCalls});
}

// A path without the long form's prefix ends at 259 units, that of a new folder at 247 ("Maximum Path Length Limitation").
bool IsTooLong(const wchar_t* path, std::size_t longest = MAX_PATH - 1) {
    const bool isTooLong = windows_rules::Has('a') && path && std::wcsncmp(path, L"\\\\?\\", 4) != 0 && std::wcslen(path) > longest;
    if (isTooLong)
        SetLastError(ERROR_PATH_NOT_FOUND);
    return isTooLong;
}
bool IsRefused(const wchar_t* path) { return IsTooLong(path) || IsToBeDeleted(path); }

std::int64_t Number(const FILETIME& time) { return static_cast<std::int64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime; }
FILETIME TimeOf(std::int64_t number) { return {static_cast<DWORD>(number), static_cast<DWORD>(number >> 32)}; }

// The attributes and time that the platform reports. Sync clients and indexers set bits soon after the writer has closed the file ("File
// Attribute Constants"); its write time is updated only then ("WriteFile", Remarks), in steps of two seconds on some disks ("File Times").
void Tell(const std::wstring& key, DWORD& attributes, std::int64_t& writeTime) {
    constexpr DWORD kPinned = 0x80000;
    constexpr std::int64_t kTwoSeconds = 20'000'000;
    const std::lock_guard guard(g_state.mutex);
    const auto looked = g_state.looks.find(key);
    if (windows_rules::Has('c') && looked != g_state.looks.end() && ++looked->second > kLooksBeforeBits)
        attributes = (attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_ARCHIVE)) | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | kPinned;
    if (!windows_rules::Has('f'))
        return;
    for (const auto& [handle, file] : g_state.opened)
        if (file.isWriter && file.path == key && file.timeBefore != 0 && !file.timeByHand)
            writeTime = file.timeBefore;
    writeTime -= writeTime % kTwoSeconds;
}

void BeginLooks(const std::wstring& key) { g_state.looks[key] = -(g_state.written++ % 16); }

// A folder is not renamed while something below it is open, nor a file to another disk ("FILE_RENAME_INFO", "MoveFileEx"): the temp
// folder counts as one. None: no rule is against it.
DWORD ErrorOfRename(const std::wstring& from, const std::wstring& to) {
    const std::lock_guard guard(g_state.mutex);
    const auto isBelow = [&](const std::wstring& path) { return path.starts_with(from + L"\\"); };
    const bool isOpenBelow = std::ranges::any_of(g_state.scanners, [&](const Scanner& scanner) { return isBelow(scanner.path); }) ||
                             std::ranges::any_of(g_state.opened, [&](const auto& open) { return isBelow(open.second.path); });
    const auto isTemp = [](const std::wstring& path) { return path.find(L"\\halvanecloud\\hvc") != path.npos; };
    return windows_rules::Has('g') && isOpenBelow                  ? ERROR_ACCESS_DENIED
           : windows_rules::Has('h') && isTemp(from) != isTemp(to) ? ERROR_NOT_SAME_DEVICE
                                                                   : ERROR_SUCCESS;
}

HANDLE WINAPI OpenFile(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD how, DWORD flags, HANDLE like) {
    CloseScanners(1);
    if (IsRefused(path))
        return INVALID_HANDLE_VALUE;
    WIN32_FILE_ATTRIBUTE_DATA before{};
    const bool isWriter = (access & kWrites) && !(flags & FILE_FLAG_BACKUP_SEMANTICS);
    if (isWriter)
        REAL(GetFileAttributesExW)(path, GetFileExInfoStandard, &before);
    const HANDLE file = REAL(CreateFileW)(path, access, share, security, how, flags, like);
    const DWORD error = GetLastError();
    if (file != INVALID_HANDLE_VALUE) {
        const std::lock_guard guard(g_state.mutex);
        g_state.opened[file] = {KeyOf(path), isWriter, how == OPEN_EXISTING ? Number(before.ftLastWriteTime) : 0, {}};
    }
    SetLastError(error);
    return file;
}

BOOL WINAPI CloseFile(HANDLE handle) {
    const std::lock_guard guard(g_state.mutex);
    const auto opened = g_state.opened.extract(handle);
    // A time set on a handle stops later updates through it ("FILE_BASIC_INFO").
    if (opened && opened.mapped().timeByHand && windows_rules::Has('f'))
        REAL(SetFileTime)(handle, nullptr, nullptr, &*opened.mapped().timeByHand);
    const BOOL isClosed = REAL(CloseHandle)(handle);
    const DWORD error = GetLastError();
    if (opened && opened.mapped().isWriter) {
        BeginLooks(opened.mapped().path);
        Scan(opened.mapped().path);
    }
    if (opened && !IsHeld(opened.mapped().path))
        SetToBeDeleted(opened.mapped().path, false);
    SetLastError(error);
    return isClosed;
}

BOOL WINAPI TellOfOpen(HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID data, DWORD size) {
    if (!REAL(GetFileInformationByHandleEx)(handle, kind, data, size))
        return FALSE;
    const std::lock_guard guard(g_state.mutex);
    const auto opened = g_state.opened.find(handle);
    if (kind == FileBasicInfo && opened != g_state.opened.end()) {
        auto* const info = static_cast<FILE_BASIC_INFO*>(data);
        Tell(opened->second.path, info->FileAttributes, info->LastWriteTime.QuadPart);
        if (windows_rules::Has('f'))
            info->ChangeTime.QuadPart = 0;  // such a disk has no change times
    }
    if (kind == FileIdInfo && windows_rules::Has('d'))  // nor ids, which it reports in two ways ("FILE_ID_INFO")
        std::memset(&static_cast<FILE_ID_INFO*>(data)->FileId, g_state.scans % 2 ? 0xFF : 0, sizeof(FILE_ID_128));
    return TRUE;
}

using SetInformation = LONG(NTAPI*)(HANDLE, void*, void*, ULONG, int);
SetInformation g_setInformation = nullptr;
LONG NTAPI SetInformationOf(HANDLE handle, void* status, void* data, ULONG size, int kind) {
    constexpr int kBasic = 4, kRename = 10, kDisposition = 13;
    constexpr LONG kAccessDenied = static_cast<LONG>(0xC0000022), kNotSameDevice = static_cast<LONG>(0xC00000D4);
    const std::lock_guard guard(g_state.mutex);
    const auto opened = g_state.opened.find(handle);
    const auto* const rename = static_cast<FILE_RENAME_INFO*>(data);
    if (kind == kRename && opened != g_state.opened.end() && g_state.opened.contains(rename->RootDirectory)) {
        const std::wstring to = g_state.opened[rename->RootDirectory].path + L"\\" + rename->FileName;
        if (const DWORD error = ErrorOfRename(opened->second.path, to))
            return error == ERROR_ACCESS_DENIED ? kAccessDenied : kNotSameDevice;
    }
    const LONG result = g_setInformation(handle, status, data, size, kind);
    if (result < 0 || opened == g_state.opened.end())
        return result;
    if (kind == kDisposition)
        SetToBeDeleted(opened->second.path, *static_cast<BOOLEAN*>(data) != 0);
    if (const auto* const basic = static_cast<FILE_BASIC_INFO*>(data); kind == kBasic && basic->LastWriteTime.QuadPart > 0)
        opened->second.timeByHand = TimeOf(basic->LastWriteTime.QuadPart);
    return result;
}

void ReplaceIn(HMODULE module) {
    REPLACE(module, CreateFileW, OpenFile);
    REPLACE(module, CloseHandle, CloseFile);
    REPLACE(module, DuplicateHandle, [](auto from, auto file, auto to, auto copy, auto... rest) -> BOOL {
        const BOOL isDone = DuplicateHandle(from, file, to, copy, rest...);
        const std::lock_guard guard(g_state.mutex);
        if (const auto opened = g_state.opened.find(file); isDone && opened != g_state.opened.end())
            g_state.opened[*copy] = opened->second;
        return isDone;
    });
    REPLACE(module, GetFileInformationByHandleEx, TellOfOpen);
    REPLACE(module, GetProcAddress, [](auto from, auto name) -> FARPROC {
        const FARPROC function = GetProcAddress(from, name);
        if (std::strcmp(name, "ZwSetInformationFile") != 0)
            return function;
        g_setInformation = reinterpret_cast<SetInformation>(reinterpret_cast<void*>(function));
        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(SetInformationOf));
    });
    REPLACE(module, SetFileTime, [](auto handle, auto made, auto read, auto written) -> BOOL {
        const std::lock_guard guard(g_state.mutex);
        if (const auto opened = g_state.opened.find(handle); written && opened != g_state.opened.end())
            opened->second.timeByHand = *written;
        return REAL(SetFileTime)(handle, made, read, written);
    });
    REPLACE(module, Sleep, [](auto ms) { CloseScanners(4), Sleep(ms); });
    REPLACE(module, GetFileAttributesW, [](auto at) { return IsRefused(at) ? INVALID_FILE_ATTRIBUTES : REAL(GetFileAttributesW)(at); });
    REPLACE(module, GetFileAttributesExW, [](auto path, auto level, auto data) -> BOOL {
        if (IsRefused(path) || !REAL(GetFileAttributesExW)(path, level, data))
            return FALSE;
        auto* const told = static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(data);
        std::int64_t writeTime = Number(told->ftLastWriteTime);
        Tell(KeyOf(path), told->dwFileAttributes, writeTime);
        told->ftLastWriteTime = TimeOf(writeTime);
        return TRUE;
    });
    REPLACE(module, SetFileAttributesW, [](auto at, auto bits) -> BOOL { return !IsRefused(at) && REAL(SetFileAttributesW)(at, bits); });
    REPLACE(module, FindFirstFileW,
            [](auto path, auto data) { return IsTooLong(path) ? INVALID_HANDLE_VALUE : REAL(FindFirstFileW)(path, data); });
    REPLACE(module, FindFirstFileExW,
            [](auto path, auto... rest) { return IsTooLong(path) ? INVALID_HANDLE_VALUE : REAL(FindFirstFileExW)(path, rest...); });
    REPLACE(module, DeleteFileW, [](auto path) -> BOOL {
        CloseScanners(1);
        if (IsRefused(path) || !REAL(DeleteFileW)(path))
            return FALSE;
        const std::lock_guard guard(g_state.mutex);
        SetToBeDeleted(KeyOf(path), true);
        return TRUE;
    });
    REPLACE(module, MoveFileExW, [](auto from, auto to, auto flags) -> BOOL {
        CloseScanners(1);
        if (const DWORD error = ErrorOfRename(KeyOf(from), KeyOf(to)))
            return SetLastError(error), FALSE;
        if (IsRefused(from) || IsRefused(to) || !REAL(MoveFileExW)(from, to, flags))
            return FALSE;
        const std::lock_guard guard(g_state.mutex);
        BeginLooks(KeyOf(to));
        return TRUE;
    });
    REPLACE(module, CopyFileW, [](auto from, auto to, auto isNew) -> BOOL {
        CloseScanners(1);
        if (IsRefused(from) || IsRefused(to) || !REAL(CopyFileW)(from, to, isNew))
            return FALSE;
        const std::lock_guard guard(g_state.mutex);
        Scan(KeyOf(to));
        return TRUE;
    });
    REPLACE(module, CreateDirectoryW, [](auto at, auto who) -> BOOL { return !IsTooLong(at, 247) && REAL(CreateDirectoryW)(at, who); });
    REPLACE(module, RemoveDirectoryW, [](auto path) -> BOOL { return CloseScanners(1), !IsTooLong(path) && REAL(RemoveDirectoryW)(path); });
}

// When a test itself accesses the disk, the scanners have finished: each import of the tests calls Release first.
void LeadTests() {
    static bool s_isLed = false;
    if (std::exchange(s_isLed, true))
        return;
    ForEachImport(GetModuleHandleW(nullptr), [](const char* name, void** entry) {
        const auto isIn = [&](const char* part) { return std::strstr(name, part) != nullptr; };
        if (std::ranges::any_of(std::initializer_list{"FileW", "FileExW", "Directory", "open", "find", "stat", "remove", "unlink"}, isIn))
            LeadImport(
                entry, [](void*) { windows_rules::Release(); }, nullptr);
    });
}

}  // namespace

bool windows_rules::Has(char rule) {
    wchar_t rules[16] = L"";
    return GetEnvironmentVariableW(L"QUELCRYPT_WINDOWS_RULES", rules, 16) != 0 && std::wcschr(rules, static_cast<wchar_t>(rule));
}

void windows_rules::TakeOver() {
    if (GetEnvironmentVariableW(L"QUELCRYPT_WINDOWS_RULES", nullptr, 0) == 0)
        return;
    for (const wchar_t* module : {L"QuelcryptVol64.dll", L"QuelcryptLib64.dll"})
        ReplaceIn(GetModuleHandleW(module));
    LeadTests();
}

void windows_rules::Release() { CloseScanners(kScannersCalls); }
