// A container opened for reading: an ordinary ZIP file with exactly one entry, which is AES-encrypted or empty (an empty
// content has nothing to encrypt). The file is opened with full sharing, so it may be held by a lock meanwhile.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <archive.h>

#include "Handle.h"

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
    // Reads of blockBytes at a time. When the file cannot be opened OpenError tells why and nothing else may be called.
    ContainerFile(const std::wstring& path, std::size_t blockBytes);
    ~ContainerFile() = default;
    // The archive library holds a pointer to this object.
    ContainerFile(const ContainerFile&) = delete;
    ContainerFile& operator=(const ContainerFile&) = delete;

    // A Win32 error, 0 when the file is open.
    DWORD OpenError() const { return m_openError; }

    // For the content, UTF-8. Before FirstEntry only.
    void GivePassword(const std::string& password);

    // The entry, whose content comes next; nothing when the file is not a container so far.
    std::optional<ContainerEntry> FirstEntry();
    // The next block of the content: ARCHIVE_OK, ARCHIVE_EOF, or how it failed. Never more than the entry says that it has: a
    // small file could become anything otherwise. Less is a failure at the end.
    int NextBlock(const void** data, std::size_t* length);
    // False when the file holds more than the first entry. Its content can be read no more afterwards.
    bool IsLastEntry();

    // A Win32 error: why the file could not be read; 0 when it could.
    DWORD ReadError() const { return m_readError; }
    archive* Archive() const { return m_archive.get(); }

private:
    struct FreeArchive {
        void operator()(archive* opened) const { archive_read_free(opened); }
    };

    static la_ssize_t ReadBlock(archive*, void* self, const void** block);
    static la_int64_t Seek(archive*, void* self, la_int64_t offset, int whence);

    Handle m_file;
    DWORD m_openError = 0;
    DWORD m_readError = 0;
    std::size_t m_blockBytes;
    std::optional<std::uint64_t> m_contentLeft;  // as the entry says
    std::unique_ptr<std::uint8_t[]> m_block;
    std::unique_ptr<archive, FreeArchive> m_archive;  // last: it goes first
};

}  // namespace companion
