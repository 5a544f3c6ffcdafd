// The configuration in force. At every request the file's time and size are checked, so a change takes effect at once. A
// file that is broken or being written is reported, and what was last read completely stays in force;
// before that there are no folders. One mutex guards the store; the objects it returns never change.
#pragma once

#include <cstdint>
#include <memory>

#include "Settings.h"

namespace companion {

struct SettingsInForce {
    Settings settings;
    std::uint32_t changeCounter = 0;  // never 0; different after each change of the file
};

// Never null. Passes changed log settings to the logger. Throws only std::bad_alloc.
std::shared_ptr<const SettingsInForce> CurrentSettings();

}  // namespace companion
