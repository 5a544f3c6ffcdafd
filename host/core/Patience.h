// While other programs or requests have a file open for a moment, it can be neither replaced nor deleted.
#pragma once

#include <functional>

enum class Patience {
    UntilInterrupted,
    Always,  // for what must be done at the program's end
};

// Calls attempt, as often as RepeatForAMoment does, until it returns true. False: it never did.
bool TryForAMoment(const std::function<bool()>& attempt, Patience patience = Patience::UntilInterrupted);
