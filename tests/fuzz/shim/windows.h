// For compiling the pure parts natively: names of the platform that (but for one) only stand in declarations there. Read before anything
// else, so that the records' layouts, which are another platform's, are not asserted.
#pragma once

#include <memory>
#include <string>

using ULONG_PTR = unsigned long long;
inline wchar_t* CharUpperW(wchar_t* unit) { return unit; }  // only letters of ASCII have two cases here

#define static_assert(...) static_assert(true)

struct SYSTEMTIME;
struct WIN32_FIND_DATAW;
