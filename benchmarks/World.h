// What is measured: the built volume and the built companion library, with folders of this run. "Docs" is a mount
// folder whose files are encrypted, "Plain" one whose files are not.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <windows.h>

#include "quelcrypt/IVirtualVolume.h"
#include "quelcrypt/QuelcryptExceptions.h"

// The companion library's functions that the volume calls for content.
struct Companion {
    decltype(&Quelcrypt_GetFileInformation) getFileInformation;
    decltype(&Quelcrypt_FileReaderFactory) makeReader;
    decltype(&Quelcrypt_FileWriterFactory) makeWriter;
};

class World {
public:
    static constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

    static World& The();
    World();
    ~World();  // deletes the folders
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    IVirtualVolume* volume() const { return m_volume; }
    const Companion& companion() const { return m_companion; }
    // Loads both libraries again, so that neither remembers anything; no handle may be open. Deletes retained copies.
    void Reload();

    std::wstring Native(const std::wstring& volumePath) const { return m_root + L"\\" + volumePath; }
    // The temp file of an item, or its retained copy.
    std::wstring TempFileOf(const std::wstring& name) const;

    // Volume paths of folders with `count` files whose names have one length, made at the first call.
    std::wstring PlainFolder(int count);
    std::wstring EncryptedFolder(int count);
    static std::wstring FileName(int number);

    // A file of this size, made at the first call: "Plain\\<name>" stored plain, "Docs\\<name>" as a container.
    std::wstring File(const std::wstring& volumePath, std::uint64_t sizeBytes);
    // Encrypt a plain file into a container like the volume, in blocks of 32 KiB, and decrypt one into a plain file.
    void Encrypt(const std::wstring& plainPath, const std::wstring& containerPath, const std::wstring& storedName) const;
    void Decrypt(const std::wstring& containerPath, const std::wstring& plainPath) const;

private:
    void Load();
    void Unload();

    std::wstring m_root;
    HMODULE m_module = nullptr;
    IVirtualVolume* m_volume = nullptr;
    Companion m_companion{};
};

// Owns a handle of the platform; opening must succeed.
class File {
public:
    explicit File(const std::wstring& path, DWORD access = GENERIC_READ, DWORD disposition = OPEN_EXISTING);
    ~File() { CloseHandle(m_handle); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    HANDLE Get() const { return m_handle; }

private:
    HANDLE m_handle;
};

// Owns a handle of the volume.
class Item {
public:
    explicit Item(const std::wstring& path, DWORD access = GENERIC_READ);
    ~Item() { World::The().volume()->CloseFile(m_handle, nullptr); }
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;
    void* Get() const { return m_handle; }

private:
    void* m_handle = nullptr;
};
