// 64-bit numbers that the platform stores in two halves.
#pragma once

#include <cstdint>

#include <windows.h>

inline std::uint64_t Joined(DWORD high, DWORD low) { return static_cast<std::uint64_t>(high) << 32 | low; }

inline std::uint64_t FileTimeNumber(const FILETIME& time) { return Joined(time.dwHighDateTime, time.dwLowDateTime); }
inline FILETIME FileTimeOf(std::uint64_t number) { return {static_cast<DWORD>(number), static_cast<DWORD>(number >> 32)}; }
