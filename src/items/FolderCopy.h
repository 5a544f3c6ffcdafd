// Copies a folder with everything in it, documents as the containers that they are stored in, or a single file. It replaces only what
// was there when the copy of that one file began, and nothing in a folder that it created itself. Stateless; any thread. While it copies
// a file, it holds the save gate of the destination.
#pragma once

#include <string>

#include "library/Win32Error.h"

// With failIfExists nothing existing is overwritten. ERROR_SHARING_VIOLATION: somebody else stored a file at a destination meanwhile.
// ERROR_NOT_SUPPORTED: there is a link in the source. ERROR_INVALID_PARAMETER: the destination is the source or lies in it, whichever
// paths lead there. A failure leaves an incomplete copy in a destination that was there before. A destination that the copy created is
// deleted again, except what others stored in it, unless something in it is open: then all of it stays.
Win32Error qcCopyFileOrFolder(const std::wstring& source, const std::wstring& destination, bool failIfExists);
