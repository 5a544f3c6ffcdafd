// The search handles that hosts hold, whatever their kind. They are told apart by the number they begin with, which is only
// read of a pointer that stands here: a stale or foreign one is no handle. One process-wide critical section.
#pragma once

#include <cstdint>

class SearchHandles {
public:
    // Returns the handle; null stays null. When it cannot be kept, discard frees it and the exception goes on.
    template <class State, class Discard>
    static void* Add(State* handle, Discard discard) {
        try {
            Insert(handle);
        } catch (...) {
            discard(handle);
            throw;
        }
        return handle;
    }
    // The number that a handle begins with; 0 for a pointer that is none.
    static std::uint32_t MagicOf(void* handle);
    // The same, to be called before the handle is freed: of two that close one handle, one gets 0.
    static std::uint32_t Remove(void* handle);

private:
    static void Insert(void* handle);
};
