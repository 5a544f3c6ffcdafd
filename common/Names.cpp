#include "common/Names.h"

#include <algorithm>
#include <array>
#include <cwctype>

#include <windows.h>

namespace {

constexpr std::array<std::wstring_view, 4> kReservedNames{L".HalvaneBox", L"- HalvaneCloud Readme -.htm", kSideFolderName, L"policy.hvc"};
constexpr std::array<std::wstring_view, 6> kDeviceNames{L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"};

template <std::size_t Count>
bool Contains(const std::array<std::wstring_view, Count>& names, std::wstring_view name) {
    return std::any_of(names.begin(), names.end(), [&](std::wstring_view other) { return EqualNoCase(name, other); });
}

}  // namespace

wchar_t UpperUnit(wchar_t unit) {
    if (unit < 0x80)
        return unit >= L'a' && unit <= L'z' ? static_cast<wchar_t>(unit - (L'a' - L'A')) : unit;
    // CharUpperW treats a pointer whose high half is zero as a single unit.
    return static_cast<wchar_t>(reinterpret_cast<ULONG_PTR>(CharUpperW(reinterpret_cast<wchar_t*>(static_cast<ULONG_PTR>(unit)))));
}

bool EqualNoCase(std::wstring_view left, std::wstring_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](wchar_t a, wchar_t b) { return a == b || UpperUnit(a) == UpperUnit(b); });
}

bool LessNoCase(std::wstring_view left, std::wstring_view right) {
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                        [](wchar_t a, wchar_t b) { return UpperUnit(a) < UpperUnit(b); });
}

bool EndsWithNoCase(std::wstring_view text, std::wstring_view end) {
    return text.size() >= end.size() && EqualNoCase(text.substr(text.size() - end.size()), end);
}

std::wstring_view WithoutContainerExtension(std::wstring_view name) {
    return EndsWithNoCase(name, kContainerExtension) ? name.substr(0, name.size() - kContainerExtension.size()) : name;
}

bool IsReservedName(std::wstring_view name) { return Contains(kReservedNames, name); }

bool IsSideFileName(std::wstring_view name) {
    constexpr std::wstring_view form = L"{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
    if (name.size() != kSideFileStart.size() + form.size() + kSideFileEnd.size() || !name.starts_with(kSideFileStart) ||
        !name.ends_with(kSideFileEnd))
        return false;
    name = name.substr(kSideFileStart.size(), form.size());
    return std::equal(name.begin(), name.end(), form.begin(),
                      [](wchar_t unit, wchar_t wanted) { return wanted == L'x' ? std::iswxdigit(unit) != 0 : unit == wanted; });
}

bool IsPossibleName(std::wstring_view name) { return name.find_first_of(L"*?<>|\":") == name.npos; }

bool IsDeviceName(std::wstring_view name) {
    name = name.substr(0, name.find(L'.'));
    name = name.substr(0, name.find_last_not_of(L' ') + 1);
    const std::wstring_view port = name.substr(0, 3);
    const bool isPort = name.size() == 4 && (EqualNoCase(port, L"COM") || EqualNoCase(port, L"LPT")) &&
                        std::wstring_view(L"0123456789\u00b9\u00b2\u00b3").find(name[3]) != name.npos;
    return isPort || Contains(kDeviceNames, name);
}
