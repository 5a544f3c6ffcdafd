// Finding the password of a container. What reads it is made by MakeReader, see Library.h.
#pragma once

#include <memory>
#include <string>

#include "ContainerContent.h"

namespace companion {

// To read the container with; null when no configured password fits. key becomes that of the password. Throws
// CQuelcryptErrorException when the file cannot be read.
std::unique_ptr<ContentCipher> FittingCipher(ContainerFile& file, const std::wstring& path, std::string& key);

}  // namespace companion
