// The configuration in force. The file is looked at (not read) at every request, so an edit takes effect by itself. A
// file that is broken or being written when it is looked at is reported, and what was last read whole stays in force;
// before the first one there are no folders. One mutex guards the store; what it hands out never changes.
#pragma once

#include <cstdint>
#include <memory>

#include "Settings.h"

namespace companion {

struct SettingsInForce {
    Settings settings;
    std::uint32_t changeCounter = 0;  // never 0; another one after each change of the file
};

// Never null. Applies a changed log to the logger. Throws std::bad_alloc only.
std::shared_ptr<const SettingsInForce> CurrentSettings();

}  // namespace companion
