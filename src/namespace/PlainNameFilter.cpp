#include "namespace/PlainNameFilter.h"

#include <windows.h>

#include "library/Owners.h"
#include "library/Paths.h"
#include "library/PlatformPath.h"
#include "library/Text.h"

namespace {

// Calls visit with each of the bit numbers that stand for a name: two halves of one mixed hash.
template <class Visit>
void ForEachBit(std::wstring_view name, std::size_t bits, Visit visit) {
    std::uint64_t hash = NoCaseHash()(name);
    hash = (hash ^ hash >> 31) * 0x9E3779B97F4A7C15u;  // the golden ratio's fraction spreads similar names (Knuth, vol. 3, 6.4)
    visit(static_cast<std::size_t>(hash >> 32) % bits);
    visit(static_cast<std::size_t>(hash >> 8) % bits);
}

}  // namespace

void PlainNameFilter::Fill(const std::wstring& folderPath) {
    m_bits = std::make_unique<std::uint64_t[]>(kBits / 64);
    WIN32_FIND_DATAW entry{};
    const UniqueFindHandle find(FindFirstFileExW(PlatformPath(PathAppendStr(folderPath, L"*")).c_str(), FindExInfoBasic, &entry,
                                                 FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH));
    m_isUseless = !find;
    if (m_isUseless)
        return;
    do {
        ForEachBit(entry.cFileName, kBits, [this](std::size_t bit) { m_bits[bit / 64] |= std::uint64_t{1} << bit % 64; });
    } while (::FindNextFileW(find.Get(), &entry));
    m_isUseless = GetLastError() != ERROR_NO_MORE_FILES;
}

bool PlainNameFilter::MayContain(const std::wstring& folderPath, std::wstring_view name) {
    if (!m_bits)
        Fill(folderPath);
    // The platform finds other names by these: short names, and names whose end it trims.
    const bool isOtherName = name.find(L'~') != name.npos || name.ends_with(L'.') || name.ends_with(L' ');
    bool mayContain = true;
    if (!m_isUseless && !isOtherName)
        ForEachBit(name, kBits, [&](std::size_t bit) { mayContain = mayContain && (m_bits[bit / 64] >> bit % 64 & 1); });
    return mayContain;
}
