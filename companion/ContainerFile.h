// A container opened for reading: an ordinary ZIP file with exactly one entry, which is AES-encrypted or empty (nothing
// to encrypt). The file is opened with full sharing, so it may be locked meanwhile.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "ZipFormat.h"
#include "common/Owners.h"

namespace companion {

struct ContainerEntry {
    std::wstring name;
    std::uint64_t plainSize = 0;
    // Seconds since 1970, UTC.
    std::int64_t lastWrite = 0;
    std::int64_t lastAccess = 0;
    std::int64_t creation = 0;
};

class ContainerFile {
public:
    // Reads both ends of the file. When it cannot be opened OpenError says why, and nothing else may be called.
    explicit ContainerFile(const std::wstring& path);

    // A Win32 error, 0 when the file is open.
    DWORD OpenError() const { return m_openError; }
    // A Win32 error that says why the file could not be read, 0 when it could.
    DWORD ReadError() const { return m_readError; }

    // Nothing, also from the next function, when the file is not a container or could not be read.
    const std::optional<ZipEntry>& Zip() const { return m_zip; }
    std::optional<ContainerEntry> Entry() const;

    // Does a file that is not a container look like a damaged one? Other ZIP files do not.
    bool IsBroken() const { return m_isBroken; }

    // Where the entry's stored bytes begin.
    std::uint64_t ContentAt() const { return m_contentAt; }

    // Fills the buffer from that offset, or throws CQuelcryptErrorException.
    void Read(std::uint64_t at, std::span<std::uint8_t> buffer);

private:
    void FindEntry();
    // How many bytes were read: fewer than asked for at the end of the file, and after an error.
    std::size_t ReadUpTo(std::uint64_t at, std::span<std::uint8_t> buffer);

    UniqueHandle m_file;
    DWORD m_openError = 0;
    DWORD m_readError = 0;
    std::optional<ZipEntry> m_zip;
    bool m_isBroken = false;
    std::uint64_t m_contentAt = 0;
};

}  // namespace companion
