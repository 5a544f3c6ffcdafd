#include "Paths.h"

#include <algorithm>

#include <windows.h>
// After windows.h.
#include <shlwapi.h>

#include "Boundary.h"
#include "Text.h"

namespace companion {
namespace {

constexpr std::wstring_view kLongPrefix = L"\\\\?\\";
constexpr std::wstring_view kLongSharePrefix = L"\\\\?\\UNC\\";

std::wstring WithoutLongPrefix(std::wstring path) {
    std::replace(path.begin(), path.end(), L'/', L'\\');
    if (path.starts_with(kLongSharePrefix))
        return L"\\\\" + path.substr(kLongSharePrefix.size());
    if (path.starts_with(kLongPrefix))
        return path.substr(kLongPrefix.size());
    return path;
}

std::wstring JoinedTo(const std::wstring& base, const std::wstring& path) {
    if (base.empty() || !PathIsRelativeW(path.c_str()))
        return path;
    return base + L'\\' + path;
}

// "\a" is on the drive of base, not on whichever drive is current.
std::wstring OnDriveOf(const std::wstring& base, const std::wstring& path) {
    const bool lacksDrive = path.starts_with(L'\\') && !path.starts_with(L"\\\\");
    return lacksDrive && base.size() >= 2 && base[1] == L':' ? base.substr(0, 2) + path : path;
}

}  // namespace

std::wstring FullPath(const std::wstring& path, const std::wstring& base) {
    const std::wstring plain = JoinedTo(base, OnDriveOf(base, WithoutLongPrefix(path)));
    std::wstring full(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetFullPathNameW(plain.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
        if (length == 0)
            FailWithError(L"\"" + plain + L"\" is not a path", GetLastError());
        const bool fits = length < full.size();
        full.resize(length);
        if (fits)
            break;
    }
    while (!full.empty() && full.back() == L'\\')
        full.pop_back();
    return full;
}

std::wstring OpenablePath(const std::wstring& fullPath) {
    // The platform's limit for a folder's path, which is lower than that for a file's.
    constexpr std::size_t shortLimit = MAX_PATH - 12;
    if (fullPath.size() < shortLimit || fullPath.starts_with(kLongPrefix))
        return fullPath.ends_with(L':') ? fullPath + L'\\' : fullPath;
    if (fullPath.starts_with(L"\\\\"))
        return std::wstring(kLongSharePrefix) + fullPath.substr(2);
    return std::wstring(kLongPrefix) + fullPath;
}

std::wstring FolderOf(const std::wstring& fullPath) {
    const std::size_t separator = fullPath.rfind(L'\\');
    return separator == std::wstring::npos ? std::wstring() : fullPath.substr(0, separator);
}

bool IsWithin(std::wstring_view path, std::wstring_view folder) {
    if (folder.empty() || path.size() < folder.size() || !EqualNoCase(path.substr(0, folder.size()), folder))
        return false;
    return path.size() == folder.size() || path[folder.size()] == L'\\';
}

}  // namespace companion
