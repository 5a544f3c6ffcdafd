// What a container says of its document. Only exceptions of the CQuelcryptException family leave this function.
#pragma once

#include <cstdint>

#include "quelcrypt/QuelcryptLib.h"

namespace companion {

// 1: every output is filled. 0 leaves the outputs as they were: the file cannot be opened, is not a container (a ZIP file
// with exactly one entry, AES-encrypted or empty), or its content is not on this machine: a placeholder is never fetched
// for a listing. rawEntry may be null; with it, what was read is remembered by path, times and size.
std::int32_t GetFileInformation(const char* containerPathUtf8, IHvcStringW** storedName, std::uint64_t* plainSize,
                                const WIN32_FIND_DATAW* rawEntry, SYSTEMTIME* lastWrite, SYSTEMTIME* lastAccess, SYSTEMTIME* creation);

}  // namespace companion
