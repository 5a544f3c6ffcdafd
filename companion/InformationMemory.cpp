#include "InformationMemory.h"

#include "common/Halves.h"

namespace companion {
namespace {

constexpr std::size_t kMostKept = 20'000;

}  // namespace

InformationMemory::Stamp InformationMemory::StampOf(const WIN32_FIND_DATAW& rawEntry) {
    return {FileTimeNumber(rawEntry.ftCreationTime), FileTimeNumber(rawEntry.ftLastWriteTime),
            Joined(rawEntry.nFileSizeHigh, rawEntry.nFileSizeLow)};
}

std::optional<std::optional<ContainerEntry>> InformationMemory::Find(std::string_view path, const WIN32_FIND_DATAW& rawEntry) {
    const std::lock_guard guard(m_mutex);
    const auto found = m_byPath.find(path);
    if (found == m_byPath.end() || found->second->stamp != StampOf(rawEntry))
        return std::nullopt;
    m_kept.splice(m_kept.begin(), m_kept, found->second);
    return found->second->entry;
}

void InformationMemory::Keep(std::string_view path, const WIN32_FIND_DATAW& rawEntry, const std::optional<ContainerEntry>& entry) {
    const std::lock_guard guard(m_mutex);
    if (const auto known = m_byPath.find(path); known != m_byPath.end()) {
        known->second->stamp = StampOf(rawEntry);
        known->second->entry = entry;
        m_kept.splice(m_kept.begin(), m_kept, known->second);
        return;
    }
    m_kept.push_front({std::string(path), StampOf(rawEntry), entry});
    m_byPath.emplace(m_kept.front().path, m_kept.begin());
    if (m_kept.size() > kMostKept) {
        m_byPath.erase(m_kept.back().path);
        m_kept.pop_back();
    }
}

}  // namespace companion
