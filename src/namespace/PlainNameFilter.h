// Answers, for a folder being listed, whether a plain name may exist beside a container, without asking the disk once per
// container: looking for a missing name is what costs in a large folder. A fixed-size Bloom filter (B. H. Bloom, 1970)
// over the folder's names as they were when it was filled: "no" is certain, "maybe" is for the caller to look up.
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
    bool m_isUseless = false;                 // the folder could not be read: everything may be there
};
