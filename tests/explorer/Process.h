// Imitates a process that has the volume loaded, ends at any moment, and is followed by another one. No process
// is really started: what the volume holds open is recorded at its imports and closed like the system would.
#pragma once

#include "explorer/Steps.h"
#include "quelcrypt/IVirtualVolume.h"

namespace process {

IVirtualVolume* Volume();  // loads it when it is not
// Ends the process without saving, closing or releasing anything; the next call is made by another process.
void End();
// The companion library's call that the step names will fail.
void LetFail(const Step& step);
// Does the volume hold handles of files or searches?
bool HoldsHandles();

}  // namespace process
