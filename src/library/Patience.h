// Repeats a call of the platform that fails because others hold a file for a moment, and says which errors these are.
#pragma once

#include "common/Patience.h"
#include "library/Win32Error.h"

// Might a call that failed with this error succeed in a moment? The first two are for a file that others have open, the third for
// replacing it or renaming a folder above it, the last two for a name whose deletion waits for its last handle.
inline bool MayPass(Win32Error error) {
    for (const DWORD passing : {ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION, ERROR_ACCESS_DENIED, ERROR_DELETE_PENDING})
        if (error == static_cast<Win32Error>(passing))
            return true;
    return false;
}

// Calls attempt, as often as RepeatForAMoment does, until it returns None or an error that will not pass. Returns the last result.
template <class Attempt>
Win32Error TryForAMoment(Attempt attempt) {
    Win32Error error = Win32Error::None;
    RepeatForAMoment([&] {
        error = attempt();
        return !MayPass(error);
    });
    return error;
}
