// What the volume needs of its companion library, QuelcryptLib64.dll: encryption, keys, policy, configuration, logging.
// A companion library compiles against this page and exports the functions below, undecorated.
//
// The receiver of an object owns it and releases it once, through slot 1; the logger is never released. Strings that are
// passed in are read only during the call. Every function may be called on any thread. Any of them may throw a
// CQuelcryptException or a class derived from it (QuelcryptExceptions.h), or call the registered callback, which throws one;
// no other exception may leave them. When another compiler built the library, its own exceptions are failures without a description for
// the volume; only the callback's keeps its class. companion_conformance shows whether a library does all this.
#pragma once

#include <cstdint>

#include <windows.h>

class IQuelcryptBase {
public:
    // 0: destroys the object and, when bit 0 of flags is set, frees it. Returns its address.
    virtual void* Destroy(std::uint32_t flags) = 0;
    // 1: ends the caller's ownership.
    virtual void Release() = 0;

protected:
    ~IQuelcryptBase() = default;  // not virtual: compilers disagree on the slots of a virtual destructor
};

class IHvcStringW : public IQuelcryptBase {
public:
    // 2: null when empty; otherwise valid as long as the object.
    virtual const wchar_t* GetString() = 0;

protected:
    ~IHvcStringW() = default;
};

class IQuelcryptConfig : public IQuelcryptBase {
public:
    // 2: is a file of this name never to be encrypted? The second argument is 0.
    virtual bool IsExcluded(const char* fileNameUtf8, std::int32_t zero) = 0;

protected:
    ~IQuelcryptConfig() = default;
};

// The box configuration of one folder. The texts are UTF-8: each call fills at most capacity bytes (no terminator is
// counted) and returns how many; 0 means not set.
class IHalvaneBoxConfig : public IQuelcryptBase {
public:
    virtual void Reserved2() = 0;                                                    // 2
    virtual std::uint32_t GetTargetKeyId(char* buffer, std::uint32_t capacity) = 0;  // 3
    virtual void Reserved4() = 0;                                                    // 4
    virtual std::uint32_t GetOwnerId(char* buffer, std::uint32_t capacity) = 0;      // 5
    virtual void Reserved6() = 0;                                                    // 6
    virtual std::uint32_t GetPolicy(char* buffer, std::uint32_t capacity) = 0;       // 7

protected:
    ~IHalvaneBoxConfig() = default;
};

class IQuelcryptText : public IQuelcryptBase {
public:
    virtual bool HasText(std::int32_t zero) = 0;         // 2
    virtual const char* GetText(std::int32_t zero) = 0;  // 3: UTF-8, valid as long as the object

protected:
    ~IQuelcryptText() = default;
};

struct ProtectedFolderRecord {
    std::uint32_t type;  // a ProtectedFolderType
};

class IProtectedFolder : public IQuelcryptBase {
public:
    virtual void Reserved2() = 0;                               // 2
    virtual void GetRecord(ProtectedFolderRecord* record) = 0;  // 3
    virtual void Reserved4() = 0;                               // 4
    virtual bool GetName(IQuelcryptText** text) = 0;            // 5: the caller releases *text
    virtual bool GetPath(IQuelcryptText** text) = 0;            // 6: native path; the caller releases *text

protected:
    ~IProtectedFolder() = default;
};

class IProtectedFolderEnum : public IQuelcryptBase {
public:
    // 2: non-zero stores the next folder, which the caller releases; 0: there are no more.
    virtual std::int32_t Next(IProtectedFolder** folder) = 0;
    virtual void Reserved3() = 0;                  // 3
    virtual void Reserved4() = 0;                  // 4
    virtual std::uint32_t GetChangeCounter() = 0;  // 5: differs whenever the folder set does

protected:
    ~IProtectedFolderEnum() = default;
};

// Hands out the content of a container block by block.
class IFileReader : public IQuelcryptBase {
public:
    virtual std::uint32_t Advance() = 0;        // 2: moves to the next block; 0 when there is none
    virtual const void* GetData() = 0;          // 3: the current block, valid until the next Advance
    virtual std::uint32_t GetDataLength() = 0;  // 4: in bytes

protected:
    ~IFileReader() = default;
};

// Takes the content of a container. Only Finish(true) stores the container, complete: until then, and when the
// writer is released without it, what is stored at the path stays as it was.
class IFileWriter : public IQuelcryptBase {
public:
    virtual bool Write(const void* data, std::uint32_t length) = 0;  // 2; false: not all was taken, the save has failed
    virtual bool Finish(bool commit) = 0;                            // 3; false: nothing was stored

protected:
    ~IFileWriter() = default;
};

enum LogLevel : std::uint32_t { LogLevel_Error = 1, LogLevel_Warning = 2, LogLevel_Information = 3, LogLevel_Trace = 4 };

// No base: two slots only. Lives as long as the library.
class IFileLogger {
public:
    virtual void Write(std::uint32_t component, std::uint32_t level, const wchar_t* text, void* null) = 0;  // 0
    virtual std::uint32_t GetLevel(std::uint32_t component) = 0;                                            // 1

protected:
    ~IFileLogger() = default;
};

extern "C" {
// Called once, before anything else, while the volume is being loaded. raise throws CQuelcryptInterfaceException out of
// the volume's own code and never returns.
void Quelcrypt_Initialize(void (*raise)());
// Called once, last.
void Quelcrypt_Uninitialize();

// kind is 1. Null: nothing is logged.
IFileLogger* Quelcrypt_GetFileLogger(std::int32_t kind);
std::uint32_t Quelcrypt_GetLoggerComponentIndex(const char* componentName);

// Both arguments are null. A null result: no name is excluded.
IQuelcryptConfig* Quelcrypt_GetQuelcryptConfig(void* null1, void* null2);
// Non-zero on success, with the folder's configuration in *config (null: it has none).
std::int32_t Quelcrypt_GetHalvaneBoxConfig(const char* folderPathUtf8, IHalvaneBoxConfig** config, void* null1, void* null2);
// The first argument is 0. Non-zero on success.
std::int32_t Quelcrypt_GetProtectedFolderEnum(std::int32_t zero, IProtectedFolderEnum** folders);

// Reads what a container says about its content: the stored name (made by the library, released by the caller), the plain
// size in bytes and the three times, UTC. rawEntry is the container's entry as found on disk. Exactly 1 on success.
std::int32_t Quelcrypt_GetFileInformation(const char* containerPathUtf8, IHvcStringW** storedName, std::uint64_t* plainSize,
                                          const WIN32_FIND_DATAW* rawEntry, SYSTEMTIME* lastWrite, SYSTEMTIME* lastAccess,
                                          SYSTEMTIME* creation, void* null);

// Null when the container cannot be opened. What is no container, or a damaged one, is refused here or by an Advance before the end.
IFileReader* Quelcrypt_FileReaderFactory(IHvcStringW* containerPath);
// virtualFileSpec is the name to store. sourcePath, attributes and times describe the plain file, whose content comes
// through Write. mode is 2, chunkSize 32768. Null when the container cannot be written. The container gets the read-only, hidden and
// system attributes of the plain file. An existing read-only container is not replaced. Under a lock the volume has the container built in
// the temp folder; the tracking file beside it (containerPath + ".hvf") names the container that it will be copied over: use that folder's
// key.
IFileWriter* Quelcrypt_FileWriterFactory(IHvcStringW* containerPath, IHvcStringW* virtualFileSpec, IHvcStringW* sourcePath,
                                         std::uint32_t sourceAttributes, const SYSTEMTIME* lastWrite, const SYSTEMTIME* lastAccess,
                                         const SYSTEMTIME* creation, std::int32_t mode, std::uint32_t chunkSize, void* null);
}
