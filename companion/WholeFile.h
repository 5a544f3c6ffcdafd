// Reads a small file in one go.
#pragma once

#include <cstddef>
#include <string>

namespace companion {

// Throws CQuelcryptErrorException when it cannot be read or is larger than sizeLimit bytes. The file may be open elsewhere.
std::string ReadWholeFile(const std::wstring& fullPath, std::size_t sizeLimit);

}  // namespace companion
