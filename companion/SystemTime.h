// Times as a container stores them: whole seconds since 1970, UTC, from 1970 to 2106.
#pragma once

#include <cstdint>
#include <optional>

#include <windows.h>

namespace companion {

// Nothing for null and for an invalid date. A time outside the range becomes the nearest one in it.
std::optional<std::int64_t> StoredTime(const SYSTEMTIME* time);
SYSTEMTIME SystemTimeOf(std::int64_t storedTime);

// The older form of times in ZIP: local time in steps of two seconds from 1980 to 2107, the date in the upper half.
std::uint32_t DosTimeOf(std::int64_t storedTime);
std::int64_t TimeOfDos(std::uint32_t dosTime);

}  // namespace companion
