// Reads one file of the volume in parts, always with an offset, because handles of a locked file share one position.
#pragma once

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "core/Volume.h"

namespace webdav {

class FileReader {
public:
    // Throws StatusError, as Read does.
    FileReader(const Volume& volume, const VolumePath& path)
        : m_volume(volume), m_path(path), m_handle(volume.Open(path, GENERIC_READ, kShareAll, OPEN_EXISTING)) {}

    // Up to size bytes from offset; empty at the end. Valid until the next read.
    std::string_view Read(std::uint64_t offset, std::uint64_t size) {
        if (offset == kCurrentPosition) {  // the one offset that cannot be passed
            const std::string_view more = Read(offset - 1, size + 1);
            return more.substr(std::min<std::size_t>(1, more.size()));
        }
        std::uint32_t count = 0;
        const auto request = static_cast<std::uint32_t>(std::min<std::uint64_t>(size, m_part.size()));
        Check(m_volume->ReadFile(m_handle.Get(), offset, m_part.data(), request, &count, nullptr), m_path);
        if (std::exchange(m_isFirst, false)) {  // the first read decrypts; after it the path is not needed any more
            m_volume.RequireInPlace(m_path, m_handle.Get());
            m_handle.LetFolderGo();
        }
        return {m_part.data(), count};
    }

    // Of the content that is read, in bytes. Nothing: unknown. To be called after the first read.
    std::optional<std::int64_t> Size() const {
        VirtFindData data{};
        return m_volume->GetFileInfo(m_handle.Get(), &data) ? std::optional(data.fileSize) : std::nullopt;
    }

    // Ends reading.
    void Close() { m_handle.Reset(); }

private:
    const Volume& m_volume;
    VolumePath m_path;
    FileHandle m_handle;
    bool m_isFirst = true;
    std::vector<char> m_part = std::vector<char>(128 * 1024);
};

}  // namespace webdav
