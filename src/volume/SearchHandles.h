// The search handles of all kinds that hosts hold. A handle is the address of its search's state, which begins with
// the kind's 32-bit number, but it is only used when it is in this table: a stale or foreign one is refused. A search that one thread
// closes exists until another has ended its step; the steps of one search are made one after the other.
#pragma once

#include <cstdint>
#include <memory>

#include "library/Locks.h"

class SearchHandles {
public:
    // Returns the handle; null stays null.
    static void* Add(std::shared_ptr<void> state);

    // Calls step with the state of a handle of this kind; returns failed when there is none.
    template <class State, class Result, class Step>
    static Result With(void* handle, std::uint32_t magic, Result failed, Step step) {
        const std::shared_ptr<Search> search = Find(handle);
        if (!search || *static_cast<const std::uint32_t*>(search->state.get()) != magic)
            return failed;
        const SectionGuard guard(search->section);
        return step(*static_cast<State*>(search->state.get()));
    }

    // False for a pointer that is not a handle. When two threads close one handle, one gets true.
    static bool Close(void* handle);

private:
    struct Search {
        explicit Search(std::shared_ptr<void> newState) : state(std::move(newState)) {}
        CriticalSection section{LockOrder::Search};
        const std::shared_ptr<void> state;
    };
    struct Table;
    static Table& TheTable();
    static std::shared_ptr<Search> Find(void* handle);
};
