// Files outside the volume. Every failure throws HostError with the file's name and the platform's words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <windows.h>

#include "core/OnDisk.h"
#include "quelcrypt/IVirtualVolume.h"

// Reads one file, or standard input for the name "-".
class LocalSource {
public:
    // Nobody may write the file while it is open here.
    explicit LocalSource(const std::wstring& path);
    // path is for messages.
    LocalSource(UniqueHandle file, const std::wstring& path);
    LocalSource(const LocalSource&) = delete;
    LocalSource& operator=(const LocalSource&) = delete;

    bool IsStandardInput() const { return m_isStandardInput; }
    // 0 for standard input, whose size is not known.
    std::uint64_t Size() const { return m_size; }
    // The next bytes, as many as are there; 0 at the end. A file that ends before Size() throws.
    std::size_t Read(void* buffer, std::size_t capacity);
    // Stores the file's three times in findData; does nothing for standard input.
    void ReadTimes(VirtFindData& findData) const;

private:
    void TakeSize();

    std::wstring m_path;
    UniqueHandle m_owned;
    HANDLE m_file;  // the same, or standard input
    bool m_isStandardInput;
    std::uint64_t m_size = 0;
    std::uint64_t m_done = 0;
};

// Writes a new file under another name, and Finish renames it: until then the old file is unchanged, and without
// Finish the new one is deleted. For the name "-" it writes to standard output at once.
class LocalTarget {
public:
    explicit LocalTarget(const std::wstring& path);
    ~LocalTarget();
    LocalTarget(const LocalTarget&) = delete;
    LocalTarget& operator=(const LocalTarget&) = delete;

    void Write(const void* data, std::size_t size);
    // lastWriteTime becomes the file's; 0 keeps the current time.
    void Finish(std::uint64_t lastWriteTime);

private:
    std::wstring m_path, m_asidePath;
    UniqueHandle m_owned;
    HANDLE m_file;  // the same, or standard output
    bool m_isStandardOutput;
};

bool IsLocalFolder(const std::wstring& path);
