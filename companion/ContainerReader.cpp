#include <algorithm>
#include <memory>
#include <new>
#include <string>

#include "Boundary.h"
#include "ContainerFile.h"
#include "Library.h"
#include "Logger.h"
#include "Passwords.h"
#include "Paths.h"
#include "SettingsStore.h"
#include "Text.h"

namespace companion {
namespace {

constexpr std::size_t blockBytes = 256 * 1024;

// Does the container take this password at its start, and (throughout) does the content then prove to be authentic?
bool Opens(const std::wstring& path, const std::string& password, bool throughout) {
    ContainerFile container(path, blockBytes);
    if (container.OpenError() != 0)
        return false;
    container.GivePassword(password);
    if (!container.FirstEntry())
        return false;
    const void* data = nullptr;
    std::size_t length = 0;
    int result = container.NextBlock(&data, &length);
    while (throughout && result == ARCHIVE_OK)
        result = container.NextBlock(&data, &length);
    return result == (throughout ? ARCHIVE_EOF : ARCHIVE_OK);
}

// The password to read with; nothing when none fits. The format's own check of a password is two bytes, which a wrong one
// passes once in 65,536 times: when several pass, only reading everything can tell.
std::optional<std::string> FittingPassword(const std::wstring& path) {
    std::vector<std::string> passwords = PasswordsToRead(CurrentSettings()->settings, path);
    if (passwords.size() > 1)
        std::erase_if(passwords, [&](const std::string& password) { return !Opens(path, password, false); });
    if (passwords.empty())
        return std::nullopt;
    if (passwords.size() == 1)
        return passwords.front();
    const auto proven = std::find_if(passwords.begin(), passwords.end(),
                                     [&](const std::string& password) { return Opens(path, password, true); });
    return proven == passwords.end() ? passwords.front() : *proven;
}

class ContainerReader final : public Handed<IFileReader> {
public:
    explicit ContainerReader(const std::wstring& path) : m_file(path, blockBytes) {
        if (m_file.OpenError() != 0)
            return;
        if (const auto password = FittingPassword(path))
            m_file.GivePassword(*password);
        if (!m_file.FirstEntry())
            FailToRead(L"The file is not a container");
    }
    ~ContainerReader() override = default;

    DWORD OpenError() const { return m_file.OpenError(); }

    std::uint32_t Advance() override {
        return AtBoundary([this] {
            if (!m_failure.empty())
                Fail(m_failure);
            return m_exhausted ? 0u : NextBlock();
        });
    }
    const void* GetData() override { return m_data; }
    std::uint32_t GetDataLength() override { return m_length; }

private:
    std::uint32_t NextBlock() {
        std::size_t length = 0;
        do {
            const int result = m_file.NextBlock(&m_data, &length);
            if (result == ARCHIVE_EOF)
                return End();
            // A warning is how the archive library says that a checksum or the authentication code is wrong.
            if (result != ARCHIVE_OK)
                FailToRead(L"The container is damaged");
        } while (length == 0);
        m_length = static_cast<std::uint32_t>(length);
        return 1;
    }

    std::uint32_t End() {
        m_data = nullptr;
        m_length = 0;
        if (!m_file.IsLastEntry())
            FailToRead(L"The file is not a container");
        m_exhausted = true;
        return 0;
    }

    // No block may follow the failure, and no end that looks like success.
    [[noreturn]] void FailToRead(const std::wstring& description) {
        m_data = nullptr;
        m_length = 0;
        const char* const reason = archive_error_string(m_file.Archive());
        const std::string text = reason ? reason : "";
        if (m_file.ReadError() != 0)
            m_failure = L"The container cannot be read: " + SystemErrorText(m_file.ReadError());
        else if (text == "Incorrect passphrase" || text == "Passphrase required for this entry")
            m_failure = L"Cannot recover password";
        else
            m_failure = text.empty() ? description : description + L": " + FromUtf8Lossy(text);
        Fail(m_failure);
    }

    ContainerFile m_file;
    const void* m_data = nullptr;
    std::uint32_t m_length = 0;
    bool m_exhausted = false;
    std::wstring m_failure;
};

}  // namespace

IFileReader* MakeReader(IHvcStringW* containerPath) {
    return AtBoundary([&]() -> IFileReader* {
        const wchar_t* const path = containerPath ? containerPath->GetString() : nullptr;
        if (!path)
            throw CQuelcryptInvalidArgumentException();
        const std::wstring fullPath = FullPath(path);
        auto reader = std::make_unique<ContainerReader>(fullPath);
        if (reader->OpenError() == 0)
            return reader.release();
        LogLine(LogLevel_Error, fullPath + L" cannot be opened: " + SystemErrorText(reader->OpenError()));
        return nullptr;
    });
}

}  // namespace companion
