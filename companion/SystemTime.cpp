#include "SystemTime.h"

#include <algorithm>
#include <ctime>

#include "common/Halves.h"

namespace companion {
namespace {

constexpr std::int64_t kUnitsPerSecond = 10'000'000;
constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;
// In a container 0 means an absent time.
constexpr std::int64_t kEarliest = 1;
constexpr std::int64_t kLatest = 0xFFFFFFFF;

}  // namespace

std::optional<std::int64_t> StoredTime(const SYSTEMTIME* time) {
    FILETIME fileTime;
    if (!time || !SystemTimeToFileTime(time, &fileTime))
        return std::nullopt;
    const std::int64_t units = static_cast<std::int64_t>(FileTimeNumber(fileTime));
    return std::clamp(units / kUnitsPerSecond - kSecondsFrom1601To1970, kEarliest, kLatest);
}

SYSTEMTIME SystemTimeOf(std::int64_t storedTime) {
    const std::int64_t units = (std::clamp(storedTime, kEarliest, kLatest) + kSecondsFrom1601To1970) * kUnitsPerSecond;
    const FILETIME fileTime = FileTimeOf(static_cast<std::uint64_t>(units));
    SYSTEMTIME time = {};
    FileTimeToSystemTime(&fileTime, &time);
    return time;
}

std::uint32_t DosTimeOf(std::int64_t storedTime) {
    constexpr std::uint32_t firstDay = 1 << 21 | 1 << 16;
    const std::time_t time = storedTime;
    const std::tm* const local = std::localtime(&time);
    if (!local || local->tm_year < 80)
        return firstDay;
    const auto bits = [](int number, int place) { return static_cast<std::uint32_t>(number) << place; };
    return bits(local->tm_year - 80, 25) | bits(local->tm_mon + 1, 21) | bits(local->tm_mday, 16) | bits(local->tm_hour, 11) |
           bits(local->tm_min, 5) | bits(local->tm_sec / 2, 0);
}

std::int64_t TimeOfDos(std::uint32_t dosTime) {
    const auto number = [dosTime](int place, int bits) { return static_cast<int>(dosTime >> place & ((1u << bits) - 1)); };
    std::tm local = {};
    local.tm_year = number(25, 7) + 80;
    local.tm_mon = number(21, 4) - 1;
    local.tm_mday = number(16, 5);
    local.tm_hour = number(11, 5);
    local.tm_min = number(5, 6);
    local.tm_sec = number(0, 5) * 2;
    local.tm_isdst = -1;
    return std::mktime(&local);
}

}  // namespace companion
