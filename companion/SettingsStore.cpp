#include "SettingsStore.h"

#include <mutex>
#include <optional>
#include <string>

#include <windows.h>

#include "Boundary.h"
#include "Logger.h"
#include "Paths.h"
#include "SettingsFile.h"
#include "Text.h"
#include "WholeFile.h"
#include "common/CharacterSets.h"
#include "common/FileStamp.h"

namespace companion {
namespace {

// Compared to find out whether the file was written since it was read.
struct SeenFile {
    std::wstring path;
    DWORD error = 0;  // why its attributes cannot be read; 0 when they can
    FileStamp stamp;

    bool operator==(const SeenFile&) const = default;
};

std::wstring EnvironmentText(const wchar_t* name) {
    std::wstring value(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
        const bool fits = length < value.size();
        value.resize(length);
        if (fits)
            return value;
    }
}

std::wstring PathBesideThisModule(const wchar_t* fileName) {
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const wchar_t*>(&PathBesideThisModule), &module);
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            return FolderOf(FullPath(path)) + L'\\' + fileName;
        }
        path.resize(path.size() * 2);
    }
}

SeenFile LookAt(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(OpenablePath(path).c_str(), GetFileExInfoStandard, &data))
        return {path, GetLastError(), {}};
    return {path, 0, StampOf(data)};
}

// A second write this soon after the first may leave the same write time and size.
bool IsFresh(const SeenFile& seen) {
    constexpr std::uint64_t clockStep = 1'000'000;  // 100 ms in FILETIME units
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return FileTimeNumber(now) < static_cast<std::uint64_t>(seen.stamp.writeTime) + clockStep;
}

}  // namespace

std::wstring SettingsPath() {
    const std::wstring chosen = EnvironmentText(L"QUELCRYPT_CONFIG");
    if (!chosen.empty())
        return FullPath(chosen);
    static const std::wstring besideLibrary = PathBesideThisModule(L"quelcrypt.json");
    const std::wstring ofUser = EnvironmentText(L"APPDATA");
    if (ofUser.empty() || GetFileAttributesW(OpenablePath(besideLibrary).c_str()) != INVALID_FILE_ATTRIBUTES)
        return besideLibrary;
    return FullPath(ofUser) + L"\\Quelcrypt\\quelcrypt.json";
}

namespace {

class SettingsStore {
public:
    std::shared_ptr<const SettingsInForce> Current() {
        const std::lock_guard guard(m_mutex);
        const SeenFile seen = LookAt(SettingsPath());
        if (!m_read || *m_read != seen || m_readAgain)
            Read(seen);
        return m_inForce;
    }

private:
    void Read(const SeenFile& seen) {
        const bool isSame = m_read && *m_read == seen;
        m_read = seen;
        m_readAgain = seen.error == 0 && IsFresh(seen);
        try {
            const Secret text(ReadText(seen));
            const std::size_t textHash = std::hash<std::string_view>()(text.Text());
            if (isSame && textHash == m_textHash)
                return;
            m_textHash = textHash;
            Settings settings = ParseSettings(text.Text(), FolderOf(seen.path));
            settings.ownPath = seen.path;
            TakeOver(std::move(settings));
            m_lastProblem.clear();
        } catch (const SettingsError& error) {
            Report(seen.path + Widened(error.what(), CharacterSet::Utf8));
        } catch (const CQuelcryptErrorException& error) {
            Report(seen.path + L": " + error.GetDescription());
        }
    }

    std::string ReadText(const SeenFile& seen) {
        if (seen.error != 0)
            FailWithError(L"The file cannot be read", seen.error);
        try {
            constexpr std::size_t sizeLimit = 16 << 20;
            return ReadWholeFile(seen.path, sizeLimit);
        } catch (...) {
            // A program that held the file may close it without changing the stamp.
            m_readAgain = true;
            throw;
        }
    }

    void TakeOver(Settings settings) {
        auto next = std::make_shared<SettingsInForce>();
        next->settings = std::move(settings);
        next->changeCounter = m_inForce->changeCounter + 1;
        if (next->changeCounter == 0)
            next->changeCounter = 1;
        m_inForce = std::move(next);
        m_loaded = true;
        ConfigureLogger(m_inForce->settings.logFile, m_inForce->settings.logLevel);
    }

    void Report(const std::wstring& problem) {
        if (problem == m_lastProblem)
            return;
        m_lastProblem = problem;
        ReportProblem(L"Configuration: " + problem + (m_loaded ? L" (what was read before stays in force)" : L" (there are no folders)"));
    }

    std::mutex m_mutex;
    std::optional<SeenFile> m_read;  // of the last attempt
    bool m_readAgain = false;
    std::size_t m_textHash = 0;
    std::wstring m_lastProblem;
    bool m_loaded = false;
    std::shared_ptr<const SettingsInForce> m_inForce = std::make_shared<SettingsInForce>(SettingsInForce{{}, 1});
};

}  // namespace

std::shared_ptr<const SettingsInForce> CurrentSettings() {
    static SettingsStore store;
    return store.Current();
}

}  // namespace companion
