// The functions of the companion library, which QuelcryptLib.h describes under their exported names; the
// arguments that are always null or constant are left out. Only CQuelcryptException and classes derived from it may leave these
// functions and the objects that they make. The objects are usable until the library is unloaded.
#pragma once

#include <cstdint>

#include "quelcrypt/QuelcryptLib.h"

namespace companion {

// Reads the configuration; a broken one is reported and there are then no folders. Starts no thread.
void Initialize(void (*raise)()) noexcept;
// Closes the log file and forgets the callback.
void Uninitialize() noexcept;

// Never null. The same object at every call.
IFileLogger* FileLogger() noexcept;
// The same number for the same name, from 1 up.
std::uint32_t LoggerComponentIndex(const char* componentName);

}  // namespace companion
