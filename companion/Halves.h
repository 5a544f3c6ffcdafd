// 64-bit numbers that the platform hands out in two halves.
#pragma once

#include <cstdint>

#include <windows.h>

namespace companion {

inline std::uint64_t Joined(DWORD high, DWORD low) {
    return (static_cast<std::uint64_t>(high) << 32) | low;
}

inline std::uint64_t FileTimeNumber(const FILETIME& time) {
    return Joined(time.dwHighDateTime, time.dwLowDateTime);
}

}  // namespace companion
