// Finding the password of a container. MakeReader (Library.h) makes the reader.
#pragma once

#include <memory>
#include <string>

#include "ContainerContent.h"

namespace companion {

// A cipher that reads the container; null when no configured password fits. Stores the password's key. Throws
// CQuelcryptErrorException when the file cannot be read.
std::unique_ptr<ContentCipher> FittingCipher(ContainerFile& file, const std::wstring& path, std::string& key);

}  // namespace companion
