// The items that hosts hold open. A handle is the address of its item, but it is only used when it stands here: a stale or
// foreign one is an invalid parameter, and an item closed by one thread lives on until the others have left it. The next
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
    // Null for a handle that is none.
    static OpenItemPtr Find(void* handle);
    // Needs no memory: a close is never refused.
    static OpenItemPtr Remove(void* handle);
};
