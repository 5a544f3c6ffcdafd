// Scanners, indexers, sync clients and readers hold a file for moments, also after it was closed. This is the one place that says
// how long the volume, its companion library and quelvol repeat a call that fails because of that.
#pragma once

#include <windows.h>

// Calls attempt until it returns true, up to ten times within two seconds. False: it never did. Conditions of the call must be checked in
// attempt, each time.
template <class Attempt>
bool RepeatForAMoment(Attempt attempt) {
    for (const DWORD pauseMs : {5, 10, 20, 40, 80, 150, 300, 500, 900}) {
        if (attempt())
            return true;
        Sleep(pauseMs);
    }
    return attempt();
}
