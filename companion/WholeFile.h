// Reads a whole small file.
#pragma once

#include <cstddef>
#include <string>

namespace companion {

// Throws CQuelcryptErrorException when it cannot be read or is larger than sizeLimit bytes. Others may have the file open.
std::string ReadWholeFile(const std::wstring& fullPath, std::size_t sizeLimit);

}  // namespace companion
