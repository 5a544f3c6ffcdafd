// What this companion library can do beside QuelcryptLib.h, for programs that look after containers as quelvol does. They ask for
// these exports by name, and another library may lack them. Any thread; no exception leaves them. A reason is a sentence
// without its full stop; it is stored with its terminator, cut to capacity characters.
#pragma once

#include <cstdint>

enum CompanionVerdict : std::int32_t {
    Companion_Whole = 0,
    Companion_OtherKey = 1,  // whole, but under another configured key than its folder's
    Companion_WrongKey = 2,  // no configured password opens it
    Companion_Damaged = 3,
    Companion_NoContainer = 4,  // a file of another kind
    Companion_Unreadable = 5,   // the file cannot be opened or read just now
    Companion_Stopped = 6,      // step said so
    Companion_NotProven = 7,    // a password would have to be asked for, and asking is forbidden
};

extern "C" {

// Reads the container to its end; step gets the bytes read since its last call and says whether to go on. A null step: only its
// records are looked at, which needs no password, and the key counts as right.
CompanionVerdict Companion_Examine(const wchar_t* containerPath, bool (*step)(void* context, std::uint64_t bytes), void* context,
                                   wchar_t* reason, std::uint32_t capacity);

// Does the password of the folder open what is there? Companion_Whole also when nothing is, or the folder has no policy.
// Companion_WrongKey: no, or there is none.
CompanionVerdict Companion_CheckPassword(const wchar_t* folderPath, bool mayAsk, wchar_t* reason, std::uint32_t capacity);

// From now on nobody is asked for a password in this process.
void Companion_ForbidAsking();

// Why the last container could not be read or written on this thread; empty when it could.
void Companion_LastProblem(wchar_t* reason, std::uint32_t capacity);
}
