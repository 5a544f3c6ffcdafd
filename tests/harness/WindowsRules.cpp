#include "harness/WindowsRules.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <windows.h>

#include <shellapi.h>

#include "harness/Imports.h"

namespace {

// The platform's function, because this program's own imports go through Release. Looked up once, because this takes the loader's lock.
#define REAL(function)                                                                               \
    ([] {                                                                                            \
        static const FARPROC s_found = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), #function); \
        return reinterpret_cast<decltype(&function)>(reinterpret_cast<void*>(s_found));              \
    }())

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kReads = GENERIC_READ | GENERIC_ALL | FILE_READ_DATA;
constexpr DWORD kWrites = GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA;
constexpr int kLooksBeforeBits = 2;
constexpr int kScannersCalls = 12;  // a scanner holds a file for so many calls of the module; a pause counts as four

struct Opened {  // duplicated handles share one
    std::wstring path;
    bool isWriter;
    bool wasWritten = false;
    bool isTimeByHand = false;  // set explicitly through it
};
struct Scanner {
    HANDLE handle;
    std::wstring path;
    int callsLeft;
};
struct State {
    std::recursive_mutex mutex;
    std::map<HANDLE, std::shared_ptr<Opened>> opened;  // by the modules
    std::vector<Scanner> scanners;
    std::set<std::wstring> toBeDeleted;
    std::map<std::wstring, int> looks;  // at files that were written or put in place, some of which are looked at longer than others
    std::wstring marked;                // how the paths end that a test marked
    DWORD tag = 0;
    bool isFetched = false;
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
           std::ranges::any_of(g_state.opened, [&](const auto& open) { return holds(*open.second); });
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

// Is it what a test marked? With the given tag only, and not fetched yet.
bool IsMarked(const std::wstring& key, DWORD tag) {
    return g_state.tag == tag && !g_state.isFetched && !g_state.marked.empty() && key.ends_with(g_state.marked);
}

// 0: no reparse point. By rule "k" all in a sync client's, or a deduplicated, folder is one, though no link ("Reparse Point Tags").
DWORD TagOf(const std::wstring& key) {
    return IsMarked(key, g_state.tag) ? g_state.tag : windows_rules::Has('k') ? static_cast<DWORD>(IO_REPARSE_TAG_CLOUD) : 0;
}

// The attributes that the platform reports. Sync clients and indexers set bits soon after the writer has closed the file, and others where
// its content is elsewhere ("File Attribute Constants").
void Tell(const std::wstring& key, DWORD& attributes) {
    constexpr DWORD kPinned = 0x80000;
    const std::lock_guard guard(g_state.mutex);
    const auto looked = g_state.looks.find(key);
    if (windows_rules::Has('c') && looked != g_state.looks.end() && ++looked->second > kLooksBeforeBits)
        attributes = (attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_ARCHIVE)) | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | kPinned;
    attributes |= TagOf(key) != 0 ? FILE_ATTRIBUTE_REPARSE_POINT : 0;
    attributes |= IsMarked(key, IO_REPARSE_TAG_CLOUD) ? FILE_ATTRIBUTE_OFFLINE : 0;
}
BOOL TellEntry(WIN32_FIND_DATAW* entry) {
    const std::wstring name = KeyOf(entry->cFileName);
    if (!(entry->dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT))
        entry->dwReserved0 = TagOf(name);
    Tell(name, entry->dwFileAttributes);
    return TRUE;
}

void BeginLooks(const std::wstring& key) { g_state.looks[key] = -(g_state.written++ % 16); }

std::int64_t Number(const FILETIME& time) { return static_cast<std::int64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime; }
FILETIME TimeOf(std::int64_t number) { return {static_cast<DWORD>(number), static_cast<DWORD>(number >> 32)}; }

bool IsTemp(const std::wstring& key) { return key.find(L"\\halvanecloud\\hvc") != key.npos; }

// The write time is updated when the writer closes the file ("WriteFile", Remarks), unless one was set through the same handle ([MS-FSA]
// 2.1.4.17), in steps of two seconds on some disks ("File Times"): that of the temp folder is none of them.
std::int64_t StoredTime(const Opened& file, std::int64_t time) {
    constexpr std::int64_t kTwoSeconds = 20'000'000;
    return windows_rules::Has('l') && !IsTemp(file.path) ? time - time % kTwoSeconds : time;
}
template <class Write>
BOOL WriteLate(HANDLE handle, Write write) {
    const std::lock_guard guard(g_state.mutex);
    const auto opened = g_state.opened.find(handle);
    FILETIME before{};
    const bool isLate = windows_rules::Has('f') && opened != g_state.opened.end() && REAL(GetFileTime)(handle, nullptr, nullptr, &before);
    const BOOL isDone = write();
    const DWORD error = GetLastError();
    if (isLate)
        opened->second->wasWritten = REAL(SetFileTime)(handle, nullptr, nullptr, &before);
    SetLastError(error);
    return isDone;
}
void SetTimeOfClose(HANDLE handle, const Opened& file) {
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    now = TimeOf(StoredTime(file, Number(now)));
    if (file.wasWritten && !file.isTimeByHand)
        REAL(SetFileTime)(handle, nullptr, nullptr, &now);
}

// A folder is not renamed while something below it is open, nor a file to another disk ("FILE_RENAME_INFO", "MoveFileEx"): the temp
// folder counts as one. None: no rule is against it.
DWORD ErrorOfRename(const std::wstring& from, const std::wstring& to) {
    const std::lock_guard guard(g_state.mutex);
    const auto isBelow = [&](const std::wstring& path) { return path.starts_with(from + L"\\"); };
    const bool isOpenBelow = std::ranges::any_of(g_state.scanners, [&](const Scanner& scanner) { return isBelow(scanner.path); }) ||
                             std::ranges::any_of(g_state.opened, [&](const auto& open) { return isBelow(open.second->path); });
    return windows_rules::Has('g') && isOpenBelow                  ? ERROR_ACCESS_DENIED
           : windows_rules::Has('h') && IsTemp(from) != IsTemp(to) ? ERROR_NOT_SAME_DEVICE
                                                                   : ERROR_SUCCESS;
}

HANDLE WINAPI OpenFile(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD how, DWORD flags, HANDLE like) {
    CloseScanners(1);
    if (IsRefused(path))
        return INVALID_HANDLE_VALUE;
    const bool isWriter = (access & kWrites) && !(flags & FILE_FLAG_BACKUP_SEMANTICS);
    const HANDLE file = REAL(CreateFileW)(path, access, share, security, how, flags, like);
    const DWORD error = GetLastError();
    if (file != INVALID_HANDLE_VALUE) {
        const std::lock_guard guard(g_state.mutex);
        g_state.isFetched |= (access & kReads) && IsMarked(KeyOf(path), IO_REPARSE_TAG_CLOUD);
        g_state.opened[file] = std::make_shared<Opened>(Opened{KeyOf(path), isWriter});
    }
    SetLastError(error);
    return file;
}

BOOL WINAPI CloseFile(HANDLE handle) {
    const std::lock_guard guard(g_state.mutex);
    const auto opened = g_state.opened.extract(handle);
    const bool isLast = opened && opened.mapped().use_count() == 1;
    if (isLast)
        SetTimeOfClose(handle, *opened.mapped());
    const BOOL isClosed = REAL(CloseHandle)(handle);
    const DWORD error = GetLastError();
    if (isLast && opened.mapped()->isWriter) {
        BeginLooks(opened.mapped()->path);
        Scan(opened.mapped()->path);
    }
    if (isLast && !IsHeld(opened.mapped()->path))
        SetToBeDeleted(opened.mapped()->path, false);
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
        Tell(opened->second->path, info->FileAttributes);
        if (windows_rules::Has('l'))
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
    if (opened == g_state.opened.end())
        return g_setInformation(handle, status, data, size, kind);
    Opened& file = *opened->second;
    const auto* const rename = static_cast<FILE_RENAME_INFO*>(data);
    if (kind == kRename && g_state.opened.contains(rename->RootDirectory)) {
        const std::wstring to = g_state.opened[rename->RootDirectory]->path + L"\\" + rename->FileName;
        if (const DWORD error = ErrorOfRename(file.path, to))
            return error == ERROR_ACCESS_DENIED ? kAccessDenied : kNotSameDevice;
    }
    if (auto* const basic = static_cast<FILE_BASIC_INFO*>(data); kind == kBasic && basic->LastWriteTime.QuadPart > 0) {
        basic->LastWriteTime.QuadPart = StoredTime(file, basic->LastWriteTime.QuadPart);
        file.isTimeByHand = true;
    }
    const LONG result = g_setInformation(handle, status, data, size, kind);
    if (result >= 0 && kind == kDisposition)
        SetToBeDeleted(file.path, *static_cast<BOOLEAN*>(data) != 0);
    return result;
}

// The shell deletes the folder of a page's files with the page, and the page with the folder ("SHFileOperation", Connecting Files).
std::wstring WithConnected(const std::wstring& path) {
    std::wstring paths = path + L'\0';
    for (const std::wstring page : {L".htm", L".html"})
        for (const std::wstring folder : {L"_files", L".files"})
            for (const auto& [end, other] : {std::pair(page, folder), std::pair(folder, page)})
                if (const std::wstring stem = path.substr(0, path.size() - end.size()); path.ends_with(end))
                    if (REAL(GetFileAttributesW)((stem + other).c_str()) != INVALID_FILE_ATTRIBUTES)
                        paths += stem + other + L'\0';
    return paths;
}

// A service's window station is not visible: a dialog there waits for ever for an answer ("Window Stations").
void EndWithDialog(void* function) {
    std::printf("%s shows a dialog where nobody sees it, and would never return.\n", static_cast<const char*>(function));
    std::fflush(stdout);
    TerminateProcess(GetCurrentProcess(), 1);
}

int WINAPI DoAsShell(SHFILEOPSTRUCTW* operation) {
    constexpr FILEOP_FLAGS kSilent = FOF_SILENT | FOF_NOCONFIRMATION | FOF_NOERRORUI;
    if (windows_rules::Has('j') && (operation->fFlags & kSilent) != kSilent)
        EndWithDialog(const_cast<char*>("SHFileOperationW"));
    const std::wstring paths = WithConnected(operation->pFrom);
    if (windows_rules::Has('i') && operation->wFunc == FO_DELETE && !(operation->fFlags & FOF_NO_CONNECTED_ELEMENTS))
        operation->pFrom = paths.c_str();
    return SHFileOperationW(operation);
}

void TakeOverShell(HMODULE module) {
    REPLACE(module, SHFileOperationW, DoAsShell);
    if (!windows_rules::Has('j'))
        return;
    REPLACE(module, GetUserObjectInformationW, [](auto station, auto kind, auto data, auto... rest) -> BOOL {
        const BOOL isTold = GetUserObjectInformationW(station, kind, data, rest...);
        if (isTold && kind == UOI_FLAGS)
            static_cast<USEROBJECTFLAGS*>(data)->dwFlags = 0;
        return isTold;
    });
    ForEachImport(module, [](const char* name, void** entry) {
        for (const char* dialog : {"MessageBox", "TaskDialog", "DialogBox", "GetOpenFileName", "GetSaveFileName", "SHBrowseForFolder"})
            if (std::strncmp(name, dialog, std::strlen(dialog)) == 0)
                LeadImport(entry, EndWithDialog, const_cast<char*>(dialog));
    });
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
    REPLACE(module, WriteFile, [](auto file, auto... all) { return WriteLate(file, [&] { return REAL(WriteFile)(file, all...); }); });
    REPLACE(module, SetEndOfFile, [](auto file) { return WriteLate(file, [&] { return REAL(SetEndOfFile)(file); }); });
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
        const auto opened = g_state.opened.find(handle);
        if (!written || opened == g_state.opened.end())
            return REAL(SetFileTime)(handle, made, read, written);
        opened->second->isTimeByHand = true;
        const FILETIME stored = TimeOf(StoredTime(*opened->second, Number(*written)));
        return REAL(SetFileTime)(handle, made, read, &stored);
    });
    REPLACE(module, Sleep, [](auto ms) { CloseScanners(4), Sleep(ms); });
    REPLACE(module, GetFileAttributesW, [](auto at) {
        DWORD attributes = IsRefused(at) ? INVALID_FILE_ATTRIBUTES : REAL(GetFileAttributesW)(at);
        if (attributes != INVALID_FILE_ATTRIBUTES)
            Tell(KeyOf(at), attributes);
        return attributes;
    });
    REPLACE(module, GetFileAttributesExW, [](auto path, auto level, auto data) -> BOOL {
        if (IsRefused(path) || !REAL(GetFileAttributesExW)(path, level, data))
            return FALSE;
        Tell(KeyOf(path), static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(data)->dwFileAttributes);
        return TRUE;
    });
    REPLACE(module, SetFileAttributesW, [](auto at, auto bits) -> BOOL { return !IsRefused(at) && REAL(SetFileAttributesW)(at, bits); });
    REPLACE(module, FindFirstFileW, [](auto path, auto entry) {
        const HANDLE search = IsTooLong(path) ? INVALID_HANDLE_VALUE : REAL(FindFirstFileW)(path, entry);
        if (search != INVALID_HANDLE_VALUE)
            TellEntry(entry);
        return search;
    });
    REPLACE(module, FindNextFileW, [](auto search, auto entry) -> BOOL { return REAL(FindNextFileW)(search, entry) && TellEntry(entry); });
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

void ReplaceInModules() {
    for (const wchar_t* module : {L"QuelcryptVol64.dll", L"QuelcryptLib64.dll"}) {
        ReplaceIn(GetModuleHandleW(module));
        TakeOverShell(GetModuleHandleW(module));
    }
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
    g_state.marked.clear();
    if (GetEnvironmentVariableW(L"QUELCRYPT_WINDOWS_RULES", nullptr, 0) == 0)
        return;
    ReplaceInModules();
    LeadTests();
}

void windows_rules::Mark(const std::wstring& ending, DWORD tag) {
    ReplaceInModules();
    g_state.marked = KeyOf(ending);
    g_state.tag = tag;
    g_state.isFetched = false;
}

bool windows_rules::IsFetched() { return g_state.isFetched; }

void windows_rules::Release() { CloseScanners(kScannersCalls); }
