// The items that hosts hold open. A handle is the address of its item, but it is only used when it is in this table: a stale or
// foreign one is an invalid parameter, and an item that one thread closes exists until calls on other threads have ended. The next
// thousand items get other addresses, so that a host's late call on a closed handle does not reach another file. One
// process-wide critical section, held for a look-up only.
#pragma once

#include <memory>

#include "items/VirtualItem.h"

using OpenItemPtr = std::shared_ptr<VirtualItem>;

class OpenItems {
public:
    // Returns the handle. The item was made by std::make_shared, whose memory outlives the object.
    static void* Add(OpenItemPtr item);
    // Null for a handle that is not in the table.
    static OpenItemPtr Find(void* handle);
    // Needs no memory, so that a close cannot fail.
    static OpenItemPtr Remove(void* handle);
};
