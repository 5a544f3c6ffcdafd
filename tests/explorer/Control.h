// How the explorer steers and asks the companion library under the volume.
#pragma once

#include <cstdint>

// Which call fails, and how: it returns null, false or 0, or throws. Of the last two the nth call of any kind, once.
enum class Failing : std::int32_t { None, NoWriter, ThrowingWriter, Write, Finish, Information, Nth, NthThrows };

extern "C" {
// The one mount folder, "Docs". A folder in it named K1 or K2 has a policy, with that key.
void Explorer_SetRoot(const wchar_t* nativePath);
// Returns whether the last of these, if it was for the nth call, was reached.
bool Explorer_Fail(Failing failing, std::int32_t nth = 0);
std::int32_t Explorer_LiveObjects();
}
