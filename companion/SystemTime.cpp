#include "SystemTime.h"

#include <algorithm>

namespace companion {
namespace {

constexpr std::int64_t unitsPerSecond = 10'000'000;
constexpr std::int64_t secondsFrom1601To1970 = 11'644'473'600;
// 0 stands for an absent time in a container.
constexpr std::int64_t earliest = 1;
constexpr std::int64_t latest = 0xFFFFFFFF;

}  // namespace

std::optional<std::int64_t> StoredTime(const SYSTEMTIME* time) {
    FILETIME fileTime;
    if (!time || !SystemTimeToFileTime(time, &fileTime))
        return std::nullopt;
    const std::int64_t units = (static_cast<std::int64_t>(fileTime.dwHighDateTime) << 32) | fileTime.dwLowDateTime;
    return std::clamp(units / unitsPerSecond - secondsFrom1601To1970, earliest, latest);
}

SYSTEMTIME SystemTimeOf(std::int64_t storedTime) {
    const std::int64_t units = (std::clamp(storedTime, earliest, latest) + secondsFrom1601To1970) * unitsPerSecond;
    FILETIME fileTime;
    fileTime.dwHighDateTime = static_cast<DWORD>(units >> 32);
    fileTime.dwLowDateTime = static_cast<DWORD>(units);
    SYSTEMTIME time = {};
    FileTimeToSystemTime(&fileTime, &time);
    return time;
}

}  // namespace companion
