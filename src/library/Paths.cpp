#include "library/Paths.h"

#include <algorithm>
#include <vector>

#include "common/Names.h"

namespace {

bool IsSeparator(wchar_t unit) { return unit == L'\\' || unit == L'/'; }

std::size_t LastSeparator(std::wstring_view path) { return path.find_last_of(L"\\/"); }

}  // namespace

std::wstring PathStripPathStr(std::wstring_view path) {
    const std::size_t separator = LastSeparator(path);
    return std::wstring(separator == path.npos ? path : path.substr(separator + 1));
}

std::wstring PathRemoveFileSpecStr(std::wstring_view path) {
    const std::size_t separator = LastSeparator(path);
    if (separator == path.npos)
        return {};
    const bool isRoot = separator == 0 || (separator == 2 && path[1] == L':');
    return std::wstring(path.substr(0, isRoot ? separator + 1 : separator));
}

std::wstring PathAddExtensionStr(std::wstring_view path, std::wstring_view extension) {
    std::wstring extended;
    extended.reserve(path.size() + extension.size());
    return extended.append(path).append(extension);
}

std::wstring PathRemoveExtensionStr(std::wstring_view path) {
    const std::size_t dot = path.rfind(L'.');
    const std::size_t separator = LastSeparator(path);
    if (dot == path.npos || (separator != path.npos && dot < separator))
        return std::wstring(path);
    return std::wstring(path.substr(0, dot));
}

std::wstring PathAppendStr(std::wstring_view folder, std::wstring_view name) {
    std::wstring path;
    path.reserve(folder.size() + 1 + name.size());
    path.append(folder);
    if (!path.empty() && !IsSeparator(path.back()))
        path += L'\\';
    return path.append(name);
}

std::wstring TidyPathStr(std::wstring_view path) {
    const bool isLongForm = path.starts_with(L"\\\\?\\");
    std::wstring tidy;
    tidy.reserve(path.size());
    for (const wchar_t unit : path) {
        const bool isDoubled = IsSeparator(unit) && tidy.size() > 1 && tidy.back() == L'\\';
        if (isLongForm)
            tidy += unit;
        else if (!isDoubled)
            tidy += IsSeparator(unit) ? L'\\' : unit;
    }
    const auto isRoot = [&] { return tidy.ends_with(L":\\") || (isLongForm && tidy.ends_with(L"}\\")); };  // "C:\", "\\?\Volume{...}\"
    while (tidy.size() > 1 && tidy.back() == L'\\' && !isRoot())
        tidy.pop_back();
    return tidy;
}

bool IsPathBelow(std::wstring_view path, std::wstring_view folder) {
    return path.size() > folder.size() && IsSeparator(path[folder.size()]) && EqualNoCase(path.substr(0, folder.size()), folder);
}

std::optional<std::wstring> PathJoinBelow(std::wstring_view folder, std::wstring_view relativePath) {
    const std::size_t relativeUnits = relativePath.size();
    std::vector<std::wstring_view> components;
    components.reserve(8);
    while (!relativePath.empty()) {
        const std::size_t end = std::min(relativePath.find_first_of(L"\\/"), relativePath.size());
        std::wstring_view component = relativePath.substr(0, end);
        relativePath.remove_prefix(std::min(end + 1, relativePath.size()));
        if (component == L"..") {
            if (components.empty())
                return std::nullopt;
            components.pop_back();
            continue;
        }
        component = component.substr(0, component.find_last_not_of(L". ") + 1);
        if (IsDeviceName(component))
            return std::nullopt;
        if (!component.empty())
            components.push_back(component);
    }
    if (components.empty())
        return std::wstring(folder);  // unchanged: the separator is a part of "C:\"
    std::wstring path;
    path.reserve(folder.size() + 1 + relativeUnits);
    path.append(folder.substr(0, folder.find_last_not_of(L"\\/") + 1));
    for (const std::wstring_view component : components)
        path.append(L"\\").append(component);
    return path;
}

bool NamesDevice(std::wstring_view path) {
    while (!path.empty()) {
        const std::size_t end = std::min(path.find_first_of(L"\\/"), path.size());
        if (IsDeviceName(path.substr(0, end)))
            return true;
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return false;
}
