#include "volume/SearchHandles.h"

#include <mutex>
#include <unordered_set>

#include "library/Owners.h"

namespace {

struct HandleTable {
    CriticalSection section;
    std::unordered_set<void*> handles;
};

HandleTable& Table() {
    static HandleTable s_table;
    return s_table;
}

}  // namespace

void SearchHandles::Insert(void* handle) {
    HandleTable& table = Table();
    const std::lock_guard guard(table.section);
    if (handle)
        table.handles.insert(handle);
}

std::uint32_t SearchHandles::MagicOf(void* handle) {
    HandleTable& table = Table();
    const std::lock_guard guard(table.section);
    return table.handles.contains(handle) ? *static_cast<const std::uint32_t*>(handle) : 0;
}

std::uint32_t SearchHandles::Remove(void* handle) {
    HandleTable& table = Table();
    const std::lock_guard guard(table.section);
    return table.handles.erase(handle) ? *static_cast<const std::uint32_t*>(handle) : 0;
}
