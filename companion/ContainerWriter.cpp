#include <cerrno>
#include <ctime>
#include <memory>
#include <new>
#include <string>

#include <archive.h>
#include <archive_entry.h>

#include "Boundary.h"
#include "Library.h"
#include "Passwords.h"
#include "Paths.h"
#include "SettingsStore.h"
#include "SideFile.h"
#include "SystemTime.h"
#include "Text.h"

namespace companion {
namespace {

struct FreeArchive {
    void operator()(archive* written) const {
        // What was not closed before is given up: nothing more goes to the file.
        archive_write_fail(written);
        archive_write_free(written);
    }
};
struct FreeEntry {
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};
using EntryPointer = std::unique_ptr<archive_entry, FreeEntry>;

// What the container says of its content.
struct PlainFile {
    std::wstring name;
    std::uint32_t attributes = 0;
    std::int64_t lastWrite = 0;
    std::optional<std::int64_t> lastAccess;
    std::optional<std::int64_t> creation;
};

// The one entry's size is not known before its end, so it goes into the ZIP file behind the content. Only an empty content
// is announced: the archive library can encrypt nothing but a content.
EntryPointer MadeEntry(const PlainFile& plain, bool isEmpty) {
    EntryPointer entry(archive_entry_new());
    if (!entry)
        throw std::bad_alloc();
    archive_entry_copy_pathname_w(entry.get(), plain.name.c_str());
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    // The archive library stores Unix permissions, so of the attributes only this one goes into the ZIP file.
    archive_entry_set_perm(entry.get(), plain.attributes & FILE_ATTRIBUTE_READONLY ? 0444 : 0644);
    archive_entry_set_mtime(entry.get(), static_cast<time_t>(plain.lastWrite), 0);
    if (plain.lastAccess)
        archive_entry_set_atime(entry.get(), static_cast<time_t>(*plain.lastAccess), 0);
    // The field that ZIP calls creation time goes by this name here.
    if (plain.creation)
        archive_entry_set_ctime(entry.get(), static_cast<time_t>(*plain.creation), 0);
    if (isEmpty)
        archive_entry_set_size(entry.get(), 0);
    return entry;
}

class ContainerWriter final : public Handed<IFileWriter> {
public:
    ContainerWriter(const std::wstring& containerPath, PlainFile plain, const std::string& password)
        : m_plain(std::move(plain)), m_file(containerPath), m_archive(archive_write_new()) {
        if (!m_archive)
            throw std::bad_alloc();
        constexpr int blockBytes = 256 * 1024;
        archive* const written = m_archive.get();
        Check(archive_write_set_format_zip(written));
        Check(archive_write_set_options(written, "zip:compression=store,zip:encryption=aes256,zip:hdrcharset=UTF-8"));
        Check(archive_write_set_passphrase(written, password.c_str()));
        Check(archive_write_set_bytes_per_block(written, blockBytes));
        Check(archive_write_set_bytes_in_last_block(written, 1));
        Check(archive_write_open2(written, this, nullptr, &ContainerWriter::WriteBlock, nullptr, nullptr));
    }
    ~ContainerWriter() override = default;

    bool Write(const void* data, std::uint32_t length) override {
        return AsStep([&] { WriteContent(data, length); });
    }

    bool Finish(bool commit) override {
        return AsStep([&] {
            if (commit) {
                if (!m_hasHeader)
                    WriteHeader(true);
                Check(archive_write_close(m_archive.get()));
                m_file->PutInPlace(m_plain.attributes);
            }
            End();
        });
    }

private:
    // After a failed step, and after Finish, the answer is false and nothing happens.
    template <class Step>
    bool AsStep(Step&& step) {
        return AtBoundary([&] {
            if (m_isOver)
                return false;
            try {
                step();
                return true;
            } catch (...) {
                End();
                throw;
            }
        });
    }

    // A failed one makes room at once: what failed may have been a full disk.
    void End() {
        m_isOver = true;
        m_archive.reset();
        m_file.reset();
    }

    void WriteContent(const void* data, std::uint32_t length) {
        if (length == 0)
            return;
        if (!data)
            throw CQuelcryptInvalidArgumentException();
        if (!m_hasHeader)
            WriteHeader(false);
        const la_ssize_t written = archive_write_data(m_archive.get(), data, length);
        if (written != static_cast<la_ssize_t>(length))
            FailToWrite();
    }

    void WriteHeader(bool isEmpty) {
        const EntryPointer entry = MadeEntry(m_plain, isEmpty);
        Check(archive_write_header(m_archive.get(), entry.get()));
        m_hasHeader = true;
    }

    void Check(int result) {
        if (result != ARCHIVE_OK)
            FailToWrite();
    }

    [[noreturn]] void FailToWrite() {
        if (m_writeError != 0)
            FailWithError(L"The container cannot be written", m_writeError);
        const char* const reason = archive_error_string(m_archive.get());
        Fail(L"The container cannot be written: " + FromUtf8Lossy(reason ? reason : "unknown reason"));
    }

    static la_ssize_t WriteBlock(archive* written, void* self, const void* data, std::size_t length) {
        auto& writer = *static_cast<ContainerWriter*>(self);
        writer.m_writeError = writer.m_file->Write(data, length);
        if (writer.m_writeError == 0)
            return static_cast<la_ssize_t>(length);
        archive_set_error(written, EIO, "The file cannot be written");
        return -1;
    }

    PlainFile m_plain;
    std::optional<SideFile> m_file;
    DWORD m_writeError = 0;
    bool m_hasHeader = false;
    bool m_isOver = false;
    std::unique_ptr<archive, FreeArchive> m_archive;  // last: it goes before the file
};

}  // namespace

IFileWriter* MakeWriter(IHvcStringW* containerPath, IHvcStringW* virtualFileSpec, IHvcStringW* sourcePath,
                        std::uint32_t sourceAttributes, const SYSTEMTIME* lastWrite, const SYSTEMTIME* lastAccess,
                        const SYSTEMTIME* creation) {
    return AtBoundary([&]() -> IFileWriter* {
        const wchar_t* const path = containerPath ? containerPath->GetString() : nullptr;
        const wchar_t* const name = virtualFileSpec ? virtualFileSpec->GetString() : nullptr;
        const wchar_t* const source = sourcePath ? sourcePath->GetString() : nullptr;
        if (!path || !name)
            throw CQuelcryptInvalidArgumentException();
        const std::wstring fullPath = FullPath(path);
        const auto password =
            PasswordToWrite(CurrentSettings()->settings, fullPath, source ? FullPath(source) : std::wstring());
        if (!password)
            return nullptr;

        PlainFile plain;
        plain.name = name;
        plain.attributes = sourceAttributes;
        plain.lastWrite = StoredTime(lastWrite).value_or(std::time(nullptr));
        plain.lastAccess = StoredTime(lastAccess);
        plain.creation = StoredTime(creation);
        return new ContainerWriter(fullPath, std::move(plain), *password);
    });
}

}  // namespace companion
