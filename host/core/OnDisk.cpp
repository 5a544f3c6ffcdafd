#include "core/OnDisk.h"

#include <memory>

#include <winternl.h>

#include "core/Text.h"

namespace {

constexpr std::size_t kDeepest = 256;  // nested folders; documents are never deeper

UniqueHandle Open(const std::wstring& path, DWORD access, DWORD share, DWORD disposition, DWORD flags) {
    return OwnHandle(CreateFileW(path.c_str(), access, share, nullptr, disposition, FILE_FLAG_BACKUP_SEMANTICS | flags, nullptr));
}

std::wstring RealPathAs(HANDLE file, DWORD form) {
    constexpr std::size_t usual = 512;
    std::wstring path(usual, L'\0');
    DWORD length = GetFinalPathNameByHandleW(file, path.data(), usual, form);
    if (length >= usual) {
        path.resize(length);
        length = GetFinalPathNameByHandleW(file, path.data(), static_cast<DWORD>(path.size()), form);
    }
    path.resize(length < path.size() ? length : 0);
    return path;
}

// For paths of more than 260 units, which the function above does not return under Wine.
std::wstring LongRealPath(HANDLE file) {
    constexpr auto nameInformation = static_cast<OBJECT_INFORMATION_CLASS>(1);
    constexpr std::wstring_view start = L"\\??\\";
    alignas(UNICODE_STRING) char name[sizeof(UNICODE_STRING) + 0x10000];
    ULONG size = 0;
    if (!NT_SUCCESS(NtQueryObject(file, nameInformation, name, sizeof(name), &size)))
        return {};
    const auto* const text = reinterpret_cast<const UNICODE_STRING*>(name);
    const std::wstring_view path(text->Buffer, text->Length / sizeof(wchar_t));
    return path.starts_with(start) ? L"\\\\?\\" + std::wstring(path.substr(start.size())) : std::wstring();
}

bool IsRealFolder(const UniqueHandle& file) {
    FILE_BASIC_INFO info{};
    return GetFileInformationByHandleEx(file.Get(), FileBasicInfo, &info, sizeof(info)) &&
           (info.FileAttributes & FILE_ATTRIBUTE_DIRECTORY) && !(info.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

bool Remove(const std::wstring& path, FilesStay stay, bool filesStay, std::size_t depth) {
    if (depth > kDeepest)
        return false;
    {
        UniqueHandle item = OpenItself(path, FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE);
        if (!item)
            return GetLastError() == ERROR_FILE_NOT_FOUND;
        const bool isFolder = IsRealFolder(item);
        if (isFolder && !(item = HoldFolder(path)))
            return false;
        if (!isFolder && filesStay)
            return false;
        const std::vector<std::wstring> names = isFolder ? NamesIn(path) : std::vector<std::wstring>();
        const bool itsFilesStay = stay && stay(names);
        bool isEmpty = true;
        for (const std::wstring& name : names)
            isEmpty = Remove(path + L'\\' + name, stay, itsFilesStay, depth + 1) && isEmpty;
        if (!isEmpty)
            return false;
    }
    return DeleteItself(path);
}

}  // namespace

std::wstring RealPath(HANDLE file) {
    if (std::wstring path = RealPathAs(file, VOLUME_NAME_DOS); !path.empty())
        return path;
    const std::wstring device = RealPathAs(file, VOLUME_NAME_NT);  // a disk without a letter
    return device.empty() ? LongRealPath(file) : L"\\\\?\\GLOBALROOT" + device;
}

std::wstring RealPath(const std::wstring& path) {
    const UniqueHandle item = Open(path, FILE_READ_ATTRIBUTES, kShareAll, OPEN_EXISTING, 0);
    return item ? RealPath(item.Get()) : std::wstring();
}

std::wstring OrdinaryPath(const std::filesystem::path& realPath) {
    const std::wstring path = realPath.native();
    const bool hasDrive = path.starts_with(L"\\\\?\\") && path.size() > 6 && path[5] == L':';
    return hasDrive ? path.substr(4) : path;
}

bool AreLinksMarked() {
    static const bool isWine = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
    return !isWine;
}

DiskVersion VersionOf(const UniqueHandle& item) {
    FILE_BASIC_INFO info{};
    if (!item || !GetFileInformationByHandleEx(item.Get(), FileBasicInfo, &info, sizeof(info)))
        return {};
    return {static_cast<std::uint64_t>(info.ChangeTime.QuadPart), static_cast<std::uint64_t>(info.LastWriteTime.QuadPart)};
}

Standing StandingAt(const std::wstring& realPath, std::optional<DiskVersion>* version) {
    const UniqueHandle item = Open(realPath, FILE_READ_ATTRIBUTES, kShareAll, OPEN_EXISTING, 0);
    if (item && version)
        *version = VersionOf(item);
    if (item)
        return EqualNoCase(RealPath(item.Get()), realPath) && GetFileType(item.Get()) == FILE_TYPE_DISK ? Standing::Itself : Standing::Link;
    constexpr DWORD noSuchDevice = 433;  // of a socket, under Wine
    if (GetLastError() == noSuchDevice)
        return Standing::Link;
    const DWORD attributes = GetFileAttributesW(realPath.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return Standing::Nothing;
    const std::size_t separator = realPath.rfind(L'\\');
    const std::wstring folder = RealPath(realPath.substr(0, separator + 1));
    const bool isFolderReal = EqualNoCase(folder.substr(0, folder.find_last_not_of(L'\\') + 1), realPath.substr(0, separator));
    return !isFolderReal || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) ? Standing::Link : Standing::Itself;
}

std::wstring LongName(const std::wstring& path) {
    WIN32_FIND_DATAW entry{};
    return UniqueFindHandle(FindFirstFileW(path.c_str(), &entry)) ? entry.cFileName : std::wstring();
}

DiskVersion VersionAt(const std::wstring& path) { return VersionOf(Open(path, FILE_READ_ATTRIBUTES, kShareAll, OPEN_EXISTING, 0)); }

bool HasRoom(const std::wstring& folder, std::uint64_t bytes) {
    constexpr std::uint64_t alittle = 1 << 20;
    ULARGE_INTEGER free{};
    return !GetDiskFreeSpaceExW(folder.c_str(), &free, nullptr, nullptr) || (free.QuadPart >= alittle && free.QuadPart - alittle >= bytes);
}

UniqueHandle OpenItself(const std::wstring& realPath, DWORD access, DWORD share, DWORD disposition) {
    UniqueHandle item = Open(realPath, access, share, disposition, FILE_FLAG_OPEN_REPARSE_POINT);
    if (item && (!EqualNoCase(RealPath(item.Get()), realPath) || GetFileType(item.Get()) != FILE_TYPE_DISK)) {
        item.Reset();
        SetLastError(ERROR_CANT_ACCESS_FILE);
    }
    return item;
}

UniqueHandle HoldFolder(const std::wstring& realPath) {
    return OpenItself(realPath, FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE);
}

std::vector<std::wstring> NamesIn(const std::wstring& folder, const wchar_t* pattern) {
    std::vector<std::wstring> names;
    if (StandingAt(folder) != Standing::Itself)
        return names;
    WIN32_FIND_DATAW entry{};
    const UniqueFindHandle search(FindFirstFileW((folder + (folder.ends_with(L'\\') ? L"" : L"\\") + pattern).c_str(), &entry));
    if (!search)
        return names;
    do {
        if (const std::wstring_view name = entry.cFileName; name != L"." && name != L"..")
            names.emplace_back(name);
    } while (FindNextFileW(search.Get(), &entry));
    return names;
}

bool DeleteOpen(const UniqueHandle& file) {
    FILE_BASIC_INFO info{};
    if (GetFileInformationByHandleEx(file.Get(), FileBasicInfo, &info, sizeof(info)) && (info.FileAttributes & FILE_ATTRIBUTE_READONLY)) {
        info.FileAttributes &= ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY);
        SetFileInformationByHandle(file.Get(), FileBasicInfo, &info, sizeof(info));
    }
    FILE_DISPOSITION_INFO disposition{TRUE};
    return SetFileInformationByHandle(file.Get(), FileDispositionInfo, &disposition, sizeof(disposition));
}

bool DeleteItself(const std::wstring& realPath) {
    const UniqueHandle item = OpenItself(realPath, DELETE | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES, 0);
    return item && DeleteOpen(item);
}

bool RemoveItself(const std::wstring& realPath, FilesStay stay) { return Remove(realPath, stay, false, 0); }
