// Answers, for a folder being listed, whether a plain name may exist beside a container, without a look-up for each
// container, which is slow for a missing name in a large folder. A fixed-size Bloom filter (B. H. Bloom, 1970)
// over the folder's names as they were when it was filled: "no" is certain, after "maybe" the caller looks the name up.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

class PlainNameFilter {
public:
    // Reads the folder's names once, at the first call.
    bool MayContain(const std::wstring& folderPath, std::wstring_view name);

private:
    static constexpr std::size_t kBits = std::size_t{1} << 19;

    void Fill(const std::wstring& folderPath);
    std::unique_ptr<std::uint64_t[]> m_bits;  // null: not filled yet
    bool m_isUseless = false;                 // the folder could not be read: any name may exist
};
