// The companion library under the volume: counts calls by name and live objects, keeps the log, and makes calls fail. Any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "quelcrypt/QuelcryptLib.h"

// What a failing call does instead of its work.
enum class Fault : std::uint32_t {
    None,
    Null,         // returns null, 0 or false
    Raise,        // calls the callback that the volume registered
    Error,        // throws CQuelcryptErrorException
    OutOfMemory,  // throws std::bad_alloc
    Foreign,      // raises what another compiler's programs throw
    OverLong,     // for texts with a capacity: returns a length beyond it
    NoText,       // for texts with a capacity: stores bytes that are not UTF-8
};

struct LogLine {
    std::uint32_t level;
    std::uint32_t threadId;
    std::wstring text;
};

// What it has counted and recorded, and how calls fail.
struct TestCompanion {
    // The number of calls of this name; null: of all names except the logger's.
    std::uint32_t Calls(const char* name) {
        const std::lock_guard guard(mutex);
        return name ? calls[name] : allCalls;
    }
    // From now on the nth call (from 1) of a name that contains `name` fails (null: of any name except the logger's), and with andLater
    // all later ones too. Without arguments no call fails.
    void FailNth(const char* name = nullptr, std::uint32_t nth = 0, Fault withFault = Fault::None, bool andLater = false) {
        const std::lock_guard guard(mutex);
        failName = name ? name : "";
        failIn = nth, fault = withFault, repeat = andLater;
        wasHit = false;
    }
    // Called at the start of each call of name. It may do anything but call the companion library.
    void SetHook(const char* name = "", std::function<void()> call = {}) {
        const std::lock_guard guard(mutex);
        hookName = name, hook = std::move(call);
    }

    std::recursive_mutex mutex;  // guards all
    std::map<std::string, std::uint32_t> calls;
    std::uint32_t allCalls = 0;
    std::atomic<std::int32_t> liveObjects{0};
    bool wasHit = false;  // was the fault set last reached?
    std::uint32_t level = LogLevel_Trace;
    std::vector<LogLine> lines;  // of the log, in order

    std::string failName;
    std::uint32_t failIn = 0;
    Fault fault = Fault::None;
    bool repeat = false;
    std::string hookName;
    std::function<void()> hook;
};
extern "C" TestCompanion& Companion();
