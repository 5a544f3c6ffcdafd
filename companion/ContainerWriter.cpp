#include "ContainerWriter.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <windows.h>

#include <bcrypt.h>

#include "Boundary.h"
#include "ContentCipher.h"
#include "Logger.h"
#include "Passwords.h"
#include "Paths.h"
#include "Problem.h"
#include "SettingsFile.h"
#include "SettingsStore.h"
#include "SideFile.h"
#include "SystemTime.h"
#include "Text.h"
#include "ZipFormat.h"

namespace companion {
namespace {

constexpr std::size_t kBlockBytes = 256 * 1024;
constexpr std::size_t kKeyBytes = AES256_KEY_SIZE;
constexpr std::size_t kLongestName = kZipEndBytes / 2;  // a longer one could not be read again

// The sizes are known only at the end. Until then the local header has 0; without its central directory the side file is not a ZIP
// file anyway.
class ContainerWriter final : public Handed<IFileWriter> {
public:
    // entry has the name and the times. require is called before the container is put in place, and may throw to prevent that.
    ContainerWriter(const std::wstring& containerPath, ZipEntry entry, std::uint32_t attributes, Secret password, IfThere ifThere,
                    std::function<void(const Secret&)> require)
        : m_entry(std::move(entry)),
          m_attributes(attributes),
          m_password(std::move(password)),
          m_file(containerPath),
          m_ifThere(ifThere),
          m_require(std::move(require)) {}
    ~ContainerWriter() override = default;

    bool Write(const void* data, std::uint32_t length) override {
        return AsStep([&] {
            if (!data && length != 0)
                throw CQuelcryptInvalidArgumentException();
            WriteContent({static_cast<const std::uint8_t*>(data), length});
        });
    }

    bool Finish(bool commit) override {
        return AsStep([&] {
            if (commit) {
                WriteEnds();
                m_file->Complete();
                // The configuration cannot change meanwhile, so whoever changes a password finds all containers with the former one.
                const UniqueHandle held = HoldSettings();
                m_require(m_password);
                m_file->PutInPlace(m_attributes, m_ifThere);
            }
            End();
        });
    }

private:
    // After a failed step, and after Finish, does nothing and returns false.
    template <class Step>
    bool AsStep(Step&& step) {
        return AtBoundary([&] {
            if (m_isOver)
                return false;
            try {
                step();
                return true;
            } catch (const CQuelcryptErrorException& error) {
                NoteProblem(error.GetDescription());
                End();
                throw;
            } catch (...) {
                End();
                throw;
            }
        });
    }

    // Frees the room on the disk at once after a failure: the disk may be full.
    void End() {
        m_isOver = true;
        m_file.reset();
    }

    void WriteContent(std::span<const std::uint8_t> content) {
        if (!m_cipher && !content.empty())
            BeginEncryption();
        m_entry.plainBytes += content.size();
        Append(content, m_cipher.get());
    }

    void BeginEncryption() {
        m_entry.keyBytes = kKeyBytes;
        std::array<std::uint8_t, ContentCipher::SaltBytes(kKeyBytes)> salt;
        if (BCryptGenRandom(nullptr, salt.data(), salt.size(), BCRYPT_USE_SYSTEM_PREFERRED_RNG) < 0)
            Fail(L"The container cannot be written: the system gives no random numbers");
        m_cipher = std::make_unique<ContentCipher>(m_password.Text(), salt, kKeyBytes);
        Append(LocalHeader(m_entry));
        Append(salt);
        Append(m_cipher->PasswordVerifier());
    }

    void WriteEnds() {
        if (m_cipher) {
            Append(m_cipher->AuthenticationCode());
            m_entry.storedBytes = m_entry.plainBytes + ContentCipher::AddedBytes(kKeyBytes);
        } else {
            Append(LocalHeader(m_entry));
        }
        const std::string header = LocalHeader(m_entry);
        Append(CentralDirectory(m_entry, header.size() + m_entry.storedBytes));
        WriteBlock();
        Check(m_file->WriteBeginning(header.data(), header.size()));
    }

    void Append(const std::string& record) { Append(std::span(reinterpret_cast<const std::uint8_t*>(record.data()), record.size())); }

    void Append(std::span<const std::uint8_t> bytes, ContentCipher* cipher = nullptr) {
        while (!bytes.empty()) {
            const std::span piece = std::span(m_block).subspan(m_inBlock).first(std::min(bytes.size(), kBlockBytes - m_inBlock));
            std::memcpy(piece.data(), bytes.data(), piece.size());
            if (cipher)
                cipher->Encrypt(piece);
            m_inBlock += piece.size();
            bytes = bytes.subspan(piece.size());
            if (m_inBlock == kBlockBytes)
                WriteBlock();
        }
    }

    void WriteBlock() { Check(m_file->Write(m_block.data(), std::exchange(m_inBlock, 0))); }

    static void Check(DWORD error) {
        if (error != 0)
            FailWithError(L"The container cannot be written", error);
    }

    ZipEntry m_entry;
    std::uint32_t m_attributes;
    Secret m_password;
    std::optional<SideFile> m_file;
    IfThere m_ifThere;
    std::function<void(const Secret&)> m_require;
    std::unique_ptr<ContentCipher> m_cipher;                                     // from the first byte of content on
    std::vector<std::uint8_t> m_block = std::vector<std::uint8_t>(kBlockBytes);  // to be written
    std::size_t m_inBlock = 0;
    bool m_isOver = false;
};

ZipEntry EntryFor(const wchar_t* name, std::uint32_t attributes, const SYSTEMTIME* lastWrite, const SYSTEMTIME* lastAccess,
                  const SYSTEMTIME* creation) {
    ZipEntry entry;
    entry.name = ToUtf8(name);
    if (entry.name.size() > kLongestName)
        throw CQuelcryptInvalidArgumentException();
    entry.isReadOnly = (attributes & FILE_ATTRIBUTE_READONLY) != 0;
    const auto seconds = [](std::optional<std::int64_t> time) { return static_cast<std::uint32_t>(time.value_or(0)); };
    entry.lastWrite = seconds(StoredTime(lastWrite).value_or(std::time(nullptr)));
    entry.lastAccess = seconds(StoredTime(lastAccess));
    entry.creation = seconds(StoredTime(creation));
    entry.dosTime = DosTimeOf(entry.lastWrite);
    return entry;
}

// Notes a failure for the host (Problem.h), and logs it.
template <class Make>
auto Noting(const std::wstring& path, Make&& make) {
    ForgetProblem();
    try {
        return make();
    } catch (const CQuelcryptErrorException& error) {
        NoteProblem(error.GetDescription());
        LogLine(LogLevel_Error, path + L" cannot be written: " + error.GetDescription());
        throw;
    }
}

}  // namespace

std::unique_ptr<IFileWriter, Releaser> NewContainer(const std::wstring& path, const std::wstring& name, const Secret& password,
                                                    IfThere ifThere) {
    ZipEntry entry;
    entry.name = ToUtf8(name);
    entry.lastWrite = static_cast<std::uint32_t>(std::time(nullptr));
    entry.dosTime = DosTimeOf(entry.lastWrite);
    return std::unique_ptr<IFileWriter, Releaser>(new ContainerWriter(path, std::move(entry), 0, password, ifThere, [](const Secret&) {}));
}

IFileWriter* MakeWriter(IHvcStringW* containerPath, IHvcStringW* virtualFileSpec, IHvcStringW* sourcePath, std::uint32_t sourceAttributes,
                        const SYSTEMTIME* lastWrite, const SYSTEMTIME* lastAccess, const SYSTEMTIME* creation, IfThere ifThere) {
    return AtBoundary([&]() -> IFileWriter* {
        const wchar_t* const path = containerPath ? containerPath->GetString() : nullptr;
        const wchar_t* const name = virtualFileSpec ? virtualFileSpec->GetString() : nullptr;
        const wchar_t* const source = sourcePath ? sourcePath->GetString() : nullptr;
        if (!path || !name)
            throw CQuelcryptInvalidArgumentException();
        const std::wstring fullPath = FullPath(path);
        return Noting(fullPath, [&]() -> IFileWriter* {
            const std::wstring sourceFullPath = source ? FullPath(source) : std::wstring();
            const auto password = PasswordToWrite(CurrentSettings()->settings, fullPath, sourceFullPath);
            if (!password)
                return nullptr;
            return new ContainerWriter(fullPath, EntryFor(name, sourceAttributes, lastWrite, lastAccess, creation), sourceAttributes,
                                       *password, ifThere,
                                       [=](const Secret& used) { RequireStillToWrite(used, fullPath, sourceFullPath); });
        });
    });
}

}  // namespace companion
