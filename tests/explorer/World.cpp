#include "explorer/World.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cwctype>
#include <functional>
#include <set>

#include <windows.h>
#include <shellapi.h>
#include <shlobj.h>

#include "harness/Imports.h"

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
const wchar_t* const kFolders[] = {L"K1", L"K2", L"Plain"};

void ForEachEntry(const std::wstring& folder, const std::function<void(const WIN32_FIND_DATAW&)>& visit) {
    WIN32_FIND_DATAW entry;
    const HANDLE find = FindFirstFileExW((folder + L"\\*").c_str(), FindExInfoBasic, &entry, FindExSearchNameMatch, nullptr, 0);
    if (find == INVALID_HANDLE_VALUE)
        return;
    do
        if (entry.cFileName[0] != L'.')
            visit(entry);
    while (FindNextFileW(find, &entry));
    FindClose(find);
}

HMODULE g_module = nullptr;
IVirtualVolume* g_volume = nullptr;
std::set<HANDLE> g_held;  // by the volume: what the system would close with its process
std::set<HANDLE> g_searches;
std::set<DWORD> g_threadSlots;  // the run-time library does not give them back; there are 1,088

HANDLE Noted(std::set<HANDLE>& handles, HANDLE handle) {
    if (handle != INVALID_HANDLE_VALUE)
        handles.insert(handle);
    return handle;
}

// What the volume calls in place of the platform.
HANDLE WINAPI NotedCreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags,
                               HANDLE sample) {
    return Noted(g_held, CreateFileW(path, access, share, security, disposition, flags, sample));
}
BOOL WINAPI NotedDuplicateHandle(HANDLE from, HANDLE handle, HANDLE to, LPHANDLE copy, DWORD access, BOOL inherited, DWORD options) {
    const BOOL isDone = DuplicateHandle(from, handle, to, copy, access, inherited, options);
    if (isDone && g_held.count(handle))
        g_held.insert(*copy);
    return isDone;
}
BOOL WINAPI NotedCloseHandle(HANDLE handle) {
    g_held.erase(handle);
    return CloseHandle(handle);
}
HANDLE WINAPI NotedFindFirstFileW(LPCWSTR path, LPWIN32_FIND_DATAW entry) { return Noted(g_searches, FindFirstFileW(path, entry)); }
HANDLE WINAPI NotedFindFirstFileExW(LPCWSTR path, FINDEX_INFO_LEVELS level, LPVOID entry, FINDEX_SEARCH_OPS search, LPVOID filter, DWORD flags) {
    return Noted(g_searches, FindFirstFileExW(path, level, entry, search, filter, flags));
}
BOOL WINAPI NotedFindClose(HANDLE search) {
    g_searches.erase(search);
    return FindClose(search);
}
DWORD WINAPI NotedTlsAlloc() {
    const DWORD index = TlsAlloc();
    g_threadSlots.insert(index);
    return index;
}
BOOL WINAPI NotedTlsFree(DWORD index) {
    g_threadSlots.erase(index);
    return TlsFree(index);
}
// Nobody is there to pick a folder, nothing outside lets go of a file in time, and no power fails.
PIDLIST_ABSOLUTE WINAPI CancelledBrowse(LPBROWSEINFOW) { return nullptr; }
void WINAPI NoSleep(DWORD) {}
BOOL WINAPI NoFlush(HANDLE) { return TRUE; }
HRESULT WINAPI NoCoInitialize(LPVOID) { return S_FALSE; }
void WINAPI NoCoUninitialize() {}

// What the shell would do with one file, or a folder of files, at twenty times the cost.
int WINAPI QuickFileOperationW(LPSHFILEOPSTRUCTW operation) {
    const std::wstring path = operation->pFrom;
    if (DeleteFileW(path.c_str()))
        return 0;
    ForEachEntry(path, [&](const WIN32_FIND_DATAW& entry) { DeleteFileW((path + L"\\" + entry.cFileName).c_str()); });
    return RemoveDirectoryW(path.c_str()) ? 0 : static_cast<int>(GetLastError());
}
int WINAPI QuickCreateDirectory(HWND, LPCWSTR path, const SECURITY_ATTRIBUTES*) {
    return CreateDirectoryW(path, nullptr) ? ERROR_SUCCESS : static_cast<int>(GetLastError());
}

template <class Function>
void Replace(const char* name, Function* function) {
    ReplaceImport(g_module, name, reinterpret_cast<void*>(function));
}

void StartProcess() {
    g_module = LoadLibraryW(L"QuelcryptVol64.dll");
    if (!g_module) {
        std::printf("The volume cannot be loaded: %lu\n", GetLastError());
        std::fflush(stdout);
        ExitProcess(99);
    }
    Replace("CreateFileW", NotedCreateFileW);
    Replace("DuplicateHandle", NotedDuplicateHandle);
    Replace("CloseHandle", NotedCloseHandle);
    Replace("FindFirstFileW", NotedFindFirstFileW);
    Replace("FindFirstFileExW", NotedFindFirstFileExW);
    Replace("FindClose", NotedFindClose);
    Replace("TlsAlloc", NotedTlsAlloc);
    Replace("TlsFree", NotedTlsFree);
    Replace("SHBrowseForFolderW", CancelledBrowse);
    Replace("SHFileOperationW", QuickFileOperationW);
    Replace("SHCreateDirectoryExW", QuickCreateDirectory);
    Replace("Sleep", NoSleep);
    Replace("FlushFileBuffers", NoFlush);
    Replace("CoInitialize", NoCoInitialize);
    Replace("CoUninitialize", NoCoUninitialize);
    g_volume = reinterpret_cast<IVirtualVolume* (*)()>(reinterpret_cast<void*>(GetProcAddress(g_module, "Quelcrypt_VolumeFactory")))();
}

bool WriteWhole(const std::wstring& path, DWORD disposition, const std::string& bytes) {
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, kShareAll, nullptr, disposition, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(file);
    return written == bytes.size();
}

std::uint64_t Number(const FILETIME& time) { return static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime; }

std::uint64_t WriteTimeOf(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
    return Number(data.ftLastWriteTime);
}

std::int64_t ChangeTimeOf(const std::wstring& path) {
    const HANDLE file = CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
    FILE_BASIC_INFO info{};
    GetFileInformationByHandleEx(file, FileBasicInfo, &info, sizeof(info));
    CloseHandle(file);
    return info.ChangeTime.QuadPart;
}

// The folders of all worlds of this process, one after the other; when one was not left empty, they are made anew.
std::wstring g_root, g_path;
int g_trees = 0;
bool g_areTimesFine = false;  // each change of a file that was looked at gives it another time

void MakeTree() {
    if (g_root.empty()) {
        wchar_t temp[MAX_PATH];
        GetTempPathW(MAX_PATH, temp);
        g_root = std::wstring(temp) + L"explorer-" + std::to_wstring(GetCurrentProcessId());
        CreateDirectoryW(g_root.c_str(), nullptr);
        Explorer_SetRoot(g_root.c_str());
    }
    g_path = g_root + L"\\" + std::to_wstring(++g_trees);
    CreateDirectoryW(g_path.c_str(), nullptr);
    for (const wchar_t* folder : {L"K1", L"K2", L"Plain", L"HalvaneCloud"})
        CreateDirectoryW((g_path + L"\\" + folder).c_str(), nullptr);
    SetEnvironmentVariableW(L"TMP", g_path.c_str());
    const std::wstring probe = g_path + L"\\probe";
    g_areTimesFine = WriteWhole(probe, CREATE_NEW, "probe");
    for (int change = 0; change < 20; ++change) {
        const std::uint64_t before = WriteTimeOf(probe);
        WriteWhole(probe, OPEN_EXISTING, "probe");
        g_areTimesFine &= before != WriteTimeOf(probe);
    }
    DeleteFileW(probe.c_str());
}

}  // namespace

std::wstring LowerCase(std::wstring text) {
    std::transform(text.begin(), text.end(), text.begin(), towlower);
    return text;
}

World::World(bool isEqual) : m_isEqual(isEqual), m_remembers(!isEqual) {
    static int s_number = 0;
    m_number = std::to_wstring(++s_number);
    if (g_path.empty())
        MakeTree();
    m_remembers &= g_areTimesFine;
    if (!g_volume)
        StartProcess();
}

IVirtualVolume* World::Volume() { return g_volume; }

void World::EndProcess() {
    g_volume->Release();
    FreeLibrary(g_module);
    for (const HANDLE handle : g_held)
        CloseHandle(handle);
    for (const HANDLE search : g_searches)
        FindClose(search);
    for (const DWORD index : g_threadSlots)
        TlsFree(index);
    g_held.clear();
    g_searches.clear();
    g_threadSlots.clear();
    StartProcess();
}

bool World::HoldsHandles() { return !g_held.empty() || !g_searches.empty(); }

std::string World::TextOf(Word word) const {
    if (word < 0)
        return {};
    const std::string text = "word " + std::to_string(word + 10);
    return m_isEqual ? text : text + std::string(static_cast<std::size_t>(word) * 3, '.');
}

std::wstring World::VolumePath(const std::wstring& path) const { return L"Docs\\" + std::to_wstring(g_trees) + L"\\" + path; }

StoredFile World::Read(const std::wstring& path) const {
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
    char bytes[4096];
    DWORD length = 0;
    if (file == INVALID_HANDLE_VALUE)
        return {false, false, kTorn};
    ReadFile(file, bytes, sizeof(bytes), &length, nullptr);
    CloseHandle(file);
    std::string content(bytes, length);
    ContainerHeader header{};
    std::memcpy(&header, bytes, std::min<std::size_t>(length, sizeof(header)));
    const bool isContainer = std::memcmp(header.magic, kContainerMagic, sizeof(header.magic)) == 0;
    if (isContainer) {
        content.erase(0, sizeof(header) + header.nameUnits * sizeof(wchar_t));
        if (content.size() != header.size)
            return {true, false, kTorn};
    }
    if (content.empty())
        return {isContainer, length == 0, kNothing};
    for (Word word = 0; word < m_words; ++word)
        if (content == TextOf(word))
            return {isContainer, false, word};
    return {isContainer, false, kTorn};
}

std::optional<World::Stamp> World::StampOf(const std::wstring& path) const {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data))
        return std::nullopt;
    return Stamp{::Number(data.ftLastWriteTime), data.nFileSizeLow};
}

const std::vector<std::wstring>& World::NamesIn(const std::wstring& folder) {
    auto& [stamp, names] = m_folders[folder];
    const std::optional<Stamp> now = StampOf(folder);
    if (now == stamp && m_remembers)
        return names;
    stamp = now.value_or(Stamp{});
    names.clear();
    ForEachEntry(folder, [&](const WIN32_FIND_DATAW& entry) { names.emplace_back(entry.cFileName); });
    return names;
}

const StoredFile& World::FileAt(const std::wstring& path) {
    auto& [stamp, file] = m_files[path];
    const std::optional<Stamp> now = StampOf(path);
    if (now != stamp || !m_remembers || file.word == kTorn) {
        stamp = now.value_or(Stamp{});
        file = Read(path);
    }
    return file;
}

Look World::LookAround() {
    Look look;
    for (const wchar_t* folder : kFolders)
        for (const std::wstring& name : NamesIn(g_path + L"\\" + folder)) {
            const std::wstring path = std::wstring(folder) + L"\\" + name;
            const StoredFile& file = FileAt(g_path + L"\\" + path);
            look.files[LowerCase(path)] = file;
            look.inFolders |= Only(file.word);
        }
    LookIntoTemp(look);
    return look;
}

void World::LookIntoTemp(Look& look) {
    const std::wstring base = g_path + L"\\HalvaneCloud";
    for (const std::wstring& folder : NamesIn(base)) {
        std::wstring content;
        bool isTracked = false;
        for (const std::wstring& name : NamesIn(base + L"\\" + folder)) {
            if (name.ends_with(L".hvf"))
                isTracked = true;
            else
                content = base + L"\\" + folder + L"\\" + name;
        }
        look.hasLitter |= content.empty();
        look.keptFolders += !isTracked;
        if (content.empty() || !isTracked)
            continue;
        const Word word = FileAt(content).word;
        look.inTemp |= Only(word);
        look.tracksNothing |= word == kNothing;
    }
}

bool World::Store(const std::wstring& path, bool asContainer, Word word, How how) {
    const std::string content = TextOf(word);
    std::string bytes = content;
    if (asContainer) {
        std::wstring name = path.substr(path.find(L'\\') + 1);
        name.resize(name.size() - 4);
        ContainerHeader header{};
        std::memcpy(header.magic, kContainerMagic, sizeof(header.magic));
        header.size = content.size();
        header.nameUnits = static_cast<std::uint16_t>(name.size());
        for (auto& time : header.times)
            time[0] = 2024, time[1] = time[3] = 1;
        bytes.assign(reinterpret_cast<const char*>(&header), sizeof(header));
        bytes.append(reinterpret_cast<const char*>(name.data()), name.size() * sizeof(wchar_t)).append(content);
    }
    const std::wstring fullPath = g_path + L"\\" + path;
    const std::wstring side = how == How::ByRename ? g_path + L"\\side" : fullPath;
    const std::int64_t before = m_isEqual ? ChangeTimeOf(fullPath) : 0;
    bool isDone = false;
    do {  // a change that not even the platform shows nobody could tell
        isDone = WriteWhole(side, how == How::InPlace ? TRUNCATE_EXISTING : CREATE_ALWAYS, bytes);
        if (isDone && how == How::ByRename && !MoveFileExW(side.c_str(), fullPath.c_str(), MOVEFILE_REPLACE_EXISTING))
            isDone = !DeleteFileW(side.c_str());
        if (m_isEqual && isDone)
            EqualiseTimes();
    } while (isDone && m_isEqual && ChangeTimeOf(fullPath) == before);
    return isDone;
}

bool World::Remove(const std::wstring& path) { return DeleteFileW((g_path + L"\\" + path).c_str()); }

void World::EqualiseTimes() {
    const FILETIME time{0x10000000, 0x01DA0000};
    for (const wchar_t* folder : kFolders)
        for (const std::wstring& name : NamesIn(g_path + L"\\" + folder)) {
            const HANDLE file = CreateFileW((g_path + L"\\" + folder + L"\\" + name).c_str(), FILE_WRITE_ATTRIBUTES, kShareAll, nullptr,
                                            OPEN_EXISTING, 0, nullptr);
            SetFileTime(file, &time, &time, &time);
            CloseHandle(file);
        }
}

bool World::Clear() {
    bool isFree = true;
    const auto clear = [&](const std::wstring& folder) {
        for (const std::wstring& name : NamesIn(folder)) {
            const HANDLE file = CreateFileW((folder + L"\\" + name).c_str(), DELETE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
            isFree &= file != INVALID_HANDLE_VALUE;
            CloseHandle(file);
        }
    };
    for (const wchar_t* folder : kFolders)
        clear(g_path + L"\\" + folder);
    const std::wstring base = g_path + L"\\HalvaneCloud";
    for (const std::wstring& folder : NamesIn(base)) {
        clear(base + L"\\" + folder);
        RemoveDirectoryW((base + L"\\" + folder).c_str());
    }
    m_folders.clear();
    if (!isFree)
        g_path.clear();
    return isFree;
}
