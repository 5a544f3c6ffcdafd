// How tests look into and disturb the companion library under the volume: it counts calls by name and live objects, keeps
// the log lines, and can make the nth call of a name fail. Any thread.
#pragma once

#include <cstdint>

// What a failing call does instead of its work.
enum class Fault : std::uint32_t {
    None,
    Null,          // returns null, 0 or false
    Raise,         // calls the callback that the volume registered
    Error,         // throws CQuelcryptErrorException
    OutOfMemory,   // throws std::bad_alloc
    OverLong,      // of texts with a capacity: a length beyond it
    NoText,        // of texts with a capacity: bytes that are no UTF-8
};

// The lines of the log, in order, with their levels.
using LineVisitor = void (*)(void* context, std::uint32_t level, std::uint32_t threadId, const wchar_t* text);

extern "C" {
// By any name but the logger's when it is null.
std::uint32_t TestCompanion_Calls(const char* name);
std::int32_t TestCompanion_LiveObjects();
// From now on the nth call (from 1) of a name with that part fails, or when null of any name but the logger's; with repeat, the later
// ones too.
// Fault::None ends it.
void TestCompanion_FailNth(const char* name, std::uint32_t nth, Fault fault, bool repeat);
// Has the fault set last been reached?
bool TestCompanion_FaultWasHit();
// The name of the call that it hit last; "" when it was not reached.
const char* TestCompanion_FaultedCall();
void TestCompanion_SetLevel(std::uint32_t level);
void TestCompanion_ClearLines();
void TestCompanion_VisitLines(LineVisitor visit, void* context);
// Called at the start of each call of name; null ends it. The hook may do anything but call the companion library.
void TestCompanion_SetHook(const char* name, void (*hook)(void*), void* context);
}
