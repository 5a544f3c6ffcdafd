#include "core/Patience.h"

#include "common/Patience.h"
#include "core/Interrupt.h"

bool TryForAMoment(const std::function<bool()>& attempt, Patience patience) {
    bool isDone = false;
    RepeatForAMoment([&] {
        isDone = attempt();
        return isDone || (patience == Patience::UntilInterrupted && Interrupted());
    });
    return isDone;
}
