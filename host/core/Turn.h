// Turning a file on disk into a container and back, in place. The new form is whole, on the disk and compared byte by byte before the
// old one goes, so a kill at any moment leaves at least one of them; where it leaves both, the next run compares them and
// finishes. The old form is held meanwhile: nobody can change it, and one that somebody works on is refused.
#pragma once

#include <functional>
#include <string>

using ByteCount = std::function<void(std::uint64_t)>;  // called with the bytes that were read since the last call

// plainPath becomes plainPath + ".zip", or back. Throws HostError; what was there is then as it was. Alternate streams and access
// rights of the old file are not carried over.
void EncryptInPlace(const std::wstring& plainPath, const ByteCount& count);
void DecryptInPlace(const std::wstring& containerPath, const ByteCount& count);
