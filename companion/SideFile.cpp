#include "SideFile.h"

#include <atomic>
#include <cstddef>
#include <cstring>
#include <cwchar>
#include <new>
#include <vector>

#include "Boundary.h"
#include "Paths.h"
#include "Text.h"
#include "common/Halves.h"
#include "common/Links.h"
#include "common/Patience.h"

namespace companion {
namespace {

constexpr const wchar_t* kSideFilePattern = L"container-*.part";

std::wstring NewSideFileName() {
    static std::atomic<unsigned> counter{0};
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    wchar_t name[64];
    swprintf(name, std::size(name), L"container-%lx-%lx%08lx-%x.part", GetCurrentProcessId(), now.dwHighDateTime, now.dwLowDateTime,
             ++counter);
    return name;
}

std::wstring SideFolderOf(const std::wstring& folder) { return (folder + L'\\').append(kSideFolderName); }

bool IsLink(const std::wstring& folder) {
    WIN32_FIND_DATAW found{};
    const UniqueFindHandle search(FindFirstFileW(OpenablePath(folder).c_str(), &found));
    return search && IsLinkEntry(found);
}

// A Win32 error; ERROR_ALREADY_EXISTS when the folder was there.
DWORD TryToMakeSideFolder(const std::wstring& folder) {
    if (CreateDirectoryW(OpenablePath(SideFolderOf(folder)).c_str(), nullptr))
        return 0;
    const DWORD error = GetLastError();
    return error == ERROR_ALREADY_EXISTS && IsSideFolderLink(folder) ? ERROR_CANT_ACCESS_FILE : error;
}

[[noreturn]] void FailToWriteIn(const std::wstring& folder, DWORD error) {
    if (error == ERROR_CANT_ACCESS_FILE)
        Fail(SideFolderOf(folder) + L" is a link, and nothing is written through it; remove it");
    FailWithError(L"The folder " + folder + L" cannot be written", error);
}

UniqueHandle Open(const std::wstring& path, DWORD access, DWORD share) {
    return OwnHandle(CreateFileW(OpenablePath(path).c_str(), access | FILE_READ_ATTRIBUTES, share, nullptr, OPEN_EXISTING,
                                 FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

// Empty when it is unknown.
std::wstring RealPathOf(const UniqueHandle& item) {
    constexpr DWORD longest = 0x8000;
    std::wstring path(longest, L'\0');
    const DWORD length = item ? GetFinalPathNameByHandleW(item.Get(), path.data(), longest, VOLUME_NAME_DOS) : 0;
    path.resize(length < longest ? length : 0);
    while (path.ends_with(L'\\'))
        path.pop_back();
    return path;
}

// Deletes a file of the side folder unless somebody has it open, and never a link's target: some platforms follow links whatever the
// flags, so the path of the opened file is checked.
bool DeleteItself(const std::wstring& folder, const std::wstring& name) {
    const UniqueHandle file = Open(SideFolderOf(folder) + L'\\' + name, DELETE, 0);
    const std::wstring real = RealPathOf(Open(folder, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
    FILE_DISPOSITION_INFO disposition{TRUE};
    return !real.empty() && EqualNoCase(RealPathOf(file), SideFolderOf(real) + L'\\' + name) &&
           SetFileInformationByHandle(file.Get(), FileDispositionInfo, &disposition, sizeof(disposition));
}

// Has the process that wrote this side file ended? Its number is in the name. The file may be from another machine, so after a day its
// writer counts as ended in any case.
bool HasEnded(const wchar_t* sideFile) {
    const DWORD process = std::wcstoul(sideFile + std::wcslen(L"container-"), nullptr, 16);
    const HANDLE opened = OpenProcess(SYNCHRONIZE, FALSE, process);
    if (!opened)
        return GetLastError() == ERROR_INVALID_PARAMETER;
    return WaitForSingleObject(UniqueHandle(opened).Get(), 0) == WAIT_OBJECT_0;
}

// The target's attributes that the new file keeps; 0 when there is no target. Throws when the target must not be replaced.
DWORD AttributesToKeep(const std::wstring& targetPath) {
    const DWORD attributes = GetFileAttributesW(OpenablePath(targetPath).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return 0;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY)
        Fail(L"There is a folder in place of the container");
    if (attributes & FILE_ATTRIBUTE_READONLY)
        Fail(L"The container is read-only");
    return attributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
}

// Succeeds where an ordinary rename does not: while others have the target open but allow its deletion, like readers.
// Only some file systems of newer systems can do it.
bool ReplaceOpened(const std::wstring& from, const std::wstring& to) {
    // Missing from older system headers: FileRenameInfoEx with the flags "replace" and "as in POSIX".
    constexpr auto renameInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22);
    constexpr DWORD replaceAsInPosix = 0x1 | 0x2;
    const UniqueHandle file = OwnHandle(CreateFileW(from.c_str(), DELETE | SYNCHRONIZE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                                    OPEN_EXISTING, FILE_FLAG_WRITE_THROUGH, nullptr));
    if (!file)
        return false;
    const std::size_t nameBytes = to.size() * sizeof(wchar_t);
    std::vector<std::byte> buffer(sizeof(FILE_RENAME_INFO) + nameBytes);
    auto* const rename = new (buffer.data()) FILE_RENAME_INFO{};
    std::memcpy(buffer.data(), &replaceAsInPosix, sizeof(replaceAsInPosix));
    rename->FileNameLength = static_cast<DWORD>(nameBytes);
    std::memcpy(buffer.data() + offsetof(FILE_RENAME_INFO, FileName), to.data(), nameBytes);
    return SetFileInformationByHandle(file.Get(), renameInfoEx, rename, static_cast<DWORD>(buffer.size())) != FALSE;
}

// Another writer may delete the empty folder after it was made here and before it is used; or its deletion is not finished.
bool IsRemovalOfTheFolder(DWORD error) {
    return error == ERROR_PATH_NOT_FOUND || error == ERROR_FILE_NOT_FOUND || error == ERROR_ACCESS_DENIED || error == ERROR_DELETE_PENDING;
}

bool IsHeld(DWORD error) { return error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION || error == ERROR_ACCESS_DENIED; }

// Calls attempt until it returns 0 or a Win32 error that does not mean a held file; returns the last result.
template <class Attempt>
DWORD TryForAMoment(Attempt attempt) {
    DWORD error = 0;
    RepeatForAMoment([&] {
        error = attempt();
        return !IsHeld(error);
    });
    return error;
}

// A Win32 error; 0 when the target is replaced.
DWORD PutAt(const std::wstring& from, const std::wstring& to, IfThere ifThere) {
    return TryForAMoment([&]() -> DWORD {
        const DWORD replacing = ifThere == IfThere::Replace ? MOVEFILE_REPLACE_EXISTING : 0;
        if (MoveFileExW(from.c_str(), to.c_str(), replacing | MOVEFILE_WRITE_THROUGH))
            return 0;
        const DWORD error = GetLastError();
        return IsHeld(error) && replacing && ReplaceOpened(from, to) ? 0 : error;
    });
}

// Tries until the name is free.
void DeleteAside(const std::wstring& path) {
    TryForAMoment([&]() -> DWORD {
        if (!DeleteFileW(path.c_str()) && GetLastError() == ERROR_ACCESS_DENIED) {
            SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
            DeleteFileW(path.c_str());
        }
        const bool isGone = GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES && GetLastError() != ERROR_ACCESS_DENIED;
        return isGone ? 0 : ERROR_SHARING_VIOLATION;
    });
}

}  // namespace

void MakeSideFolder(const std::wstring& folder) {
    if (const DWORD error = TryToMakeSideFolder(folder); error != 0 && error != ERROR_ALREADY_EXISTS)
        FailToWriteIn(folder, error);
}

bool IsSideFolderLink(const std::wstring& folder) { return IsLink(SideFolderOf(folder)); }

std::vector<std::wstring> LeftSideFiles(const std::wstring& folder) {
    constexpr std::uint64_t dayLength = 864'000'000'000;  // in FILETIME units
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    const std::wstring sideFolder = SideFolderOf(folder);
    std::vector<std::wstring> left;
    WIN32_FIND_DATAW found;
    const UniqueFindHandle search(IsLink(sideFolder) ? INVALID_HANDLE_VALUE
                                                     : FindFirstFileW(OpenablePath(sideFolder + L'\\' + kSideFilePattern).c_str(), &found));
    for (bool more = static_cast<bool>(search); more; more = FindNextFileW(search.Get(), &found)) {
        if (FileTimeNumber(found.ftLastWriteTime) + dayLength < FileTimeNumber(now) || HasEnded(found.cFileName))
            left.push_back(sideFolder + L'\\' + found.cFileName);
    }
    return left;
}

std::size_t RemoveLeftSideFiles(const std::wstring& folder) {
    std::size_t removed = 0;
    for (const std::wstring& path : LeftSideFiles(folder))
        removed += DeleteItself(folder, path.substr(SideFolderOf(folder).size() + 1)) ? 1 : 0;
    if (removed > 0)
        RemoveDirectoryW(OpenablePath(SideFolderOf(folder)).c_str());
    return removed;
}

SideFile::SideFile(const std::wstring& targetPath) : m_targetPath(targetPath), m_folderPath(SideFolderOf(FolderOf(targetPath))) {
    AttributesToKeep(targetPath);
    CreateAside();
}

SideFile::~SideFile() { Remove(); }

void SideFile::CreateAside() {
    constexpr int attempts = 20;
    DWORD error = 0;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        error = TryToCreateAside();
        if (!IsRemovalOfTheFolder(error))
            break;
        Sleep(static_cast<DWORD>(attempt));
    }
    if (error == 0)
        return;
    if (error != ERROR_CANT_ACCESS_FILE)
        RemoveDirectoryW(OpenablePath(m_folderPath).c_str());
    FailToWriteIn(FolderOf(m_targetPath), error);
}

DWORD SideFile::TryToCreateAside() {
    const std::wstring folder = FolderOf(m_targetPath);
    if (const DWORD error = TryToMakeSideFolder(folder); error == ERROR_ALREADY_EXISTS)
        RemoveLeftSideFiles(folder);
    else if (error != 0)
        return error;
    const std::wstring path = m_folderPath + L'\\' + NewSideFileName();
    m_file = OwnHandle(
        CreateFileW(OpenablePath(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!m_file)
        return GetLastError();
    m_path = path;
    return 0;
}

DWORD SideFile::Write(const void* data, std::size_t length) {
    DWORD written = 0;
    if (!WriteFile(m_file.Get(), data, static_cast<DWORD>(length), &written, nullptr))
        return GetLastError();
    return written == length ? 0 : ERROR_DISK_FULL;
}

DWORD SideFile::WriteBeginning(const void* data, std::size_t length) {
    if (!SetFilePointerEx(m_file.Get(), {}, nullptr, FILE_BEGIN))
        return GetLastError();
    return Write(data, length);
}

void SideFile::Complete() {
    if (!m_file)
        return;
    if (!FlushFileBuffers(m_file.Get()))
        FailWithError(L"The container cannot be written", GetLastError());
    m_file.Reset();
}

void SideFile::PutInPlace(std::uint32_t attributes, IfThere ifThere) {
    constexpr std::uint32_t carried = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    Complete();
    const std::wstring from = OpenablePath(m_path);
    const std::uint32_t wanted = AttributesToKeep(m_targetPath) | (attributes & carried);
    if (wanted != 0 && !SetFileAttributesW(from.c_str(), wanted | FILE_ATTRIBUTE_ARCHIVE))
        FailWithError(L"The container's attributes cannot be set", GetLastError());
    if (const DWORD error = PutAt(from, OpenablePath(m_targetPath), ifThere))
        FailWithError(L"The container cannot be replaced", error);
    m_path.clear();
    Remove();
}

void SideFile::Remove() noexcept {
    m_file.Reset();
    try {
        if (!m_path.empty()) {
            DeleteAside(OpenablePath(m_path));
            m_path.clear();
        }
        // Fails, as intended, while anything is in it.
        if (!m_folderPath.empty() && !IsLink(m_folderPath))
            RemoveDirectoryW(OpenablePath(m_folderPath).c_str());
        m_folderPath.clear();
    } catch (...) {
        // No memory for the path: the side file stays, and is never mistaken for a container.
    }
}

}  // namespace companion
