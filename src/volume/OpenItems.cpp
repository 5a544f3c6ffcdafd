#include "volume/OpenItems.h"

#include <mutex>
#include <unordered_map>

#include "library/Owners.h"

namespace {

struct ItemTable {
    CriticalSection section;
    std::unordered_map<void*, OpenItemPtr> items;
};

// Never destroyed: an item that a host left open is not to be saved while the process is being torn down, where neither
// the companion library nor other threads can be relied on. Its edit stays on disk with its tracking file.
ItemTable& Table() {
    static ItemTable& s_table = *new ItemTable;
    return s_table;
}

}  // namespace

void* OpenItems::Add(OpenItemPtr item) {
    ItemTable& table = Table();
    const std::lock_guard guard(table.section);
    void* const handle = item.get();
    table.items.emplace(handle, std::move(item));
    return handle;
}

OpenItemPtr OpenItems::Find(void* handle) {
    ItemTable& table = Table();
    const std::lock_guard guard(table.section);
    const auto found = table.items.find(handle);
    return found == table.items.end() ? nullptr : found->second;
}

OpenItemPtr OpenItems::Remove(void* handle) {
    ItemTable& table = Table();
    const std::lock_guard guard(table.section);
    const auto found = table.items.find(handle);
    if (found == table.items.end())
        return nullptr;
    OpenItemPtr item = std::move(found->second);
    table.items.erase(found);
    return item;
}
