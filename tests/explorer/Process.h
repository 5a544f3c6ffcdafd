// The process that has the volume loaded, as far as anybody can tell: it may end at any moment, and another one starts. No process
// is really started; what the volume holds open is noted at its imports and closed as the system would.
#pragma once

#include "quelcrypt/IVirtualVolume.h"

namespace process {

IVirtualVolume* Volume();  // loads it when it is not
// Nothing is saved, closed or released; the next call is made by another process.
void End();
// Does the volume hold handles of files or searches?
bool HoldsHandles();

}  // namespace process
