#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Boundary.h"
#include "ContainerContent.h"
#include "ContainerFile.h"
#include "Library.h"
#include "Logger.h"
#include "Passwords.h"
#include "Paths.h"
#include "SettingsStore.h"
#include "Text.h"

namespace companion {
namespace {

bool IsAuthentic(ContainerFile& file, const std::string& password) {
    try {
        ContainerContent content(file, ContainerContent::CipherFor(file, password));
        while (!content.Next().empty()) {
        }
        return true;
    } catch (const CQuelcryptErrorException&) {
        return false;
    }
}

// To read with; null when no configured password fits. The format's own check of a password is two bytes, which a wrong one
// passes once in 65,536 times: when several pass, only reading everything can tell.
std::unique_ptr<ContentCipher> FittingCipher(ContainerFile& file, const std::wstring& path) {
    std::vector<std::pair<std::string, std::unique_ptr<ContentCipher>>> fitting;
    for (const std::string& password : PasswordsToRead(CurrentSettings()->settings, path)) {
        if (auto cipher = ContainerContent::CipherFor(file, password))
            fitting.emplace_back(password, std::move(cipher));
    }
    if (fitting.empty())
        return nullptr;
    for (auto& [password, cipher] : fitting) {
        if (fitting.size() > 1 && IsAuthentic(file, password))
            return std::move(cipher);
    }
    return std::move(fitting.front().second);
}

class ContainerReader final : public Handed<IFileReader> {
public:
    explicit ContainerReader(const std::wstring& path) : m_path(path), m_file(path) {
        if (m_file.OpenError() != 0 || m_file.Zip())
            return;
        if (m_file.ReadError() != 0)
            FailWithError(L"The container cannot be read", m_file.ReadError());
        Fail(L"The file is not a container");
    }
    ~ContainerReader() override = default;

    DWORD OpenError() const { return m_file.OpenError(); }

    // No block may follow a failure, and no end that looks like success.
    std::uint32_t Advance() override {
        return AtBoundary([this] {
            if (!m_failure.empty())
                Fail(m_failure);
            try {
                if (!m_content)
                    Begin();
                if (!m_isOver)
                    m_block = m_content->Next();
                m_isOver = m_block.empty();
                return m_isOver ? 0u : 1u;
            } catch (const CQuelcryptErrorException& error) {
                m_block = {};
                m_failure = error.GetDescription();
                throw;
            }
        });
    }
    const void* GetData() override { return m_block.data(); }
    std::uint32_t GetDataLength() override { return static_cast<std::uint32_t>(m_block.size()); }

private:
    void Begin() {
        std::unique_ptr<ContentCipher> cipher;
        if (m_file.Zip()->keyBytes != 0 && !(cipher = FittingCipher(m_file, m_path)))
            Fail(L"Cannot recover password");
        m_content.emplace(m_file, std::move(cipher));
    }

    std::wstring m_path;
    ContainerFile m_file;
    std::optional<ContainerContent> m_content;
    std::span<const std::uint8_t> m_block;
    bool m_isOver = false;
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
