// Whether a companion library does what the volume requires of it.
#pragma once

#include <iosfwd>

#include "companion/conformance/Checks.h"

namespace conformance {

// Loads the library, initialises it as the volume does, reports each requirement and unloads the library. The folders must be empty, and
// are empty afterwards, apart from what the library keeps there under names that the volume never shows. Throws Unmet when a folder
// cannot be used.
void CheckLibrary(Report& report, const Path& dll, const Folders& folders);

}  // namespace conformance
