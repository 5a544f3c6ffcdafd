// For compiling the pure parts natively: what they name of the platform, which stands there for declarations but in few places. Read before
// anything else, so that the records' layouts, which are another platform's, are not asserted.
#pragma once

#include <memory>
#include <string>

using ULONG_PTR = unsigned long long;
using DWORD = unsigned;
using WORD = unsigned short;
inline wchar_t* CharUpperW(wchar_t* unit) { return unit; }  // only letters of ASCII have two cases here

#define static_assert(...) static_assert(true)

struct SYSTEMTIME {
    WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};
struct FILETIME {
    DWORD dwLowDateTime, dwHighDateTime;
};
inline bool FileTimeToSystemTime(const FILETIME*, SYSTEMTIME*) { return false; }
inline bool SystemTimeToFileTime(const SYSTEMTIME*, FILETIME*) { return false; }
inline void GetSystemTimeAsFileTime(FILETIME*) {}
struct WIN32_FIND_DATAW;
