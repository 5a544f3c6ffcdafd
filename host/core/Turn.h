// Turning a file on disk into a container and back, in place. The new form is whole, on the disk and compared byte by byte before the
// old one goes, so a kill at any moment leaves at least one of them; where it leaves both, the next run compares them and
// finishes. The old form and its folder are held meanwhile: nobody can change it, and one that somebody works on is refused.
#pragma once

#include <functional>

#include "core/Volume.h"

using ByteCount = std::function<void(std::uint64_t)>;  // called with the bytes that were read since the last call

// The file becomes a container beside it, or back. Throws HostError; what was there is then as it was. A link is neither turned nor
// compared with, also one that takes a file's or folder's place meanwhile. Alternate streams and access rights of the old file are not
// carried over.
void EncryptInPlace(const Volume& volume, const Entry& plain, const ByteCount& count);
void DecryptInPlace(const Volume& volume, const Entry& container, const ByteCount& count);
