// Which errors of the platform are those of a file that others hold for a moment, and what fails with them tried again.
#pragma once

#include "common/Patience.h"
#include "library/Win32Error.h"

// Might what failed with this error succeed in a moment? A file that others have open is refused by the first two, replacing it, or
// renaming a folder above it, by the third, and a name whose deletion waits for its last handle by the last two.
inline bool MayPass(Win32Error error) {
    for (const DWORD passing : {ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION, ERROR_ACCESS_DENIED, ERROR_DELETE_PENDING})
        if (error == static_cast<Win32Error>(passing))
            return true;
    return false;
}

// Calls attempt until it returns None or an error that does not pass, as RepeatForAMoment. Returns the last one.
template <class Attempt>
Win32Error TryForAMoment(Attempt attempt) {
    Win32Error error = Win32Error::None;
    RepeatForAMoment([&] {
        error = attempt();
        return !MayPass(error);
    });
    return error;
}
