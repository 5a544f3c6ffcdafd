// Copies a folder with all it holds, documents as the containers that they are stored in; a file alone, too. Nobody's content is lost
// by it: it replaces only what was there when the copy of that one file began, and nothing in a folder that it made itself. No state of
// its own, any thread; while one file is copied it holds the gate of the file at its new place.
#pragma once

#include <string>

#include "library/Win32Error.h"

// With failIfExists nothing existing is overwritten. ERROR_SHARING_VIOLATION: somebody stored a file where the copy of it was to stand.
// ERROR_NOT_SUPPORTED: there is a link in the source. ERROR_INVALID_PARAMETER: the destination is the source, or lies in it, whichever
// paths lead there. A failure leaves a half copy in a destination that was there before. One that the copy made itself goes again, but
// for what others stored in it; while something in it is open, all of it stays.
Win32Error qcCopyFileOrFolder(const std::wstring& source, const std::wstring& destination, bool failIfExists);
