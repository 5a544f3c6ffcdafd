#include "core/Patience.h"

#include <windows.h>

#include "core/Interrupt.h"

bool TryForAMoment(const std::function<bool()>& attempt, Patience patience) {
    for (const DWORD pauseMs : {5, 10, 20, 40, 80, 150, 300, 500, 900}) {
        if (attempt())
            return true;
        if (patience == Patience::UntilInterrupted && Interrupted())
            return false;
        Sleep(pauseMs);
    }
    return attempt();
}
