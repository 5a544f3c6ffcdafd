// The items that hosts hold open. A handle is the address of its item, but it is only used when it stands here: a stale or
// foreign one is an invalid parameter, and an item closed by one thread lives on until the others have left it. One
// process-wide critical section, held for a look-up only.
#pragma once

#include <memory>

#include "items/VirtualItem.h"

using OpenItemPtr = std::shared_ptr<VirtualItem>;

class OpenItems {
public:
    // Returns the handle.
    static void* Add(OpenItemPtr item);
    // Null for a handle that is none.
    static OpenItemPtr Find(void* handle);
    static OpenItemPtr Remove(void* handle);
};
