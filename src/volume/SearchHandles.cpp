#include "volume/SearchHandles.h"

#include <unordered_map>

struct SearchHandles::Table {
    CriticalSection section{LockOrder::SearchHandles};
    std::unordered_map<void*, std::shared_ptr<Search>> searches GUARDED_BY(section);
};

SearchHandles::Table& SearchHandles::TheTable() {
    static Table s_table;
    return s_table;
}

void* SearchHandles::Add(std::shared_ptr<void> state) {
    void* const handle = state.get();
    if (!handle)
        return nullptr;
    const auto search = std::make_shared<Search>(std::move(state));
    Table& table = TheTable();
    const SectionGuard guard(table.section);
    table.searches[handle] = search;
    return handle;
}

std::shared_ptr<SearchHandles::Search> SearchHandles::Find(void* handle) {
    Table& table = TheTable();
    const SectionGuard guard(table.section);
    const auto found = table.searches.find(handle);
    return found == table.searches.end() ? nullptr : found->second;
}

bool SearchHandles::Close(void* handle) {
    std::shared_ptr<Search> search;  // ended outside the section
    Table& table = TheTable();
    const SectionGuard guard(table.section);
    const auto found = table.searches.find(handle);
    if (found == table.searches.end())
        return false;
    search = std::move(found->second);
    table.searches.erase(found);
    return true;
}
