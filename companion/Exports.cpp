#include "ContainerInformation.h"
#include "ContainerReader.h"
#include "ContainerWriter.h"
#include "Folders.h"
#include "Library.h"

extern "C" {

void Quelcrypt_Initialize(void (*raise)()) { companion::Initialize(raise); }

void Quelcrypt_Uninitialize() { companion::Uninitialize(); }

IFileLogger* Quelcrypt_GetFileLogger(std::int32_t) { return companion::FileLogger(); }

std::uint32_t Quelcrypt_GetLoggerComponentIndex(const char* componentName) { return companion::LoggerComponentIndex(componentName); }

IQuelcryptConfig* Quelcrypt_GetQuelcryptConfig(void*, void*) { return companion::MakeQuelcryptConfig(); }

std::int32_t Quelcrypt_GetHalvaneBoxConfig(const char* folderPathUtf8, IHalvaneBoxConfig** config, void*, void*) {
    return companion::MakeHalvaneBoxConfig(folderPathUtf8, config);
}

std::int32_t Quelcrypt_GetProtectedFolderEnum(std::int32_t, IProtectedFolderEnum** folders) {
    return companion::MakeProtectedFolderEnum(folders);
}

std::int32_t Quelcrypt_GetFileInformation(const char* containerPathUtf8, IHvcStringW** storedName, std::uint64_t* plainSize,
                                          const WIN32_FIND_DATAW* rawEntry, SYSTEMTIME* lastWrite, SYSTEMTIME* lastAccess,
                                          SYSTEMTIME* creation, void*) {
    return companion::GetFileInformation(containerPathUtf8, storedName, plainSize, rawEntry, lastWrite, lastAccess, creation);
}

IFileReader* Quelcrypt_FileReaderFactory(IHvcStringW* containerPath) { return companion::MakeReader(containerPath); }

IFileWriter* Quelcrypt_FileWriterFactory(IHvcStringW* containerPath, IHvcStringW* virtualFileSpec, IHvcStringW* sourcePath,
                                         std::uint32_t sourceAttributes, const SYSTEMTIME* lastWrite, const SYSTEMTIME* lastAccess,
                                         const SYSTEMTIME* creation, std::int32_t, std::uint32_t, void*) {
    return companion::MakeWriter(containerPath, virtualFileSpec, sourcePath, sourceAttributes, lastWrite, lastAccess, creation,
                                 companion::IfThere::Replace);
}
}
