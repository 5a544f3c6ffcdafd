#include "volume/OpenItems.h"

#include <array>
#include <unordered_map>

#include "library/Locks.h"

namespace {

constexpr std::size_t kKeptAddresses = 1000;

struct ItemTable {
    CriticalSection section{LockOrder::OpenItems};
    std::unordered_map<void*, OpenItemPtr> items GUARDED_BY(section);
    // The items closed last. They are destroyed, but their memory is not reused while these pointers exist.
    std::array<std::weak_ptr<VirtualItem>, kKeptAddresses> closed GUARDED_BY(section);
    std::size_t closedCount GUARDED_BY(section) = 0;
};

// Never destroyed: an item that a host left open must not be saved while the process ends, when neither the companion library
// nor other threads work reliably. Its edit stays on disk with its tracking file.
ItemTable& Table() {
    static ItemTable& s_table = *new ItemTable;
    return s_table;
}

}  // namespace

void* OpenItems::Add(OpenItemPtr item) {
    ItemTable& table = Table();
    const SectionGuard guard(table.section);
    void* const handle = item.get();
    table.items.emplace(handle, std::move(item));
    return handle;
}

OpenItemPtr OpenItems::Find(void* handle) {
    ItemTable& table = Table();
    const SectionGuard guard(table.section);
    const auto found = table.items.find(handle);
    return found == table.items.end() ? nullptr : found->second;
}

OpenItemPtr OpenItems::Remove(void* handle) {
    ItemTable& table = Table();
    const SectionGuard guard(table.section);
    const auto found = table.items.find(handle);
    if (found == table.items.end())
        return nullptr;
    table.closed[table.closedCount++ % kKeptAddresses] = found->second;
    OpenItemPtr item = std::move(found->second);
    table.items.erase(found);
    return item;
}
