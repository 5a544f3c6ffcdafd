// More exports of this companion library, for programs that manage containers, such as quelvol. They look for
// these exports by name, because other libraries may lack them. Any thread; an exception leaves only Companion_NewFileWriter. A reason is a
// sentence without its full stop; it is stored with its terminator, cut to capacity characters.
#pragma once

#include <cstdint>

#include "quelcrypt/QuelcryptLib.h"

enum CompanionVerdict : std::int32_t {
    Companion_Whole = 0,
    Companion_OtherKey = 1,  // whole, but encrypted with another configured key than its folder's
    Companion_WrongKey = 2,  // no configured password opens it
    Companion_Damaged = 3,
    Companion_NoContainer = 4,  // a file of another kind
    Companion_Unreadable = 5,   // the file cannot be opened or read now
    Companion_Stopped = 6,      // step returned false
    Companion_NotProven = 7,    // somebody would have to be asked for a password, which is forbidden
};

extern "C" {

// Reads the container to its end; step receives the bytes read since its last call and returns whether to continue. With a null step
// only the records are checked, which needs no password, and the key is assumed to be right.
CompanionVerdict Companion_Examine(const wchar_t* containerPath, bool (*step)(void* context, std::uint64_t bytes), void* context,
                                   wchar_t* reason, std::uint32_t capacity);

// Companion_Whole: the folder's password opens what is stored there, or nothing is, or the folder has no policy.
// Companion_WrongKey: it does not, or there is no password.
CompanionVerdict Companion_CheckPassword(const wchar_t* folderPath, bool mayAsk, wchar_t* reason, std::uint32_t capacity);

// From now on nobody is asked for a password in this process.
void Companion_ForbidAsking();

// Like Quelcrypt_FileWriterFactory, but for a container that must not be there: what is at its path when it is finished is not replaced,
// and Finish fails. Throws as the factory does.
IFileWriter* Companion_NewFileWriter(IHvcStringW* containerPath, IHvcStringW* virtualFileSpec, IHvcStringW* sourcePath,
                                     std::uint32_t sourceAttributes, const SYSTEMTIME* lastWrite, const SYSTEMTIME* lastAccess,
                                     const SYSTEMTIME* creation);

// Why the last container could not be read or written on this thread; empty when it could.
void Companion_LastProblem(wchar_t* reason, std::uint32_t capacity);
}
