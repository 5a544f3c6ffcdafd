// Reading a container. Only exceptions of the CQuelcryptException family leave these functions and the readers.
#pragma once

#include <memory>
#include <string>

#include "quelcrypt/QuelcryptLib.h"

namespace companion {

class ContainerFile;
class ContentCipher;

// A cipher that reads the container; null when no configured password fits. Stores the password's key. Throws
// CQuelcryptErrorException when the file cannot be read.
std::unique_ptr<ContentCipher> FittingCipher(ContainerFile& file, const std::wstring& path, std::string& key);

// Null when the file cannot be opened. Throws when it is not a container. The first Advance tries the passwords
// and throws "Cannot recover password" when none fits. For a damaged container, the Advance that would return 0
// throws at the latest.
IFileReader* MakeReader(IHvcStringW* containerPath);

}  // namespace companion
