// The functions of the companion library, which QuelcryptLib.h describes under their exported names; the
// arguments that are always null or constant are left out. Only CQuelcryptException and classes derived from it may leave these
// functions and the objects that they make. The objects are usable until the library is unloaded.
#pragma once

#include <cstdint>

#include "quelcrypt/QuelcryptLib.h"

namespace companion {

// Reads the configuration; a broken one is reported and there are then no folders. Starts no thread.
void Initialize(void (*raise)()) noexcept;
// Closes the log file and forgets the callback.
void Uninitialize() noexcept;

// Never null. The same object at every call.
IFileLogger* FileLogger() noexcept;
// The same number for the same name, from 1 up.
std::uint32_t LoggerComponentIndex(const char* componentName);

IQuelcryptConfig* MakeQuelcryptConfig();
std::int32_t MakeHalvaneBoxConfig(const char* folderPathUtf8, IHalvaneBoxConfig** config);
std::int32_t MakeProtectedFolderEnum(IProtectedFolderEnum** folders);

// 1: every output is filled. 0 leaves the outputs as they were: the file cannot be opened, is not a container (a ZIP file
// with exactly one entry, AES-encrypted or empty), or its content is not on this machine: a placeholder is never fetched
// for a listing. rawEntry may be null; with it, what was read is remembered by path, times and size.
std::int32_t GetFileInformation(const char* containerPathUtf8, IHvcStringW** storedName, std::uint64_t* plainSize,
                                const WIN32_FIND_DATAW* rawEntry, SYSTEMTIME* lastWrite, SYSTEMTIME* lastAccess, SYSTEMTIME* creation);

// Null when the file cannot be opened. Throws when it is not a container. The first Advance tries the passwords
// and throws "Cannot recover password" when none fits. For a damaged container, the Advance that would return 0
// throws at the latest.
IFileReader* MakeReader(IHvcStringW* containerPath);

// Null when no password is configured for the container. Throws when its folder cannot be written or the existing container
// is read-only. Any of the three times may be null.
IFileWriter* MakeWriter(IHvcStringW* containerPath, IHvcStringW* virtualFileSpec, IHvcStringW* sourcePath, std::uint32_t sourceAttributes,
                        const SYSTEMTIME* lastWrite, const SYSTEMTIME* lastAccess, const SYSTEMTIME* creation);

}  // namespace companion
