// Scanners, indexers, sync clients and readers hold a file for moments, also after it was closed. This is the one place that says for
// how long the volume, its companion library and its hosts try again what they make fail.
#pragma once

#include <windows.h>

// Calls attempt until it returns true, up to ten times within two seconds. False: it never did. What must be true at the last moment
// is for attempt to ask.
template <class Attempt>
bool RepeatForAMoment(Attempt attempt) {
    for (const DWORD pauseMs : {5, 10, 20, 40, 80, 150, 300, 500, 900}) {
        if (attempt())
            return true;
        Sleep(pauseMs);
    }
    return attempt();
}
