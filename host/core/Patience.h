// Other programs, and requests that only look at a file, have it open for moments; meanwhile it can be neither replaced nor deleted.
#pragma once

#include <functional>

enum class Patience {
    UntilInterrupted,
    Always,  // what has to be done at the program's end
};

// Calls attempt until it returns true, as RepeatForAMoment. False: it never did.
bool TryForAMoment(const std::function<bool()>& attempt, Patience patience = Patience::UntilInterrupted);
