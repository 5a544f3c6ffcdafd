// What was read of containers, so that a second listing opens none of them: by path, with the creation time, the write
// time and the size that the container had. Remembers the 20,000 that were asked for last, some 8 MB. One mutex guards it.
#pragma once

#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include <windows.h>

#include "ContainerFile.h"

namespace companion {

class InformationMemory {
public:
    // Nothing: not remembered, or the file changed. An empty inner value: the file is not a container.
    std::optional<std::optional<ContainerEntry>> Find(std::string_view path, const WIN32_FIND_DATAW& rawEntry);
    void Keep(std::string_view path, const WIN32_FIND_DATAW& rawEntry, const std::optional<ContainerEntry>& entry);

private:
    struct Stamp {
        std::uint64_t creationTime;
        std::uint64_t writeTime;
        std::uint64_t sizeBytes;
        bool operator==(const Stamp&) const = default;
    };
    struct Kept {
        std::string path;
        Stamp stamp;
        std::optional<ContainerEntry> entry;
    };
    static Stamp StampOf(const WIN32_FIND_DATAW& rawEntry);

    std::mutex m_mutex;
    std::list<Kept> m_kept;                                                    // the last used first
    std::unordered_map<std::string_view, std::list<Kept>::iterator> m_byPath;  // keys live in m_kept
};

}  // namespace companion
