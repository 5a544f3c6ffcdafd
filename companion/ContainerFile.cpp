#include "ContainerFile.h"

#include <cerrno>
#include <cstring>
#include <new>

#include <archive_entry.h>

#include "Paths.h"

namespace companion {
namespace {

// The archive library tells the kinds of encryption apart in its name of the format alone: "ZIP 5.1 (aes)".
bool IsAesEncrypted(archive* opened, archive_entry* entry) {
    const char* const format = archive_format_name(opened);
    return archive_entry_is_data_encrypted(entry) && format && std::strstr(format, "(aes)");
}

ContainerEntry Described(archive_entry* entry) {
    ContainerEntry described;
    if (const wchar_t* const name = archive_entry_pathname_w(entry))
        described.name = name;
    described.plainSize = static_cast<std::uint64_t>(archive_entry_size(entry));
    described.lastWrite = archive_entry_mtime(entry);
    // Some writers store the first time only; 0 stands for the absent ones.
    described.lastAccess = archive_entry_atime(entry) ? archive_entry_atime(entry) : described.lastWrite;
    described.creation = archive_entry_ctime(entry) ? archive_entry_ctime(entry) : described.lastWrite;
    return described;
}

}  // namespace

ContainerFile::ContainerFile(const std::wstring& path, std::size_t blockBytes)
    : m_file(CreateFileW(OpenablePath(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                         nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)),
      m_blockBytes(blockBytes) {
    if (!m_file) {
        m_openError = GetLastError();
        return;
    }
    m_block = std::make_unique_for_overwrite<std::uint8_t[]>(blockBytes);
    m_archive.reset(archive_read_new());
    if (!m_archive)
        throw std::bad_alloc();
}

void ContainerFile::GivePassword(const std::string& password) {
    if (archive_read_add_passphrase(m_archive.get(), password.c_str()) != ARCHIVE_OK)
        throw std::bad_alloc();
}

std::optional<ContainerEntry> ContainerFile::FirstEntry() {
    archive* const opened = m_archive.get();
    archive_read_support_format_zip_seekable(opened);
    archive_read_set_callback_data(opened, this);
    archive_read_set_read_callback(opened, &ContainerFile::ReadBlock);
    archive_read_set_seek_callback(opened, &ContainerFile::Seek);

    archive_entry* entry = nullptr;
    if (archive_read_open1(opened) != ARCHIVE_OK || archive_read_next_header(opened, &entry) != ARCHIVE_OK)
        return std::nullopt;
    const bool isEmpty = archive_entry_size_is_set(entry) && archive_entry_size(entry) == 0;
    if (archive_entry_filetype(entry) != AE_IFREG || !(isEmpty || IsAesEncrypted(opened, entry)))
        return std::nullopt;
    if (archive_entry_size_is_set(entry))
        m_contentLeft = static_cast<std::uint64_t>(archive_entry_size(entry));
    return Described(entry);
}

int ContainerFile::NextBlock(const void** data, std::size_t* length) {
    archive* const opened = m_archive.get();
    la_int64_t offset = 0;
    const int result = archive_read_data_block(opened, data, length, &offset);
    const bool isTooLong = result == ARCHIVE_OK && m_contentLeft && *length > *m_contentLeft;
    if (isTooLong || (result == ARCHIVE_EOF && m_contentLeft.value_or(0) != 0)) {
        archive_set_error(opened, EIO, "The content is not as long as the entry says");
        return ARCHIVE_FATAL;
    }
    if (result == ARCHIVE_OK && m_contentLeft)
        *m_contentLeft -= *length;
    return result;
}

bool ContainerFile::IsLastEntry() {
    archive_entry* entry = nullptr;
    return archive_read_next_header(m_archive.get(), &entry) == ARCHIVE_EOF;
}

la_ssize_t ContainerFile::ReadBlock(archive* opened, void* self, const void** block) {
    auto& file = *static_cast<ContainerFile*>(self);
    DWORD read = 0;
    if (!ReadFile(file.m_file.Get(), file.m_block.get(), static_cast<DWORD>(file.m_blockBytes), &read, nullptr)) {
        file.m_readError = GetLastError();
        archive_set_error(opened, EIO, "The file cannot be read");
        return -1;
    }
    *block = file.m_block.get();
    return static_cast<la_ssize_t>(read);
}

la_int64_t ContainerFile::Seek(archive* opened, void* self, la_int64_t offset, int whence) {
    auto& file = *static_cast<ContainerFile*>(self);
    const DWORD method = whence == SEEK_SET ? FILE_BEGIN : whence == SEEK_CUR ? FILE_CURRENT : FILE_END;
    LARGE_INTEGER distance;
    LARGE_INTEGER position;
    distance.QuadPart = offset;
    if (!SetFilePointerEx(file.m_file.Get(), distance, &position, method)) {
        file.m_readError = GetLastError();
        archive_set_error(opened, EIO, "The file cannot be read");
        return ARCHIVE_FATAL;
    }
    return position.QuadPart;
}

}  // namespace companion
