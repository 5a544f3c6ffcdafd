#include "library/Disk.h"

#include <optional>
#include <string_view>

#include "common/Links.h"
#include "common/Names.h"
#include "library/FileVersion.h"
#include "library/Owners.h"
#include "library/Paths.h"
#include "library/PlatformPath.h"

namespace {

DWORD AttributesOf(const std::wstring& path) { return GetFileAttributesW(PlatformPath(path).c_str()); }

}  // namespace

std::wstring FinalPathStr(const std::wstring& path) {
    const UniqueHandle hItem = OwnHandle(::CreateFileW(PlatformPath(path).c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                                                       FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!hItem) {
        const std::wstring parent = PathRemoveFileSpecStr(path);
        const std::wstring finalParent = parent.size() < path.size() && !parent.empty() ? FinalPathStr(parent) : std::wstring();
        return finalParent.empty() ? finalParent : PathAppendStr(finalParent, PathStripPathStr(path));
    }
    std::wstring finalPath(GetFinalPathNameByHandleW(hItem.Get(), nullptr, 0, VOLUME_NAME_DOS), L'\0');
    finalPath.resize(GetFinalPathNameByHandleW(hItem.Get(), finalPath.data(), static_cast<DWORD>(finalPath.size()), VOLUME_NAME_DOS));
    if (finalPath.starts_with(L"\\\\?\\UNC\\"))
        return L"\\" + finalPath.substr(7);
    const bool hasDrive = finalPath.starts_with(L"\\\\?\\") && finalPath.size() > 6 && finalPath[5] == L':';
    return hasDrive ? TidyPathStr(finalPath.substr(4)) : std::wstring();
}

std::wstring WithLongNameStr(const std::wstring& path) {
    const std::wstring name = PathStripPathStr(path);
    WIN32_FIND_DATAW entry{};
    if (name.find(L'~') == name.npos)
        return path;
    const UniqueFindHandle find(::FindFirstFileW(PlatformPath(path).c_str(), &entry));
    return find && !EqualNoCase(entry.cFileName, name) ? PathAppendStr(PathRemoveFileSpecStr(path), entry.cFileName) : path;
}

bool AreSameFile(const std::wstring& left, const std::wstring& right) {
    const std::optional<FileVersion> rightVersion = ReadFileVersion(right);
    const std::optional<FileVersion> leftVersion = rightVersion ? ReadFileVersion(left) : std::nullopt;
    const std::optional<bool> isOne = leftVersion ? AreOneFile(*leftVersion, *rightVersion) : std::optional(false);
    if (isOne || EqualNoCase(left, right))
        return isOne.value_or(true);
    const std::wstring finalLeft = FinalPathStr(left);
    return !finalLeft.empty() && EqualNoCase(finalLeft, FinalPathStr(right));
}

bool ForEachEntry(const std::wstring& folder, const std::function<bool(const std::wstring&, const WIN32_FIND_DATAW&)>& visit) {
    WIN32_FIND_DATAW entry{};
    const UniqueFindHandle find(::FindFirstFileW(PlatformPath(PathAppendStr(folder, L"*")).c_str(), &entry));
    if (!find)
        return false;
    do {
        const std::wstring_view name = entry.cFileName;
        if (name != L"." && name != L".." && !visit(PathAppendStr(folder, name), entry))
            return false;
    } while (::FindNextFileW(find.Get(), &entry));
    return GetLastError() == ERROR_NO_MORE_FILES;
}

bool PathExists(const std::wstring& path) { return AttributesOf(path) != INVALID_FILE_ATTRIBUTES; }

bool IsExistingFile(const std::wstring& path) {
    const DWORD attributes = AttributesOf(path);
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool IsExistingFolder(const std::wstring& path) {
    const DWORD attributes = AttributesOf(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool IsLink(const std::wstring& path) {
    const DWORD attributes = AttributesOf(path);
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_REPARSE_POINT))
        return false;
    WIN32_FIND_DATAW entry{};
    const UniqueFindHandle find(::FindFirstFileW(PlatformPath(path).c_str(), &entry));
    return !find || !(entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) || IsLinkEntry(entry);
}
