// Turning a file on disk into a container and back, in place. The new form is complete, flushed and compared byte by byte before the
// old one is deleted, so a kill at any moment leaves at least one of them; if it leaves both, the next run compares them and
// finishes. The old form and its folder are held meanwhile: nobody can change it, and a file that somebody has open is refused.
#pragma once

#include <functional>

#include "core/Volume.h"

using ByteCount = std::function<void(std::uint64_t)>;  // called with the bytes that were read since the last call

// Turns a plain file into a container, or a container into a plain file. Throws HostError, and leaves what was there as it was. Links are
// never followed, not even one that replaces a file or folder meanwhile. Alternate streams and access rights of the old file are lost.
void EncryptInPlace(const Volume& volume, const Entry& plain, const ByteCount& count);
void DecryptInPlace(const Volume& volume, const Entry& container, const ByteCount& count);
