#include "ContainerReader.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Boundary.h"
#include "ContainerContent.h"
#include "ContainerFile.h"
#include "Logger.h"
#include "Passwords.h"
#include "Paths.h"
#include "Problem.h"
#include "SettingsStore.h"
#include "Text.h"

namespace companion {

std::unique_ptr<ContentCipher> FittingCipher(ContainerFile& file, const std::wstring& path, std::string& key) {
    struct Fitting {
        Secret password;
        std::string key;
        std::unique_ptr<ContentCipher> cipher;
    };
    std::vector<Fitting> fitting;
    ForPasswordsToRead(
        CurrentSettings()->settings, path,
        [&](const Secret& password, const std::string& itsKey) {
            if (auto cipher = ContainerContent::CipherFor(file, password.Text()))
                fitting.push_back({password, itsKey, std::move(cipher)});
        },
        [&] { return !fitting.empty(); });
    if (fitting.empty())
        return nullptr;
    // The format's check of a password is two bytes, which a wrong one passes once in 65,536 times: when several pass, everything
    // must be read to find the right one.
    const auto whole = std::find_if(fitting.begin(), fitting.end(),
                                    [&](const Fitting& one) { return fitting.size() > 1 && IsWholeUnder(file, one.password); });
    Fitting& chosen = whole == fitting.end() ? fitting.front() : *whole;
    key = chosen.key;
    return std::move(chosen.cipher);
}

namespace {

class ContainerReader final : public Handed<IFileReader> {
public:
    explicit ContainerReader(const std::wstring& path) : m_path(path), m_file(path) {
        if (m_file.OpenError() != 0 || m_file.Zip())
            return;
        if (m_file.ReadError() != 0)
            FailWithError(L"The container cannot be read", m_file.ReadError());
        const std::wstring problem =
            m_file.IsBroken() ? L"The container is damaged: its records are not whole" : L"The file is not a container";
        NoteProblem(problem);
        Fail(problem);
    }
    ~ContainerReader() override = default;

    DWORD OpenError() const { return m_file.OpenError(); }

    // After a failure every call must fail: neither a block nor a successful end may follow.
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
                if (LastProblem().empty())
                    NoteProblem(m_failure);
                throw;
            }
        });
    }
    const void* GetData() override { return m_block.data(); }
    std::uint32_t GetDataLength() override { return static_cast<std::uint32_t>(m_block.size()); }

private:
    void Begin() {
        std::unique_ptr<ContentCipher> cipher;
        std::string key;
        ForgetProblem();
        if (m_file.Zip()->keyBytes != 0 && !(cipher = FittingCipher(m_file, m_path, key))) {
            if (LastProblem().empty())
                NoteProblem(L"No configured password opens it");
            Fail(L"Cannot recover password");
        }
        ForgetProblem();
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
        ForgetProblem();
        const std::wstring fullPath = FullPath(path);
        auto reader = std::make_unique<ContainerReader>(fullPath);
        if (reader->OpenError() == 0)
            return reader.release();
        NoteProblem(L"The container cannot be opened: " + SystemErrorText(reader->OpenError()));
        LogLine(LogLevel_Error, fullPath + L" cannot be opened: " + SystemErrorText(reader->OpenError()));
        return nullptr;
    });
}

}  // namespace companion
