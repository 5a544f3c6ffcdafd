// For compiling the pure parts natively: names of the platform that only stand in declarations there. Read before anything
// else, so that the records' layouts, which are another platform's, are not asserted.
#pragma once

#include <memory>
#include <string>

#define static_assert(...) static_assert(true)

struct SYSTEMTIME;
struct WIN32_FIND_DATAW;
