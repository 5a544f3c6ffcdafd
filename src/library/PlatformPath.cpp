#include "library/PlatformPath.h"

#include <windows.h>

namespace {

constexpr std::size_t kShortLimit = MAX_PATH - 12;  // of a folder's path

// The platform does not parse the long form, so it must have no "." and "..", and only backslashes.
std::wstring FullPathStr(const wchar_t* path) {
    std::wstring full(GetFullPathNameW(path, 0, nullptr, nullptr), L'\0');
    full.resize(GetFullPathNameW(path, static_cast<DWORD>(full.size()), full.data(), nullptr));
    return full;
}

std::wstring LongFormStr(std::wstring_view path) {
    if (path.size() < kShortLimit || path.starts_with(L"\\\\?\\") || path.starts_with(L"\\\\.\\"))
        return {};
    const bool isClean = path.find(L'/') == path.npos && path.find(L"\\.") == path.npos;
    const std::wstring full = isClean ? std::wstring(path) : FullPathStr(path.data());
    if (full.starts_with(L"\\\\"))
        return L"\\\\?\\UNC\\" + full.substr(2);
    return full.size() > 2 && full[1] == L':' ? L"\\\\?\\" + full : std::wstring();
}

}  // namespace

PlatformPath::PlatformPath(const std::wstring& path) : m_path(path.c_str()), m_long(LongFormStr(path)) {}

PlatformPath::PlatformPath(const wchar_t* path) : m_path(path), m_long(LongFormStr(path)) {}
