// Scanners, indexers, sync clients and readers hold a file for moments after it was closed. What they make fail is tried again here;
// this is the one place that says for how long.
#pragma once

#include "library/Win32Error.h"

// Might what failed with this error succeed in a moment? A file that others have open is refused by the first two, replacing it, or
// renaming a folder above it, by the third, and a name whose deletion waits for its last handle by the last two.
inline bool MayPass(Win32Error error) {
    for (const DWORD passing : {ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION, ERROR_ACCESS_DENIED, ERROR_DELETE_PENDING})
        if (error == static_cast<Win32Error>(passing))
            return true;
    return false;
}

// Calls attempt until it returns None or an error that does not pass, up to ten times within two seconds. What must be true at the
// last moment is for attempt to ask.
template <class Attempt>
Win32Error TryForAMoment(Attempt attempt) {
    for (const DWORD pauseMs : {5, 10, 20, 40, 80, 150, 300, 500, 900}) {
        const Win32Error error = attempt();
        if (!MayPass(error))
            return error;
        Sleep(pauseMs);
    }
    return attempt();
}
