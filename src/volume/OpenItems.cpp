#include "volume/OpenItems.h"

#include <deque>
#include <mutex>
#include <unordered_map>

#include "library/Owners.h"

namespace {

constexpr std::size_t kKeptAddresses = 1000;

struct ItemTable {
    CriticalSection section;
    std::unordered_map<void*, OpenItemPtr> items;
    // The items closed last. They are destroyed, but their memory is not given to others as long as it is pointed to here.
    std::deque<std::weak_ptr<VirtualItem>> closed;
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
    table.closed.push_back(found->second);
    if (table.closed.size() > kKeptAddresses)
        table.closed.pop_front();
    OpenItemPtr item = std::move(found->second);
    table.items.erase(found);
    return item;
}
