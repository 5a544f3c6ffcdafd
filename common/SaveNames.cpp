#include "common/SaveNames.h"

#include <algorithm>
#include <ctime>
#include <cwchar>
#include <iterator>

#include <windows.h>

#include "common/Names.h"

namespace {

constexpr std::size_t kLongestName = 255;   // UTF-16 units that file systems store, without the terminator
constexpr std::size_t kLongestSuffix = 52;  // " (HalvaneCloud conflicted edit 2024-05-01) (1000)" and some room

std::wstring_view Layout(SaveName kind) {
    return kind == SaveName::ConflictedEdit ? L" (HalvaneCloud conflicted edit %Y-%m-%d)" : L" (HalvaneCloud backup edit %Y-%m-%d)";
}

std::size_t StemUnits(std::wstring_view itemName) { return std::min(itemName.rfind(L'.'), itemName.size()); }

// The stem, cut so that the units that follow it and a container's extension have room.
std::wstring_view Shortened(std::wstring_view stem, std::size_t followingUnits) {
    const std::size_t taken = followingUnits + kContainerExtension.size();
    const std::size_t units = taken < kLongestName ? kLongestName - taken : 1;
    const bool splitsPair = units < stem.size() && (stem[units] & 0xFC00) == 0xDC00;  // the second half of a surrogate pair
    return stem.substr(0, splitsPair ? units - 1 : units);
}

}  // namespace

std::wstring SaveNameStr(std::wstring_view itemName, SaveName kind, int number) {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    std::tm date{};
    date.tm_year = std::min<int>(now.wYear, 9999) - 1900;
    date.tm_mon = now.wMonth - 1;
    date.tm_mday = now.wDay;
    wchar_t suffix[kLongestSuffix];
    const std::size_t units = std::wcsftime(suffix, std::size(suffix), Layout(kind).data(), &date);
    std::wstring following(suffix, units);
    if (number > 1)
        following.append(L" (").append(std::to_wstring(number)).append(L")");
    following += itemName.substr(StemUnits(itemName));
    return std::wstring(Shortened(itemName.substr(0, StemUnits(itemName)), following.size())) + following;
}

std::wstring SaveNamePattern(std::wstring_view itemName, SaveName kind) {
    const std::wstring_view words = Layout(kind).substr(0, Layout(kind).find(L'%'));
    std::wstring pattern(itemName.substr(0, StemUnits(itemName)));
    return pattern.append(words).append(L"*").append(itemName.substr(StemUnits(itemName)));
}

bool IsNameForNewFile(std::wstring_view itemName, bool isEncrypted) {
    if (!isEncrypted || !IsPossibleName(itemName))
        return IsPossibleName(itemName);
    return itemName.size() + kContainerExtension.size() <= kLongestName &&
           itemName.size() - StemUnits(itemName) + kLongestSuffix + kContainerExtension.size() < kLongestName;
}
